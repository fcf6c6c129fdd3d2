#include "mime/mail_attr.h"

#include <strings.h>

#include <cstdlib>
#include <cstring>
#include <utility>

#include "mime/attr_parser.h"

namespace vorlane {
namespace mime {

mail_attr_list::mail_attr_list(const mail_attr_list& other) {
  attrs_.reserve(other.attrs_.size());
  for (const mail_attr& a : other.attrs_) add(a.name, a.value);
}

mail_attr_list& mail_attr_list::operator=(const mail_attr_list& other) {
  if (this != &other) {
    mail_attr_list copy(other);
    *this = std::move(copy);
  }
  return *this;
}

mail_attr_list::mail_attr_list(mail_attr_list&& other) noexcept : attrs_(std::move(other.attrs_)) {
  other.attrs_.clear();
}

mail_attr_list& mail_attr_list::operator=(mail_attr_list&& other) noexcept {
  if (this != &other) {
    clear();
    attrs_.swap(other.attrs_);
  }
  return *this;
}

mail_attr_list::~mail_attr_list() { clear(); }

void mail_attr_list::parse(const char* value) {
  if (value == nullptr) return;
  const char* parameters = std::strchr(value, ';');
  if (parameters == nullptr) return;
  impl::AttrParser parser(parameters);
  parser.fixBug20265();
  parser.attrParse(attrs_);  // problems are dropped: whatever parsed is kept
}

void mail_attr_list::add(const char* name, const char* value) {
  if (name == nullptr) return;
  if (value == nullptr) value = "";
  mail_attr attr;
  const size_t length = std::strlen(name);
  const size_t kept = length < sizeof(attr.name) ? length : sizeof(attr.name) - 1;
  std::memcpy(attr.name, name, kept);
  attr.name[kept] = 0;
  const size_t valueLength = std::strlen(value);
  attr.value = static_cast<char*>(std::malloc(valueLength + 1));
  if (attr.value == nullptr) return;
  std::memcpy(attr.value, value, valueLength + 1);
  attrs_.push_back(attr);
}

const char* mail_attr_list::get(const char* name) const {
  for (const mail_attr& a : attrs_) {
    if (strcasecmp(a.name, name) == 0) return a.value;
  }
  return nullptr;
}

void mail_attr_list::clear() {
  for (mail_attr& a : attrs_) std::free(a.value);
  attrs_.clear();
}

bool mail_attr_get(const char* value, const char* name, char* out, int size) {
  if (value == nullptr || name == nullptr || out == nullptr || size <= 0) return false;
  impl::AttrParser parser(value);
  parser.fixBug20265();
  return parser.namedAttrParse(name, out, static_cast<unsigned>(size));
}

}  // namespace mime
}  // namespace vorlane
