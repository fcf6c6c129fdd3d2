// POSIX file-system helpers for writing a store. Every failure comes back as a text naming the operation,
// the path and strerror(errno); nothing is thrown. Descriptors and directory handles are owned by RAII
// holders inside the helpers. Thread-safe (no shared state).
#pragma once

#include <cstddef>
#include <string>

namespace vorlane {
namespace mkstore {

// Creates one directory (mode 0755); an existing directory is an error, since the store is written fresh.
bool makeDirectory(const std::string& path, std::string& error);

// Creates or truncates `path` (mode 0644) and writes `size` bytes with as few system calls as possible.
bool writeFile(const std::string& path, const char* data, size_t size, std::string& error);

bool makeSymlink(const std::string& target, const std::string& path, std::string& error);

enum class DirectoryState { Missing, Empty, NotEmpty, NotADirectory, Unreadable };
// What is at `path` now; Unreadable sets `error`.
DirectoryState inspectDirectory(const std::string& path, std::string& error);

// Removes `path` and everything below it without following symbolic links. A missing path is no error.
bool removeTree(const std::string& path, std::string& error);

}  // namespace mkstore
}  // namespace vorlane
