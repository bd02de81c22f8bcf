// Network buffers: any sequence of calls leaves the bytes that the same changes of plain texts
// leave, and buffers that are sound inside.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/check.h"
#include "netbuf/netbuf.h"
#include "netbuf/operations.h"
#include "tests/netbuf/checkers.h"
#include "tests/netbuf/text_model.h"

namespace {

/// Choices by the input's bytes, for as long as there are some.
struct choices {
  const std::uint8_t* data;
  std::size_t size;

  unsigned byte() {
    if (size == 0) return 0;
    --size;
    return *data++;
  }
  unsigned operator()(unsigned n) {
    const unsigned low = byte();
    return (n <= 256 ? low : low | byte() << 8) % n;
  }
};

void run(const std::uint8_t* data, std::size_t size) {
  choices choose{data, size};
  netbuf_imp::use_cache = choose(2) == 1;
  std::vector<tests::text_buffer> buffers(3);
  tests::text_steps steps(buffers, choose);
  while (choose.size > 0) {
    const std::string fault = steps.step();
    fuzz::check(fault.empty(), "a buffer is as its text", fault);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  netbuf::install(_netbuf_impl);
  netbuf::init({false, true});
  run(data, size);
  fuzz::check(tests::counted_memory::live == 0, "external memory is given back", "");
  for (const netbuf_imp::size_class& row : netbuf_imp::size_classes) {
    if (row.cache == nullptr) continue;
    fuzz::check(row.cache->free_count == row.cache->total, "every block is given back", "");
    fuzz::check(tests::fault_of_cache(*row.cache).empty(), "the free list is as counted", "");
  }
  return 0;
}
