// Test helper for the folders that link the store generator: a generated store in one call.
#pragma once

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "mkstore/store_generator.h"

namespace vorlane {
namespace testing {

// Writes the generator's store of `messages` messages from `seed` into dir (the same bytes every time);
// false, with the test failed, when it could not.
inline bool generateStore(const std::string& dir, uint64_t messages, uint64_t seed, mkstore::Manifest& manifest) {
  std::string error;
  if (mkstore::generateStore(mkstore::StoreOptions{messages, seed, dir, true}, manifest, error)) return true;
  ADD_FAILURE() << error;
  return false;
}

}  // namespace testing
}  // namespace vorlane
