// A stand-in for macOS's header of this name; the tests define the function.
#pragma once

#include <cstdint>

extern "C" int _NSGetExecutablePath(char* buffer, std::uint32_t* size);
