/* The four exported entry points of the run-time conversion library over the C library's iconv.
 * Everything else in this file has hidden visibility (the target is built with it as default). */
#include "vxiconv/vxiconv.h"

#include <errno.h>
#include <iconv.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#define VXICONV_EXPORT __attribute__((visibility("default")))

/* Charset names are short; anything longer than this is refused rather than copied unbounded. */
enum { MAX_NAME_LENGTH = 127 };

struct conversion {
  iconv_t cd;
  int ignore; /* the target carried "//IGNORE" */
};

static _Thread_local int last_error;

static size_t fail(int err) {
  last_error = err;
  errno = err;
  return (size_t)-1;
}

static int valid(vxiconv_t cd) { return cd != NULL && cd != (vxiconv_t)-1; }

/* Copies `name` into `out` (room MAX_NAME_LENGTH + 1), serving the base name "ucs-2be" as UTF-16BE
 * and keeping any "//" suffixes. 0 when the result does not fit or the base name is empty: the C
 * library would take an empty name as the charset of the process locale, and text must never be
 * read differently because of the environment the server was started in. */
static int mapName(const char* name, char* out) {
  static const char ucs2[] = "ucs-2be";
  static const char utf16[] = "UTF-16BE";
  const char* suffix = strstr(name, "//");
  size_t baseLength = suffix ? (size_t)(suffix - name) : strlen(name);
  const char* base = name;
  if (baseLength == 0) return 0;
  if (baseLength == sizeof(ucs2) - 1 && strncasecmp(name, ucs2, baseLength) == 0) {
    base = utf16;
    baseLength = sizeof(utf16) - 1;
  }
  if (suffix == NULL) suffix = "";
  if (baseLength + strlen(suffix) > MAX_NAME_LENGTH) return 0;
  memcpy(out, base, baseLength);
  strcpy(out + baseLength, suffix);
  return 1;
}

static int hasIgnoreSuffix(const char* name) {
  for (const char* p = strstr(name, "//"); p != NULL; p = strstr(p + 2, "//")) {
    if (strncasecmp(p + 2, "IGNORE", 6) == 0 && (p[8] == '\0' || p[8] == '/')) return 1;
  }
  return 0;
}

VXICONV_EXPORT vxiconv_t vxiconv_open(const char* tocode, const char* fromcode) {
  char to[MAX_NAME_LENGTH + 1];
  char from[MAX_NAME_LENGTH + 1];
  if (tocode == NULL || fromcode == NULL || !mapName(tocode, to) || !mapName(fromcode, from)) {
    fail(EINVAL);
    return (vxiconv_t)-1;
  }
  struct conversion* c = malloc(sizeof *c);
  if (c == NULL) {
    fail(ENOMEM);
    return (vxiconv_t)-1;
  }
  c->cd = iconv_open(to, from);
  if (c->cd == (iconv_t)-1) {
    int err = errno;
    free(c);
    fail(err);
    return (vxiconv_t)-1;
  }
  c->ignore = hasIgnoreSuffix(tocode);
  return c;
}

VXICONV_EXPORT size_t vxiconv(vxiconv_t cd, char** inbuf, size_t* inbytesleft, char** outbuf,
                              size_t* outbytesleft) {
  if (!valid(cd)) return fail(EBADF);
  struct conversion* c = cd;
  if (inbuf == NULL || *inbuf == NULL) {
    size_t r = iconv(c->cd, NULL, NULL, outbuf, outbytesleft);
    return r == (size_t)-1 ? fail(errno) : r;
  }
  if (inbytesleft == NULL || outbuf == NULL || outbytesleft == NULL) return fail(EINVAL);
  size_t r = iconv(c->cd, inbuf, inbytesleft, outbuf, outbytesleft);
  if (r != (size_t)-1) return r;
  int err = errno;
  /* Under //IGNORE the C library drops what it cannot convert but may still stop early with
   * EILSEQ; calling again resumes after the dropped sequence. Stop as soon as a call makes no
   * progress, so a conversion that is stuck cannot loop. */
  while (c->ignore && err == EILSEQ && *inbytesleft > 0) {
    size_t before = *inbytesleft;
    r = iconv(c->cd, inbuf, inbytesleft, outbuf, outbytesleft);
    if (r != (size_t)-1) break; /* the rest converted; EILSEQ still reports the earlier drop */
    err = errno;
    if (*inbytesleft == before) break;
  }
  return fail(err);
}

VXICONV_EXPORT int vxiconv_close(vxiconv_t cd) {
  if (!valid(cd)) {
    fail(EBADF);
    return -1;
  }
  struct conversion* c = cd;
  int r = iconv_close(c->cd);
  int err = errno;
  free(c);
  if (r != 0) {
    fail(err);
    return -1;
  }
  return 0;
}

VXICONV_EXPORT int vxiconv_get_errno(void) { return last_error; }
