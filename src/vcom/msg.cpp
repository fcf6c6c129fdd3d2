#include "vcom/msg.h"

#include <cstring>

namespace vorlane {
namespace vcom {

Msg* Msg::create(uint64_t size, uint32_t type, uint32_t seq) {
  if (size < kHeaderSize || size > SIZE_MAX) return nullptr;
  void* raw = ::operator new(static_cast<size_t>(size), std::nothrow);
  if (!raw) return nullptr;
  Msg* msg = new (raw) Msg;
  msg->size = size;
  msg->type = type;
  msg->seq = seq;
  std::memset(msg->payload(), 0, static_cast<size_t>(size - kHeaderSize));
  return msg;
}

void encodeHeader(const Msg& hdr, unsigned char out[Msg::kHeaderSize]) {
  for (int i = 0; i < 8; ++i) out[i] = static_cast<unsigned char>(hdr.size >> (56 - 8 * i));
  putU32(reinterpret_cast<char*>(out) + 8, hdr.type);
  putU32(reinterpret_cast<char*>(out) + 12, hdr.seq);
}

void decodeHeader(const unsigned char in[Msg::kHeaderSize], Msg& hdr) {
  uint64_t size = 0;
  for (int i = 0; i < 8; ++i) size = (size << 8) | in[i];
  hdr.size = size;
  hdr.type = getU32(reinterpret_cast<const char*>(in) + 8);
  hdr.seq = getU32(reinterpret_cast<const char*>(in) + 12);
}

void putU32(char* at, uint32_t value) {
  unsigned char* p = reinterpret_cast<unsigned char*>(at);
  p[0] = static_cast<unsigned char>(value >> 24);
  p[1] = static_cast<unsigned char>(value >> 16);
  p[2] = static_cast<unsigned char>(value >> 8);
  p[3] = static_cast<unsigned char>(value);
}

uint32_t getU32(const char* at) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(at);
  return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | uint32_t(p[3]);
}

}  // namespace vcom
}  // namespace vorlane
