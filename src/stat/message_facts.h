// What the statistic learns about one message: from its file (size from stat, sizes of the header and
// of the plain-text, HTML and RTF bodies, the signed and encrypted markers; no class), or from one index
// line (class and size only). A body of size 0 does not exist. A plain value.
#pragma once

#include <string>

struct MessageFacts {
  std::string messageClass;  // empty for a message file
  unsigned long long size = 0;
  unsigned long long headerSize = 0;
  unsigned long long plainTextSize = 0;
  unsigned long long htmlSize = 0;
  unsigned long long rtfSize = 0;
  bool isSigned = false;
  bool isEncrypted = false;
};
