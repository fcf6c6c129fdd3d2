/* The run-time charset conversion library "vxiconv_1.11.1.so": four entry points with the iconv
 * calling convention, served by the C library's iconv. Programs load it with dlopen and look the
 * entry points up by name, so the function-pointer types below are the contract with the loader.
 *
 * Names: any name the C library knows, with the suffixes it knows ("//TRANSLIT", "//IGNORE"), and
 * any spelling that differs from such a name only in letter case and in the characters '-', '_', '.',
 * ' ' and ':' ("ansi-x3.4-1968", "utf8", "Latin_1"). The C library's names are listed once per process,
 * by running its own "iconv -l", when a name is first refused as given.
 * "//IGNORE" drops characters the target cannot hold and invalid input sequences and keeps going;
 * a call that dropped something still consumes its whole input and then reports EILSEQ, as the C
 * library does. "ucs-2be" is served as UTF-16 big-endian, so that text beyond the Basic
 * Multilingual Plane survives the modified UTF-7 (IMAP) route, which encodes UTF-16 code units.
 *
 * Threading: a conversion handle is used by one thread at a time; different handles are
 * independent. The last error number is kept per thread. Depends on the C library only. */
#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef void* vxiconv_t;

/* A conversion handle from `fromcode` to `tocode`, or (vxiconv_t)-1 with EINVAL when the pair is not
 * supported, a name is empty (never the locale's charset) or too long, and ENOMEM when memory is
 * short. */
vxiconv_t vxiconv_open(const char* tocode, const char* fromcode);

/* Converts like iconv: advances *inbuf and *outbuf, decrements the counts, returns the number of
 * irreversible conversions or (size_t)-1 with errno E2BIG (output full), EILSEQ (invalid or
 * unrepresentable sequence) or EINVAL (incomplete sequence at the end of the input). A null inbuf
 * (or *inbuf) writes the shift sequence that returns to the initial state; with a null outbuf as
 * well it only resets the state. EBADF for a handle that is not open. */
size_t vxiconv(vxiconv_t cd, char** inbuf, size_t* inbytesleft, char** outbuf, size_t* outbytesleft);

/* Releases the handle; 0 on success, -1 with EBADF for a handle that is not open. */
int vxiconv_close(vxiconv_t cd);

/* The error number of this thread's last failed call into the library; 0 when none failed yet. */
int vxiconv_get_errno(void);

typedef vxiconv_t (*vxiconv_open_fn)(const char*, const char*);
typedef size_t (*vxiconv_fn)(vxiconv_t, char**, size_t*, char**, size_t*);
typedef int (*vxiconv_close_fn)(vxiconv_t);
typedef int (*vxiconv_get_errno_fn)(void);

#ifdef __cplusplus
}
#endif
