// An owned, heap-allocated C string for the fields of the MIME structures: null until assigned, freed by
// its owner, never copied implicitly. The text lives in a malloc'ed block that also records its room, so
// a string that is cleared or assigned again keeps its block when the new value fits: a structure reused
// for the next message does not allocate its strings again, and trim gives a large block back. C-style
// code may read a value; only the string frees it. As small as a pointer, since a parse tree holds two
// dozen per part. Not thread-safe; one string belongs to one structure.
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
  owned_str(owned_str&& other) noexcept : text_(other.text_) { other.text_ = nullptr; }
  owned_str& operator=(owned_str&& other) noexcept {
    if (this != &other) {
      release();
      text_ = other.text_;
      other.text_ = nullptr;
    }
    return *this;
  }
  ~owned_str() { release(); }

  const char* get() const { return text_ != nullptr && head()->set ? text_ : nullptr; }
  explicit operator bool() const { return get() != nullptr; }

  // Replaces the value by a copy of the first `len` bytes of `text` (terminated); false when out of memory.
  // `text` may point into this string's own value.
  bool assign(const char* text, size_t len) {
    if (fits(len)) {
      std::memmove(text_, text, len);
    } else {
      char* room = allocate(len);
      if (room == nullptr) return false;
      std::memcpy(room, text, len);
      release();
      text_ = room;
    }
    text_[len] = '\0';
    head()->set = true;
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
    if (!fits(len)) {
      char* room = allocate(len);
      if (room == nullptr) return nullptr;
      release();
      text_ = room;
    }
    text_[len] = '\0';
    head()->set = true;
    return text_;
  }
  // Back to null; the block is kept for the next value.
  void reset() {
    if (text_ != nullptr) head()->set = false;
  }
  // Back to null, giving the block back when it has room for more than `keep_bytes`.
  void trim(size_t keep_bytes) {
    if (text_ != nullptr && head()->room > keep_bytes) release();
    reset();
  }

 private:
  // Precedes the text in its block.
  struct block_head {
    uint32_t room;  // bytes for the text, terminator included
    bool set;
  };

  block_head* head() const { return reinterpret_cast<block_head*>(text_ - sizeof(block_head)); }
  bool fits(size_t len) const { return text_ != nullptr && len < head()->room; }
  // A block with room for `len` bytes and a terminator; the text's start, or null.
  static char* allocate(size_t len) {
    if (len >= UINT32_MAX) return nullptr;
    void* block = std::malloc(sizeof(block_head) + len + 1);
    if (block == nullptr) return nullptr;
    static_cast<block_head*>(block)->room = static_cast<uint32_t>(len + 1);
    static_cast<block_head*>(block)->set = false;
    return static_cast<char*>(block) + sizeof(block_head);
  }
  void release() {
    if (text_ != nullptr) std::free(text_ - sizeof(block_head));
    text_ = nullptr;
  }

  char* text_ = nullptr;  // behind its block_head
};

}  // namespace mime
}  // namespace vorlane
