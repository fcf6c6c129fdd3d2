#include "vcom/debug_line.h"

#include <cstring>
#include <ctime>

#include "tiny/time_utils.h"
#include "vcom/line_text.h"

namespace vorlane {
namespace vcom {

void writeDebugLineV(FILE* stream, const char* fmt, va_list args) {
  if (!stream || !fmt) return;
  char stamp[64];
  const time_t now = time(nullptr);
  if (!tiny::v_ctime_r(&now, stamp)) stamp[0] = '\0';
  stamp[strcspn(stamp, "\n")] = '\0';
  const std::string text = formatLineV(fmt, args);
  flockfile(stream);
  fputs(stamp, stream);
  fputc(' ', stream);
  fwrite(text.data(), 1, text.size(), stream);
  fflush(stream);
  funlockfile(stream);
}

}  // namespace vcom
}  // namespace vorlane
