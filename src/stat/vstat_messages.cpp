#include "stat/vstat_messages.h"

#include <cstring>

#include "utils/string_utils.h"
#include "vcom/msg.h"

namespace vorlane {
namespace vstat {

using utils::strncpys;
using vcom::getU32;
using vcom::putU32;

void encodeProcessStoreRequest(const ProcessStoreReqBuffT& req, char* out) {
  strncpys(out + offsetof(ProcessStoreReqBuffT, storeDir), req.storeDir, sizeof req.storeDir);
  strncpys(out + offsetof(ProcessStoreReqBuffT, productVersion), req.productVersion, sizeof req.productVersion);
  putU32(out + offsetof(ProcessStoreReqBuffT, build), req.build);
  strncpys(out + offsetof(ProcessStoreReqBuffT, osName), req.osName, sizeof req.osName);
  putU32(out + offsetof(ProcessStoreReqBuffT, osCode), req.osCode);
}

bool decodeProcessStoreRequest(const char* payload, size_t len, ProcessStoreReqBuffT& req) {
  std::memset(&req, 0, sizeof req);
  if (!payload || len < kProcessStoreReqWireSize) return false;
  strncpys(req.storeDir, payload + offsetof(ProcessStoreReqBuffT, storeDir), sizeof req.storeDir);
  strncpys(req.productVersion, payload + offsetof(ProcessStoreReqBuffT, productVersion), sizeof req.productVersion);
  req.build = getU32(payload + offsetof(ProcessStoreReqBuffT, build));
  strncpys(req.osName, payload + offsetof(ProcessStoreReqBuffT, osName), sizeof req.osName);
  req.osCode = getU32(payload + offsetof(ProcessStoreReqBuffT, osCode));
  return true;
}

void encodeEvent(const EventBuffT& ev, char* out) {
  strncpys(out + offsetof(EventBuffT, dom), ev.dom, sizeof ev.dom);
  strncpys(out + offsetof(EventBuffT, mbox), ev.mbox, sizeof ev.mbox);
  putU32(out + offsetof(EventBuffT, processed), ev.processed);
  putU32(out + offsetof(EventBuffT, mailboxes), ev.mailboxes);
  putU32(out + offsetof(EventBuffT, run), ev.run);
  putU32(out + offsetof(EventBuffT, done), ev.done);
}

bool decodeEvent(const char* payload, size_t len, EventBuffT& ev) {
  std::memset(&ev, 0, sizeof ev);
  if (!payload || len < kEventWireSize) return false;
  strncpys(ev.dom, payload + offsetof(EventBuffT, dom), sizeof ev.dom);
  strncpys(ev.mbox, payload + offsetof(EventBuffT, mbox), sizeof ev.mbox);
  ev.processed = getU32(payload + offsetof(EventBuffT, processed));
  ev.mailboxes = getU32(payload + offsetof(EventBuffT, mailboxes));
  ev.run = getU32(payload + offsetof(EventBuffT, run));
  ev.done = getU32(payload + offsetof(EventBuffT, done));
  return true;
}

}  // namespace vstat
}  // namespace vorlane
