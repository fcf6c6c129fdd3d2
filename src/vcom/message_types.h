// The built-in vcom message types, their fixed sizes and the codes of the generic response.
// Types 14 to 18 belong to the statistics protocol (stat/vstat_messages.h). Plain constants.
#pragma once

#include <cstdint>

namespace vorlane {
namespace vcom {

enum MsgType : uint32_t {
  GenericResp = 0,          // to client: text char[256], code i32 big-endian
  Terminate = 1,            // to server
  SetWorkDir = 2,           // to server: NUL-terminated path; to client: path char[512] (GetWorkDir answer)
  GetWorkDir = 3,           // to server
  LogDbg = 4,               // to client: text char[1024]
  LogWrn = 5,               // to client: text char[1024]
  LogErr = 6,               // to client: code i32 in the sender's host order, text char[1024]
  ToggleDbgLog = 7,         // to server: u32, 0 = on
  ToggleWrnLog = 8,         // to server: u32, 0 = on
  ToggleErrLog = 9,         // to server: u32, 0 = on
  GetProtocolVersion = 10,  // to server
  ProtocolVersionResp = 11, // to client: u32 big-endian
  HeartBeat = 12,           // to client: u32 0, seq 0
  Echo = 13,                // to server, no payload
};

enum MsgSize : uint64_t {
  kGenericRespSize = 276,
  kWorkDirRespSize = 528,
  kLogTextSize = 1040,
  kLogErrSize = 1044,
  kU32MsgSize = 20,  // ProtocolVersionResp, HeartBeat and the statistics responses
};

const unsigned kGenericTextLen = 256;
const unsigned kLogTextLen = 1024;
const unsigned kWorkDirLen = 512;

enum RespCode : int32_t {
  kRespOk = 0,
  kRespInvalidPayload = 2,
  kRespUnknownRequest = 5,
  kRespChdirFailed = 11,
  kRespNoWorkDir = 12,
};

}  // namespace vcom
}  // namespace vorlane
