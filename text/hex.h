// Hexadecimal digits, to and from bytes.
//
// Threads: free functions without state; callable from any thread.
#pragma once

#include <string>

/// The sixteen lowercase digits, "0123456789abcdef".
extern const char* const mirt_hex__;

namespace xstd {

/// The value of one hexadecimal digit of either case. Every other character counts as 0; there is
/// no error.
int dehex(char digit);

/// Appends the byte as two lowercase digits, high digit first.
void push_hexchar(std::string& out, char byte);

}  // namespace xstd
