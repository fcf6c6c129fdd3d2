#include "mime/mail_struct_pool.h"

#include "mime/mail_struct.h"

namespace vorlane {
namespace mime {

mail_struct_pool::~mail_struct_pool() {
  while (free_ != nullptr) {
    mail_struct* next = free_->next_sibling;
    free_->next_sibling = nullptr;
    delete free_;
    free_ = next;
  }
}

mail_struct* mail_struct_pool::take() {
  if (free_ == nullptr) return new mail_struct;
  mail_struct* node = free_;
  free_ = node->next_sibling;
  node->next_sibling = nullptr;
  --count_;
  return node;
}

void mail_struct_pool::give_back(mail_struct* tree) {
  // The tree is taken apart without recursion: the children of each node go to the front of the chain
  // still to be taken back.
  mail_struct* pending = tree;
  while (pending != nullptr) {
    mail_struct* node = pending;
    pending = node->next_sibling;
    if (node->first_child != nullptr) {
      mail_struct* last = node->first_child;
      while (last->next_sibling != nullptr) last = last->next_sibling;
      last->next_sibling = pending;
      pending = node->first_child;
    }
    node->detach();
    if (count_ >= MIME_POOL_NODES) {
      delete node;
      continue;
    }
    node->clear(MIME_POOL_KEPT_BYTES);
    node->next_sibling = free_;
    free_ = node;
    ++count_;
  }
}

}  // namespace mime
}  // namespace vorlane
