#include "vcom/request_context.h"

#include "vcom/server_dispatcher.h"

namespace vorlane {
namespace vcom {

RequestContext::RequestContext(ServerDispatcher& dispatcher, Msg* request)
    : dispatcher_(dispatcher), request_(request), response_(nullptr) {
  dispatcher_.addContext(this);
}

RequestContext::~RequestContext() {
  delete request_;
  delete response_;
  dispatcher_.removeContext(this);
}

void RequestContext::sendResponse(Msg* response) {
  delete response_;
  response_ = response;
  dispatcher_.sendResponse(this);
}

Msg* RequestContext::checkOutResponse() {
  Msg* response = response_;
  response_ = nullptr;
  return response;
}

}  // namespace vcom
}  // namespace vorlane
