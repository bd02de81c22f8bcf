#include "mirt/sys/random.h"

#include <unistd.h>

#include <cstdlib>
#include <ctime>

#include "mirt/sys/immortal.h"
#include "mirt/sys/thread.h"

namespace mirt {

namespace {

std::uint32_t fresh_seed() {
  return static_cast<std::uint32_t>(std::time(nullptr)) + static_cast<std::uint32_t>(std::clock()) +
         static_cast<std::uint32_t>(get_current_thread_id()) +
         static_cast<std::uint32_t>(::getpid());
}

}  // namespace

random_state* g_random_state = nullptr;
void* x_rand = nullptr;

random_state::random_state(std::uint32_t seed)
    : current(words), next(words + 1), shifted(words + shift) {
  words[0] = seed;
  for (std::uint32_t i = 1; i < size; ++i) {
    words[i] = 1812433253U * (words[i - 1] ^ (words[i - 1] >> 30)) + i;
  }
}

void init_rand() {
  g_random_state = immortal<random_state>(fresh_seed());
}

void init_random() {
  ::srand(fresh_seed());
  ::srandom(fresh_seed());
}

}  // namespace mirt
