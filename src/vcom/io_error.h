// The outcome of one framing operation: a code and a static text naming what failed.
// Codes: 0 success "OK", 1 no or too small buffer, 2 receive failed or end of stream, 3 send failed,
// 7 pipe creation failed. Texts are string literals, never owned. A plain value; not shared.
#pragma once

namespace vorlane {
namespace vcom {

struct IOError {
  enum Code { kOk = 0, kNoBuffer = 1, kRecvFailed = 2, kSendFailed = 3, kPipeFailed = 7 };

  int code;
  const char* text;

  IOError() : code(kOk), text("") {}
  void set(int c, const char* t) {
    code = c;
    text = t;
  }
};

}  // namespace vcom
}  // namespace vorlane
