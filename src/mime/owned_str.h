// An owned, heap-allocated C string for the fields of the MIME structures: null until assigned, freed by
// its owner, never copied implicitly. Values come from malloc so that they can be handed to C-style code.
// A string that is cleared or assigned again keeps its buffer when the new value fits, so a structure
// reused for the next message does not allocate its strings again; trim gives a large buffer back.
// Not thread-safe; one string belongs to one structure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace vorlane {
namespace mime {

class owned_str {
 public:
  owned_str() = default;
  owned_str(const owned_str&) = delete;
  owned_str& operator=(const owned_str&) = delete;
  owned_str(owned_str&& other) noexcept : buf_(other.buf_), size_(other.size_), set_(other.set_) {
    other.buf_ = nullptr;
    other.size_ = 0;
    other.set_ = false;
  }
  owned_str& operator=(owned_str&& other) noexcept {
    if (this != &other) {
      std::free(buf_);
      buf_ = other.buf_;
      size_ = other.size_;
      set_ = other.set_;
      other.buf_ = nullptr;
      other.size_ = 0;
      other.set_ = false;
    }
    return *this;
  }
  ~owned_str() { std::free(buf_); }

  const char* get() const { return set_ ? buf_ : nullptr; }
  explicit operator bool() const { return set_; }

  // Replaces the value by a copy of the first `len` bytes of `text` (terminated); false when out of memory.
  // `text` may point into this string's own value.
  bool assign(const char* text, size_t len) {
    if (len < size_) {
      std::memmove(buf_, text, len);
      buf_[len] = '\0';
      set_ = true;
      return true;
    }
    char* room = allocate(len);
    if (room == nullptr) return false;
    std::memcpy(room, text, len);
    adopt(room, len);
    return true;
  }
  // Replaces the value by a copy of `text`; a null `text` clears it.
  bool assign(const char* text) {
    if (text == nullptr) {
      reset();
      return true;
    }
    return assign(text, std::strlen(text));
  }
  // Replaces the value by room for `len` bytes, terminated behind them, for the caller to write (and to
  // terminate earlier when it writes less); null when out of memory.
  char* prepare(size_t len) {
    if (len >= size_) {
      char* room = allocate(len);
      if (room == nullptr) return nullptr;
      adopt(room, len);
    }
    buf_[len] = '\0';
    set_ = true;
    return buf_;
  }
  // Back to null; the buffer is kept for the next value.
  void reset() { set_ = false; }
  // Back to null, giving the buffer back when it holds more than `keep_bytes`.
  void trim(size_t keep_bytes) {
    set_ = false;
    if (size_ > keep_bytes) {
      std::free(buf_);
      buf_ = nullptr;
      size_ = 0;
    }
  }

 private:
  static char* allocate(size_t len) {
    return len < UINT32_MAX ? static_cast<char*>(std::malloc(len + 1)) : nullptr;
  }
  void adopt(char* room, size_t len) {
    std::free(buf_);
    buf_ = room;
    size_ = static_cast<uint32_t>(len + 1);
    buf_[len] = '\0';
    set_ = true;
  }

  char* buf_ = nullptr;
  uint32_t size_ = 0;  // bytes of buf_
  bool set_ = false;
};

}  // namespace mime
}  // namespace vorlane
