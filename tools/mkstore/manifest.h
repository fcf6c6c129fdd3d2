// What a generated store holds, in the terms of the statistics report: the figures a full scan of the
// store must reproduce ("Any folder class - any folder type": message count, message size sum, folder
// count, domain count; the mail body and signature counters of "IPF.Note - any folder type"; the
// distribution lists), plus what the walk must pass over and what is on disk in total.
// A plain value; not synchronised.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "mkstore/message_shape.h"

namespace vorlane {
namespace mkstore {

struct Manifest {
  uint64_t seed = 0;
  uint64_t requestedMessages = 0;

  uint64_t domains = 0;             // domain directories (the public tree is none)
  uint64_t mailboxes = 0;           // user mailboxes plus one for the public tree
  uint64_t folders = 0;             // folders with status.fld that the walk visits and counts
  uint64_t messageFiles = 0;        // "eml" files of mail folders the walk opens
  uint64_t messageBytes = 0;
  uint64_t indexEntries = 0;        // index.fld lines of the other folders the walk reads
  uint64_t indexBytes = 0;          // sum of their "S" sizes
  uint64_t distributionLists = 0;   // index entries of class IPM.DistList
  uint64_t shapes[kShapeCount] = {};

  uint64_t systemFolders = 0;       // skipped folders written with junk
  uint64_t strayEntries = 0;        // stray files, links and leftover delivery files
  uint64_t diskFiles = 0;           // every regular file written below the mail root
  uint64_t diskBytes = 0;

  uint64_t reportMessageCount() const { return messageFiles + indexEntries; }
  uint64_t reportMessageBytes() const { return messageBytes + indexBytes; }
  // Messages whose shape has `flag` set in the shape table (isSigned, isEncrypted ...).
  uint64_t countShapes(bool ShapeTraits::*flag) const;
  // Messages the scan counts with exactly this combination of bodies.
  uint64_t countBodies(bool plain, bool html, bool rtf) const;
};

// The manifest as a JSON object (keys in a fixed order, integers only, ends with a line end).
std::string manifestJson(const Manifest& m);

// A short human-readable summary.
void printManifest(const Manifest& m, FILE* out);

}  // namespace mkstore
}  // namespace vorlane
