/* The four exported entry points of the run-time conversion library over the C library's iconv.
 * Everything else in this file has hidden visibility (the target is built with it as default). */
#define _GNU_SOURCE /* pipe2, posix_spawn_file_actions_addclosefrom_np */
#include "vxiconv/vxiconv.h"

#include <errno.h>
#include <fcntl.h>
#include <iconv.h>
#include <pthread.h>
#include <spawn.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/wait.h>
#include <unistd.h>

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

/* Mail spells charset names freely ("utf8", "ansi-x3.4-1968", "Latin_1"), while the C library accepts
 * only its own spellings, up to letter case. A name is matched by its key: the name in lower case without
 * the characters below. The C library's own names, each with its key, are listed once per process. */
static const char KEY_IGNORED[] = "-_. :";

/* The key of name[0..length) into `key` (room MAX_NAME_LENGTH + 1). */
static void nameKey(const char* name, size_t length, char* key) {
  size_t n = 0;
  for (size_t i = 0; i < length; ++i) {
    char c = name[i];
    if (strchr(KEY_IGNORED, c) != NULL) continue;
    key[n++] = (c >= 'A' && c <= 'Z') ? (char)(c - 'A' + 'a') : c;
  }
  key[n] = '\0';
}

/* The list of known names comes from the C library's own `iconv -l`: the library offers no call that
 * enumerates its names, and its configuration files alone lack the names built into it (UTF-8, the
 * ASCII names, UCS-2), which are the ones mail uses most. The program reads the same configuration
 * (GCONV_PATH included) as iconv_open in this process. Its output is read up to a bound far above the
 * size of any real list (about 14 KB for some 1,200 names). */
#ifndef VXICONV_ICONV_PROGRAM
#define VXICONV_ICONV_PROGRAM "/usr/bin/iconv"
#endif
enum { MAX_LIST_BYTES = 1 << 20 };

struct knownName {
  char key[MAX_NAME_LENGTH + 1];
  const char* name; /* into knownText */
};

static pthread_once_t knownOnce = PTHREAD_ONCE_INIT;
static char* knownText;
static struct knownName* knownNames;
static size_t knownCount;

extern char** environ;

/* Runs the lister with its output on a pipe; returns what it printed (NUL-terminated, owned by the
 * caller) or NULL. No descriptor of this process other than the pipe reaches the program. */
static char* readNameList(void) {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return NULL;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addclosefrom_np(&actions, 3);
  char* const argv[] = {(char*)"iconv", (char*)"-l", NULL};
  pid_t pid;
  const int spawned = posix_spawn(&pid, VXICONV_ICONV_PROGRAM, &actions, NULL, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  close(fds[1]);
  char* text = NULL;
  size_t length = 0;
  if (spawned == 0) {
    text = malloc(MAX_LIST_BYTES + 1);
    while (text != NULL && length < MAX_LIST_BYTES) {
      ssize_t n = read(fds[0], text + length, MAX_LIST_BYTES - length);
      if (n > 0) {
        length += (size_t)n;
      } else if (n == 0 || errno != EINTR) {
        break;
      }
    }
  }
  close(fds[0]);
  if (spawned == 0) {
    int status;
    while (waitpid(pid, &status, 0) == -1 && errno == EINTR) {
    }
  }
  if (text == NULL) return NULL;
  text[length] = '\0';
  char* fitted = realloc(text, length + 1);
  return fitted != NULL ? fitted : text;
}

static int compareKnown(const void* a, const void* b) {
  const struct knownName* x = a;
  const struct knownName* y = b;
  int byKey = strcmp(x->key, y->key);
  /* Equal keys name one charset ("UTF-8", "UTF8"); the order between them only needs to be fixed. */
  return byKey != 0 ? byKey : strcmp(x->name, y->name);
}

/* Splits the listing into names (separated by commas and white space; a trailing "//" is dropped) and
 * sorts them by key. Without a listing, only the C library's own spellings are accepted. */
static void buildKnownNames(void) {
  knownText = readNameList();
  if (knownText == NULL) return;
  size_t capacity = 0;
  for (const char* p = knownText; *p != '\0'; ++p) capacity += *p == '\n' || *p == ',';
  knownNames = malloc((capacity + 1) * sizeof *knownNames);
  if (knownNames == NULL) return;
  char* save = NULL;
  for (char* name = strtok_r(knownText, ", \t\r\n", &save); name != NULL && knownCount <= capacity;
       name = strtok_r(NULL, ", \t\r\n", &save)) {
    size_t length = strlen(name);
    if (length >= 2 && strcmp(name + length - 2, "//") == 0) name[length -= 2] = '\0';
    if (length == 0 || length > MAX_NAME_LENGTH) continue;
    knownNames[knownCount].name = name;
    nameKey(name, length, knownNames[knownCount].key);
    ++knownCount;
  }
  qsort(knownNames, knownCount, sizeof *knownNames, compareKnown);
}

/* The list lives as long as the library is loaded: a program may unload it and load it again. */
__attribute__((destructor)) static void freeKnownNames(void) {
  free(knownNames);
  free(knownText);
}

/* The C library's spelling of name[0..length), or NULL when it knows no name with that key. */
static const char* knownSpelling(const char* name, size_t length) {
  pthread_once(&knownOnce, buildKnownNames);
  struct knownName wanted;
  nameKey(name, length, wanted.key);
  size_t low = 0;
  size_t high = knownCount;
  while (low < high) {
    size_t mid = low + (high - low) / 2;
    if (strcmp(knownNames[mid].key, wanted.key) < 0) {
      low = mid + 1;
    } else {
      high = mid;
    }
  }
  return low < knownCount && strcmp(knownNames[low].key, wanted.key) == 0 ? knownNames[low].name : NULL;
}

/* Copies `name` into `out` (room MAX_NAME_LENGTH + 1), keeping any "//" suffixes. The base name
 * "ucs-2be" (in any spelling) is served as UTF-16BE; with `respell`, a base name is replaced by the C
 * library's spelling of it when there is one. 0 when the result does not fit or the base name is empty:
 * the C library would take an empty name as the charset of the process locale, and text must never be
 * read differently because of the environment the server was started in. */
static int mapName(const char* name, int respell, char* out) {
  static const char utf16[] = "UTF-16BE";
  const char* suffix = strstr(name, "//");
  size_t baseLength = suffix ? (size_t)(suffix - name) : strlen(name);
  const char* base = name;
  if (baseLength == 0 || baseLength > MAX_NAME_LENGTH) return 0;
  char key[MAX_NAME_LENGTH + 1];
  nameKey(name, baseLength, key);
  if (strcmp(key, "ucs2be") == 0) {
    base = utf16;
    baseLength = sizeof(utf16) - 1;
  } else if (respell) {
    const char* known = knownSpelling(name, baseLength);
    if (known != NULL) {
      base = known;
      baseLength = strlen(known);
    }
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
  if (tocode == NULL || fromcode == NULL || !mapName(tocode, 0, to) || !mapName(fromcode, 0, from)) {
    fail(EINVAL);
    return (vxiconv_t)-1;
  }
  struct conversion* c = malloc(sizeof *c);
  if (c == NULL) {
    fail(ENOMEM);
    return (vxiconv_t)-1;
  }
  /* Names as given first: the list of known spellings is only built when a name is refused. */
  c->cd = iconv_open(to, from);
  if (c->cd == (iconv_t)-1 && errno == EINVAL && mapName(tocode, 1, to) && mapName(fromcode, 1, from)) {
    c->cd = iconv_open(to, from);
  }
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
