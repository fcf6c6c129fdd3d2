// An owned, heap-allocated C string for the fields of the MIME structures: null until assigned, freed by
// its owner, never copied implicitly. Values come from malloc so that they can be handed to C-style code.
// Not thread-safe; one string belongs to one structure.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace vorlane {
namespace mime {

class owned_str {
 public:
  owned_str() = default;
  owned_str(const owned_str&) = delete;
  owned_str& operator=(const owned_str&) = delete;
  owned_str(owned_str&& other) noexcept : str_(other.str_) { other.str_ = nullptr; }
  owned_str& operator=(owned_str&& other) noexcept {
    if (this != &other) {
      std::free(str_);
      str_ = other.str_;
      other.str_ = nullptr;
    }
    return *this;
  }
  ~owned_str() { std::free(str_); }

  const char* get() const { return str_; }
  explicit operator bool() const { return str_ != nullptr; }

  // Replaces the value by a copy of the first `len` bytes of `text` (terminated); false when out of memory.
  bool assign(const char* text, size_t len) {
    char* copy = prepare(len);
    if (copy == nullptr) return false;
    std::memcpy(copy, text, len);
    return true;
  }
  // Replaces the value by room for `len` bytes, terminated behind them, for the caller to write (and to
  // terminate earlier when it writes less); null when out of memory.
  char* prepare(size_t len) {
    char* room = static_cast<char*>(std::malloc(len + 1));
    if (room == nullptr) return nullptr;
    room[len] = '\0';
    std::free(str_);
    str_ = room;
    return room;
  }
  // Replaces the value by a copy of `text`; a null `text` clears it.
  bool assign(const char* text) {
    if (text == nullptr) {
      reset();
      return true;
    }
    return assign(text, std::strlen(text));
  }
  void reset() {
    std::free(str_);
    str_ = nullptr;
  }

 private:
  char* str_ = nullptr;
};

}  // namespace mime
}  // namespace vorlane
