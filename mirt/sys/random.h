// Seeding of random numbers.
//
// Ownership: the state is created by start-up and lives until the process ends.
// Threads: `init_rand` runs in start-up, `init_random` on any thread; whoever draws numbers holds
// the state's lock.
#pragma once

#include <cstdint>

#include "mirt/sys/lock.h"

namespace mirt {

/// A Mersenne Twister MT19937 (Matsumoto and Nishimura, 1998), seeded and not yet drawn from.
struct random_state {
  static constexpr int size = 624;
  static constexpr int shift = 397;

  explicit random_state(std::uint32_t seed);

  rec_mutex lock;  ///< guards all that follows
  std::uint32_t words[size];
  std::uint32_t* current;  ///< words + 0
  std::uint32_t* next;     ///< words + 1
  std::uint32_t* shifted;  ///< words + 397
};

/// Null until `init_rand`.
extern random_state* g_random_state;

/// A host's random numbers; null where the host brings none. Set by start-up from the host's table
/// and kept for the host: the runtime draws no random numbers itself.
extern void* x_rand;

/// Creates the state, seeded from time, processor time, thread and process.
void init_rand();

/// Seeds the standard generators `rand` and `random` from the same sources, afresh for each.
void init_random();

}  // namespace mirt
