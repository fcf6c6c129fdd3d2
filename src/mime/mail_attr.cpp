#include "mime/mail_attr.h"

#include <strings.h>

#include <cstdlib>
#include <cstring>
#include <utility>

#include "mime/attr_parser.h"

namespace vorlane {
namespace mime {

namespace {

// The first value buffer of a list: a header's few parameters fit.
constexpr size_t MIN_TEXT_SIZE = 64;

}  // namespace

mail_attr_list::mail_attr_list(const mail_attr_list& other) { *this = other; }

mail_attr_list& mail_attr_list::operator=(const mail_attr_list& other) {
  if (this == &other) return *this;
  clear();
  if (!reserve_text(other.text_used_)) return *this;
  if (other.text_used_ > 0) std::memcpy(text_, other.text_, other.text_used_);
  text_used_ = other.text_used_;
  attrs_ = other.attrs_;
  rebase(other.text_);
  return *this;
}

mail_attr_list::mail_attr_list(mail_attr_list&& other) noexcept { *this = std::move(other); }

mail_attr_list& mail_attr_list::operator=(mail_attr_list&& other) noexcept {
  if (this != &other) {
    release();
    attrs_.swap(other.attrs_);
    std::swap(text_, other.text_);
    std::swap(text_used_, other.text_used_);
    std::swap(text_size_, other.text_size_);
  }
  return *this;
}

mail_attr_list::~mail_attr_list() { std::free(text_); }

void mail_attr_list::parse(const char* value) {
  if (value == nullptr) return;
  const char* parameters = std::strchr(value, ';');
  if (parameters == nullptr) return;
  // One parser per thread, started over for every header, so that its scratch buffers are allocated
  // once and not for every Content-Type of every part.
  thread_local impl::AttrParser parser;
  parser.restart(parameters);
  parser.fixBug20265();
  parser.attrParse(*this);  // problems are dropped: whatever parsed is kept
}

void mail_attr_list::add(const char* name, const char* value) {
  add(name, value, value == nullptr ? 0 : std::strlen(value));
}

void mail_attr_list::add(const char* name, const char* value, size_t value_len) {
  if (name == nullptr) return;
  if (value == nullptr) value = "";
  if (!reserve_text(value_len + 1)) return;
  mail_attr attr;
  const size_t length = std::strlen(name);
  const size_t kept = length < sizeof(attr.name) ? length : sizeof(attr.name) - 1;
  std::memcpy(attr.name, name, kept);
  attr.name[kept] = 0;
  attr.value = text_ + text_used_;
  std::memcpy(attr.value, value, value_len);
  attr.value[value_len] = 0;
  text_used_ += static_cast<uint32_t>(value_len + 1);
  attrs_.push_back(attr);
}

const char* mail_attr_list::get(const char* name) const {
  for (const mail_attr& a : attrs_) {
    if (strcasecmp(a.name, name) == 0) return a.value;
  }
  return nullptr;
}

void mail_attr_list::clear() {
  attrs_.clear();
  text_used_ = 0;
}

void mail_attr_list::trim(size_t keep_bytes) {
  if (text_size_ > keep_bytes) {
    release();
  } else {
    clear();
  }
}

bool mail_attr_list::reserve_text(size_t more) {
  if (text_size_ - text_used_ >= more) return true;
  if (more >= UINT32_MAX / 2 - text_used_) return false;
  size_t size = text_size_ < MIN_TEXT_SIZE ? MIN_TEXT_SIZE : 2 * size_t{text_size_};
  if (size < text_used_ + more || size >= UINT32_MAX) size = text_used_ + more;
  char* bigger = static_cast<char*>(std::malloc(size));
  if (bigger == nullptr) return false;
  char* const old = text_;
  if (text_used_ > 0) std::memcpy(bigger, old, text_used_);
  text_ = bigger;
  text_size_ = static_cast<uint32_t>(size);
  rebase(old);
  std::free(old);
  return true;
}

void mail_attr_list::rebase(const char* from) {
  for (mail_attr& a : attrs_) a.value = text_ + (a.value - from);
}

void mail_attr_list::release() {
  std::vector<mail_attr>().swap(attrs_);
  std::free(text_);
  text_ = nullptr;
  text_used_ = 0;
  text_size_ = 0;
}

bool mail_attr_get(const char* value, const char* name, char* out, int size) {
  if (value == nullptr || name == nullptr || out == nullptr || size <= 0) return false;
  impl::AttrParser parser(value);
  parser.fixBug20265();
  return parser.namedAttrParse(name, out, static_cast<unsigned>(size));
}

}  // namespace mime
}  // namespace vorlane
