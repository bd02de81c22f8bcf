// What the log does to the text of lines, without threads and files.
//
// Ownership: results are new strings, or views into the arguments.
// Threads: free functions without state; callable from any thread.
#pragma once

#include <cstddef>
#include <string>

#include "text/string_ref.h"

namespace mirt {

/// A UTC time as "2024-03-05T14:07:09Z"; "N" where that would not have 20 characters, as outside
/// the years 1000 to 9999.
std::string timestamp_of(long long seconds);

/// Replaces control bytes (below 0x20) and backticks by a backtick and two hexadecimal digits, so
/// that a line is one line whatever is in it.
///
///   "a\nb"  "a`0ab"        "`"  "`60"
void escape_line(std::string& line);

/// The text of a pre-formatted line: without its header and the space behind it, where there is
/// more than that.
string_ref text_behind_header(const char* line, std::size_t length, std::size_t header_length);

/// The text without trailing line breaks, "\n" and "\r".
string_ref without_line_breaks(string_ref text);

}  // namespace mirt
