// Nodes of parse trees that their reader is done with, kept for the next parse on the same thread, so
// that a walk over many messages does not allocate and free every part, its strings and its parameter
// lists again for each message. Bounded: a pool holds at most MIME_POOL_NODES nodes (more than most
// messages have parts; the nodes of a larger tree beyond that are freed), and a node given back keeps
// only string and parameter buffers of at most MIME_POOL_KEPT_BYTES each.
// A node taken from the pool is in the state of a new one; it is an ordinary node that may also be
// deleted. Not thread-safe: one pool per thread.
#pragma once

#include <cstddef>

namespace vorlane {
namespace mime {

class mail_struct;

// A message of up to 32 parts is parsed without allocating once the pool is warm; half a KiB holds
// the header values of ordinary mail (a longer subject or address list allocates again).
constexpr size_t MIME_POOL_NODES = 32;
constexpr size_t MIME_POOL_KEPT_BYTES = 512;

class mail_struct_pool {
 public:
  mail_struct_pool() = default;
  mail_struct_pool(const mail_struct_pool&) = delete;
  mail_struct_pool& operator=(const mail_struct_pool&) = delete;
  ~mail_struct_pool();

  // A node in the state of a new one, from the pool when it has one.
  mail_struct* take();
  // Takes back a whole tree: the root, its children and everything under them. Null is fine.
  void give_back(mail_struct* tree);
  // Nodes held for the next parse.
  size_t size() const { return count_; }

 private:
  mail_struct* free_ = nullptr;  // chained by next_sibling
  size_t count_ = 0;
};

}  // namespace mime
}  // namespace vorlane
