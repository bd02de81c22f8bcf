// Percent encoding and CGI parameter strings: "key=value" pairs joined by "&".
//
// Ownership: every result is a new string or map; nothing is kept.
// Threads: free functions without state; callable from any thread.
// Errors: malformed text is never an error. Only std::bad_alloc can be thrown.
#pragma once

#include <map>
#include <string>

#include "text/string_ref.h"

/// Which characters `urlencode` leaves as they are. Any other value counts as strict.
enum urlencode_mode : int {
  urlencode_strict = 0,      ///< A-Z a-z 0-9 _
  urlencode_unreserved = 1,  ///< these and - . ~ (the unreserved set of RFC 3986, section 2.3)
};

/// Splits a parameter string and decodes its keys and values, "+" as a space.
///
///   "a=1&b=2"   {a: "1", b: "2"}
///   "a=1&a=2"   {a: "2"}           a repeated key keeps its last value
///   "flag&=x&"  {flag: ""}         no key separator: empty value; no raw key: dropped
///   "a=b=c"     {a: "b=c"}         only the first key separator of a pair counts
///   "k=v%26w"   {k: "v&w"}         escapes are decoded after splitting
///
/// Where both separators are the same character it separates pairs.
std::map<std::string, std::string> cgi_parse_param(std::string text, char pair_separator,
                                                   char key_separator);

/// Joins a map into a parameter string, in key order, a space as "+". Pairs with an empty key are
/// left out.
///
///   {"a b": "x/y", "": "z"}  urlencode_strict   gives "a+b=x%2fy"
std::string cgi_get_param(const std::map<std::string, std::string>& params, urlencode_mode mode);

/// Decodes "%" and two hexadecimal digits to one byte, and "+" to a space if `plus_is_space`.
/// A digit that is none counts as 0; an escape that the text's end cuts off ends the result there.
///
///   "a%20b"  gives "a b"      "x%4"  gives "x"      "%zz"  gives one zero byte
std::string urldecode(const mirt::string_ref& text, bool plus_is_space);
std::string urldecode(const std::string& text, bool plus_is_space);
std::string urldecode(const char* text, bool plus_is_space);

/// Encodes every byte outside the mode's set as "%" and two lowercase hexadecimal digits, a space
/// as "+" if `space_as_plus`.
///
///   "-._~"  urlencode_strict      gives "%2d%2e_%7e"
///   "-._~"  urlencode_unreserved  gives "-._~"
std::string urlencode(const std::string& text, urlencode_mode mode, bool space_as_plus);

/// The same, put behind what `out` holds.
void append_urlencoded(std::string& out, const mirt::string_ref& text, urlencode_mode mode,
                       bool space_as_plus);
