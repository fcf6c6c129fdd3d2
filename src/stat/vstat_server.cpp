#include "stat/vstat_server.h"

#include "vcom/msg.h"

using vorlane::vcom::Msg;
using vorlane::vstat::EventBuffT;

VStatServer::VStatServer(const char* cmdLine, FILE* debug) : ServerDispatcher(cmdLine) {
  enableDispatcherDebug(debug);
  dbgPrint("VStatServer started\n");
}

VStatServer::~VStatServer() { dbgPrint("VStatServer stopped\n"); }

int VStatServer::handleMessage(Msg* msg) {
  if (!msg) return -1;
  switch (msg->type) {
    case vorlane::vstat::ProcessStore:
      return processStore(msg);
    case vorlane::vstat::StopProcessing:
      return stopProcessing(msg);
    default:
      return -1;
  }
}

int VStatServer::sendProgressMsg(EventBuffT& ev) {
  Msg* msg = Msg::create(vorlane::vstat::kProgressAsyncSize, vorlane::vstat::ProgressAsync, 0);
  if (!msg) return 0;
  vorlane::vstat::encodeEvent(ev, msg->payload());
  // The queued copy is what goes out; log from it so the line shows the cut-to-field values.
  dbgPrint("Sending ProgressAsync; dom=%s, mbox=%s, run=%d\n", msg->payload(), msg->payload() + sizeof ev.dom,
           static_cast<int>(ev.run));
  sendResponse(msg);
  return 0;
}

void VStatServer::sendErrMsg(const std::string& text) {
  // Walk texts carry file names, which may hold '%': never use them as a format.
  const bool hasEnd = !text.empty() && text.back() == '\n';
  dbgPrint("%s%s", text.c_str(), hasEnd ? "" : "\n");
}

int VStatServer::processStore(Msg*) { return -1; }

int VStatServer::stopProcessing(Msg*) { return -1; }
