// A stand-in for macOS's header of this name; the tests define the function.
#pragma once

#include <cstdint>

extern "C" [[deprecated]] std::int32_t OSAtomicAdd32Barrier(std::int32_t amount,
                                                            volatile std::int32_t* number);
