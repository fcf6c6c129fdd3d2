// Header parameters (name/value pairs of Content-Type and Content-Disposition) and their parsing entries.
// A mail_attr_list owns the values of the pairs it holds: C strings from malloc, packed one after the
// other in one buffer of the list, which a cleared list keeps for its next values (trim gives it back).
// Copies are deep. Not thread-safe; one list belongs to one MIME part.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vorlane {
namespace mime {

struct mail_attr {
  char name[32];  // at most 31 characters, always terminated
  char* value;    // owned by the list that holds the pair
};

class mail_attr_list {
 public:
  mail_attr_list() = default;
  mail_attr_list(const mail_attr_list& other);
  mail_attr_list& operator=(const mail_attr_list& other);
  mail_attr_list(mail_attr_list&& other) noexcept;
  mail_attr_list& operator=(mail_attr_list&& other) noexcept;
  ~mail_attr_list();

  // Appends the parameters found after the first ';' of a header value; nothing when there is no ';'.
  // Errors are dropped; whatever parsed is kept.
  void parse(const char* value);

  // Appends a copy of the pair; the name is cut to 31 characters. Nothing when out of memory.
  void add(const char* name, const char* value);
  void add(const char* name, const char* value, size_t value_len);
  // The value of the first pair whose name equals `name` case-insensitively, or null.
  const char* get(const char* name) const;
  // Empties the list and keeps its buffers.
  void clear();
  // Empties the list; buffers holding more than `keep_bytes` of values go back to the allocator.
  void trim(size_t keep_bytes);

  size_t size() const { return attrs_.size(); }
  bool empty() const { return attrs_.empty(); }
  const mail_attr& operator[](size_t i) const { return attrs_[i]; }
  std::vector<mail_attr>::const_iterator begin() const { return attrs_.begin(); }
  std::vector<mail_attr>::const_iterator end() const { return attrs_.end(); }

 private:
  // Makes room for `more` bytes of values; false when out of memory.
  bool reserve_text(size_t more);
  // Points the values, laid out as in `from`, into this list's buffer.
  void rebase(const char* from);
  void release();

  std::vector<mail_attr> attrs_;
  char* text_ = nullptr;  // the values, each terminated, one after the other
  uint32_t text_used_ = 0;
  uint32_t text_size_ = 0;
};

// Fetches one named parameter of a header value into `out` (cut to size - 1 characters).
// True when it was found, parsed without error and fits.
bool mail_attr_get(const char* value, const char* name, char* out, int size);

}  // namespace mime
}  // namespace vorlane
