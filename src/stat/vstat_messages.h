// The statistics protocol on top of vcom: message types 14 to 18 and their payloads.
// Payload structs are kept in host byte order in memory; on the wire their integers are big-endian and
// their strings are fixed-size, NUL-terminated, zero-padded arrays (see encode/decode in vstat_messages.cpp).
#pragma once

#include <cstddef>
#include <cstdint>

namespace vorlane {
namespace vstat {

enum MessageType : uint32_t {
  ProgressAsync = 14,       // to client, EventBuffT
  ProcessStore = 15,        // to server, ProcessStoreReqBuffT
  ProcessStoreResp = 16,    // to client, u32 started flag
  StopProcessing = 17,      // to server, payload ignored
  StopProcessingResp = 18,  // to client, u32 without meaning (0)
};

struct ProcessStoreReqBuffT {
  char storeDir[512];  // the walk starts at this path followed by "/mail"
  char productVersion[28];
  uint32_t build;
  char osName[128];
  uint32_t osCode;
};

struct EventBuffT {
  char dom[512];
  char mbox[512];
  uint32_t processed;  // mailboxes finished so far, the public tree counting as one
  uint32_t mailboxes;  // mailboxes found by the counting pass
  uint32_t run;        // 1 while the job is under way, 0 in the final event
  uint32_t done;       // 1 once the report file has been written
};

static_assert(sizeof(ProcessStoreReqBuffT) == 676, "ProcessStoreReqBuffT wire size");
static_assert(offsetof(ProcessStoreReqBuffT, build) == 540, "build offset");
static_assert(offsetof(ProcessStoreReqBuffT, osName) == 544, "osName offset");
static_assert(offsetof(ProcessStoreReqBuffT, osCode) == 672, "osCode offset");
static_assert(sizeof(EventBuffT) == 1040, "EventBuffT wire size");
static_assert(offsetof(EventBuffT, processed) == 1024, "processed offset");

// Wire forms of the payloads: the struct layouts with every integer big-endian and every string cut to
// its field width minus one and zero-padded.
const size_t kProcessStoreReqWireSize = sizeof(ProcessStoreReqBuffT);  // 676
const size_t kEventWireSize = sizeof(EventBuffT);                      // 1040
// Whole message sizes, header included.
const uint64_t kProgressAsyncSize = 16 + kEventWireSize;        // 1056
const uint64_t kProcessStoreSize = 16 + kProcessStoreReqWireSize;  // 692
const uint64_t kStatRespSize = 20;  // ProcessStoreResp and StopProcessingResp

// out must hold kProcessStoreReqWireSize bytes.
void encodeProcessStoreRequest(const ProcessStoreReqBuffT& req, char* out);
// Reads a request payload of len bytes into host order. Never reads past len: a shorter payload is
// refused (false, req zeroed) rather than taken from bytes that are not there; extra bytes are ignored.
bool decodeProcessStoreRequest(const char* payload, size_t len, ProcessStoreReqBuffT& req);
// out must hold kEventWireSize bytes.
void encodeEvent(const EventBuffT& ev, char* out);
// Reads an event payload like decodeProcessStoreRequest.
bool decodeEvent(const char* payload, size_t len, EventBuffT& ev);

}  // namespace vstat
}  // namespace vorlane
