/* A stand-in for the conversion library that writes at most SMALL_OUTPUT bytes per call and then
 * reports a full output buffer (E2BIG), so that the callers' handling of E2BIG can be exercised with
 * ordinary charsets. Same four entry points, straight over the C library's iconv. */
#include <errno.h>
#include <iconv.h>

#include "vxiconv/vxiconv.h"

#define EXPORT __attribute__((visibility("default")))

enum { SMALL_OUTPUT = 8 };

static _Thread_local int last_error;

static size_t failed(void) {
  last_error = errno;
  return (size_t)-1;
}

EXPORT vxiconv_t vxiconv_open(const char* tocode, const char* fromcode) {
  iconv_t cd = iconv_open(tocode, fromcode);
  if (cd == (iconv_t)-1) failed();
  return (vxiconv_t)cd;
}

EXPORT size_t vxiconv(vxiconv_t cd, char** inbuf, size_t* inbytesleft, char** outbuf, size_t* outbytesleft) {
  if (inbuf == NULL || *inbuf == NULL || outbytesleft == NULL) {
    size_t r = iconv((iconv_t)cd, NULL, NULL, outbuf, outbytesleft);
    return r == (size_t)-1 ? failed() : r;
  }
  size_t room = *outbytesleft < SMALL_OUTPUT ? *outbytesleft : SMALL_OUTPUT;
  size_t beyond = *outbytesleft - room;
  size_t r = iconv((iconv_t)cd, inbuf, inbytesleft, outbuf, &room);
  *outbytesleft = room + beyond;
  return r == (size_t)-1 ? failed() : r;
}

EXPORT int vxiconv_close(vxiconv_t cd) { return iconv_close((iconv_t)cd) == 0 ? 0 : (int)failed(); }

EXPORT int vxiconv_get_errno(void) { return last_error; }
