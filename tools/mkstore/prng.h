// The generator's own pseudo-random source: splitmix64 with integer-only helpers, so that the same seed
// gives the same store with every compiler and standard library (no <random> distributions, no floats).
// Not thread-safe: each user owns its instance.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vorlane {
namespace mkstore {

class Prng {
 public:
  explicit Prng(uint64_t seed) : state_(seed) {}

  uint64_t next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
  }

  // Uniform in [0, bound) for bound > 0 (multiply-shift; the bias is far below anything a store shows).
  uint64_t below(uint64_t bound) {
    return static_cast<uint64_t>((static_cast<unsigned __int128>(next()) * bound) >> 64);
  }

  // Uniform in [lo, hi], both inclusive.
  uint64_t between(uint64_t lo, uint64_t hi) { return lo + below(hi - lo + 1); }

  // True with a probability of perMille / 1000.
  bool chance(unsigned perMille) { return below(1000) < perMille; }

  // Index drawn with probability weights[i] / sum(weights); n > 0 and the sum must not be 0.
  size_t weighted(const unsigned* weights, size_t n) {
    uint64_t total = 0;
    for (size_t i = 0; i < n; ++i) total += weights[i];
    uint64_t r = below(total);
    for (size_t i = 0; i < n; ++i) {
      if (r < weights[i]) return i;
      r -= weights[i];
    }
    return n - 1;
  }

  template <typename T, size_t N>
  const T& pick(const T (&items)[N]) {
    return items[below(N)];
  }

 private:
  uint64_t state_;
};

// An independent stream for item `index` of a run seeded with `seed`, so that one item's content does not
// depend on how many numbers earlier items consumed.
inline Prng derivedPrng(uint64_t seed, uint64_t index) {
  Prng mix(seed ^ (index * 0xD1B54A32D192ED03ULL));
  return Prng(mix.next());
}

// A size in bytes from a long-tailed table: a bucket is chosen by weight, the size uniformly inside it.
struct SizeBucket {
  uint64_t lo;
  uint64_t hi;
  unsigned weight;
};

template <size_t N>
uint64_t drawSize(const SizeBucket (&table)[N], Prng& rng) {
  unsigned weights[N];
  for (size_t i = 0; i < N; ++i) weights[i] = table[i].weight;
  const SizeBucket& b = table[rng.weighted(weights, N)];
  return rng.between(b.lo, b.hi);
}

}  // namespace mkstore
}  // namespace vorlane
