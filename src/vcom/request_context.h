// A request kept open so that another thread can answer it later. Constructing a context adds it to
// its dispatcher's set of open requests; sendResponse hands it to the dispatcher's send queue, and the
// send thread deletes it after writing the response. The destructor frees the request and a response
// still held and removes the context from the set. A context is used by one thread at a time.
#pragma once

#include "vcom/msg.h"

namespace vorlane {
namespace vcom {

class ServerDispatcher;

class RequestContext {
 public:
  // Takes ownership of request.
  RequestContext(ServerDispatcher& dispatcher, Msg* request);
  RequestContext(const RequestContext&) = delete;
  RequestContext& operator=(const RequestContext&) = delete;
  virtual ~RequestContext();

  Msg* getRequest() { return request_; }
  // Stores the response (owned from now on) and queues the context for sending.
  void sendResponse(Msg* response);
  // Returns the response and forgets it; the caller owns it.
  Msg* checkOutResponse();
  const Msg* response() const { return response_; }

 private:
  ServerDispatcher& dispatcher_;
  Msg* request_;
  Msg* response_;
};

}  // namespace vcom
}  // namespace vorlane
