// Replacing, splitting, joining and testing of strings, byte by byte.
//
// Ownership: results are new strings; nothing is kept.
// Threads: free functions without state; callable from any thread.
#pragma once

#include <string>
#include <vector>

/// Replaces every occurrence of `from` in `s`, left to right; matches never overlap and what was
/// put in is not searched again. Returns whether anything was replaced.
///
///   "aaa"  "aa" -> "b"   gives "ba"
///
/// Requires: `from` is not empty. There is deliberately no guard: an empty pattern is found at the
/// same place for ever.
bool replace_all(std::string& s, const std::string& from, const std::string& to);

/// Appends the non-empty pieces of `s` between separators to `*out`, which is not cleared first.
///
///   "a,,b,"   ','   adds "a", "b"
void get_tokens(std::vector<std::string>* out, const std::string& s, char separator);

/// The same with every character of `separators` ending a piece; without any, a non-empty `s` is
/// appended whole.
///
///   "a, b,c"   ", "   adds "a", "b", "c"
void get_tokens(std::vector<std::string>* out, const std::string& s, const std::string& separators);

/// All tokens with the separator between them; empty tokens are kept.
std::string join_tokens(const std::string& separator, const std::vector<std::string>& tokens);

/// Up to `count` tokens from index `first` on, with the separator between them. A range that runs
/// past the end is cut there; `count` with all bits set means all that follow.
///
///   ","  {a, b, c, d}  1  2   gives "b,c"
std::string join_ntokens(const std::string& separator, const std::vector<std::string>& tokens,
                         unsigned long first, unsigned long count);

/// Whether `s` begins with `prefix`; an empty prefix always matches.
bool starts_with(const std::string& s, const std::string& prefix);

/// Whether `s` ends with `suffix`; an empty suffix always matches.
bool ends_with(const std::string& s, const std::string& suffix);
