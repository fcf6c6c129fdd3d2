// A vcom protocol message: a 16-byte header (total size, type, sequence number) followed by the payload
// in the same allocation. In memory the header is in host order; on the wire it is big-endian
// (u64 size, u32 type, u32 seq). Payload bytes are never converted by the framing layer: whoever fills
// or reads a payload converts its integers. Messages are made by Msg::create and released with
// `delete` (or owned by a MsgPtr). A Msg is a plain value; sharing one between threads needs a lock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

namespace vorlane {
namespace vcom {

struct Msg {
  static const size_t kHeaderSize = 16;
  // The largest size the framing layer writes: it must fit into 32 bits and differ from 0xFFFFFFFF.
  static const uint64_t kMaxWireSize = 0xFFFFFFFEull;

  uint64_t size;  // total size, header included; in a receive buffer: its capacity
  uint32_t type;
  uint32_t seq;

  // Allocates a message of `size` bytes (at least the header) with a zeroed payload. Null when size is
  // below 16 or the allocation fails.
  static Msg* create(uint64_t size, uint32_t type, uint32_t seq);
  // A copy of the header of `hdr` with room for the size it announces; null like create().
  static Msg* createFor(const Msg& hdr) { return create(hdr.size, hdr.type, hdr.seq); }

  char* payload() { return reinterpret_cast<char*>(this) + kHeaderSize; }
  const char* payload() const { return reinterpret_cast<const char*>(this) + kHeaderSize; }
  size_t payloadSize() const { return size > kHeaderSize ? static_cast<size_t>(size - kHeaderSize) : 0; }

  // Storage comes from create(); a plain `new Msg` would lack the payload.
  static void* operator new(size_t, void* where) noexcept { return where; }
  static void operator delete(void* p) noexcept { ::operator delete(p); }
  static void* operator new(size_t) = delete;
};

static_assert(sizeof(Msg) == Msg::kHeaderSize, "Msg header must be exactly 16 bytes");

typedef std::unique_ptr<Msg> MsgPtr;

// Header conversion between host order and the 16 wire bytes.
void encodeHeader(const Msg& hdr, unsigned char out[Msg::kHeaderSize]);
void decodeHeader(const unsigned char in[Msg::kHeaderSize], Msg& hdr);

// Big-endian integers inside payloads.
void putU32(char* at, uint32_t value);
uint32_t getU32(const char* at);

}  // namespace vcom
}  // namespace vorlane
