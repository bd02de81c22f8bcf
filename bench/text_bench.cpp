// The CGI codec and percent coding beside Boost.URL and uriparser. All keep the unreserved set of
// RFC 3986, write a space as "+" and lowercase digits where they have the choice.

#include <uriparser/Uri.h>

#include <array>
#include <boost/url.hpp>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/compare.h"
#include "text/cgi.h"

namespace {

namespace urls = boost::urls;
using bench::contender;
using params = std::map<std::string, std::string>;

const urls::encoding_opts g_boost_options(/*space_as_plus=*/true, /*lower_case=*/true);

void require(bool success) {
  if (!success) throw std::runtime_error("a peer refused its input");
}

/// uriparser's digits are uppercase.
std::string lower_digits(std::string text) {
  for (std::size_t i = 0; i + 2 < text.size(); ++i) {
    if (text[i] != '%') continue;
    for (char* digit : {&text[i + 1], &text[i + 2]}) {
      if (*digit >= 'A' && *digit <= 'F') *digit = static_cast<char>(*digit + ('a' - 'A'));
    }
  }
  return text;
}

params boost_parse(const std::string& text) {
  params result;
  for (const urls::param_pct_view pair : urls::parse_query(text).value()) {
    result.insert_or_assign(result.end(), pair.key.decode(g_boost_options),
                            pair.value.decode(g_boost_options));
  }
  return result;
}

std::string boost_build(const params& map) {
  std::size_t size = 0;
  for (const auto& [key, value] : map) size += key.size() + value.size() + 2;
  std::string result;
  result.reserve(size);
  for (const auto& [key, value] : map) {
    if (!result.empty()) result.push_back('&');
    urls::encode(key, urls::unreserved_chars, g_boost_options,
                 urls::string_token::append_to(result));
    result.push_back('=');
    urls::encode(value, urls::unreserved_chars, g_boost_options,
                 urls::string_token::append_to(result));
  }
  return result;
}

std::string boost_encode(const std::string& text) {
  return urls::encode(text, urls::unreserved_chars, g_boost_options);
}

std::string boost_decode(const std::string& text) {
  return urls::pct_string_view(text).decode(g_boost_options);
}

params uriparser_parse(const std::string& text) {
  UriQueryListA* list = nullptr;
  int count = 0;
  require(uriDissectQueryMallocExA(&list, &count, text.data(), text.data() + text.size(), URI_TRUE,
                                   URI_BR_DONT_TOUCH) == URI_SUCCESS);
  params result;
  for (const UriQueryListA* pair = list; pair != nullptr; pair = pair->next) {
    result.insert_or_assign(result.end(), pair->key, pair->value != nullptr ? pair->value : "");
  }
  uriFreeQueryListA(list);
  return result;
}

std::string uriparser_build(const params& map) {
  std::vector<UriQueryListA> list;
  list.reserve(map.size());
  for (const auto& [key, value] : map) {
    list.push_back({key.c_str(), value.c_str(), nullptr});
    if (list.size() > 1) list[list.size() - 2].next = &list.back();
  }
  int size = 0;
  require(uriComposeQueryCharsRequiredExA(list.data(), &size, URI_TRUE, URI_FALSE) == URI_SUCCESS);
  const auto buffer = std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(size) + 1);
  int written = 0;
  require(uriComposeQueryExA(buffer.get(), list.data(), size + 1, &written, URI_TRUE, URI_FALSE) ==
          URI_SUCCESS);
  return std::string(buffer.get(), static_cast<std::size_t>(written) - 1);
}

std::string uriparser_encode(const std::string& text) {
  const auto buffer = std::make_unique_for_overwrite<char[]>(text.size() * 3 + 1);
  char* const end =
      uriEscapeExA(text.data(), text.data() + text.size(), buffer.get(), URI_TRUE, URI_FALSE);
  return std::string(buffer.get(), end);
}

std::string uriparser_decode(std::string text) {
  const char* const end = uriUnescapeInPlaceExA(text.data(), URI_TRUE, URI_BR_DONT_TOUCH);
  text.resize(static_cast<std::size_t>(end - text.data()));
  return text;
}

/// Settings as the desktop application makes them.
params make_flags(int count) {
  constexpr std::array names{"enable_fast_start_", "show_status_panel_", "use_old_renderer_",
                             "log_network_calls_"};
  constexpr std::array codes{"CT", "CF", "DT", "DF"};
  params result;
  for (unsigned i = 0; i < static_cast<unsigned>(count); ++i) {
    result[names[i % names.size()] + std::to_string(i)] = codes[i / 4 % codes.size()];
  }
  return result;
}

enum class kind { plain, mixed, binary };

/// Letters and digits; the same with one byte in six to be escaped; bytes of all values but 0,
/// where uriparser stops.
std::string make_text(kind k, std::size_t size) {
  constexpr char letters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  constexpr char others[] = "/:?&=%#\"<>\xc3\xa9";
  std::mt19937 random(17);
  std::string text;
  while (text.size() < size) {
    const std::size_t draw = random();
    if (k == kind::binary) {
      text.push_back(static_cast<char>(1 + draw % 255));
    } else if (k == kind::mixed && random() % 6 == 0) {
      text.push_back(others[draw % (sizeof others - 1)]);
    } else {
      text.push_back(letters[draw % (sizeof letters - 1)]);
    }
  }
  return text;
}

void add_flags(int count) {
  const std::string name = std::to_string(count) + " flags";
  const params flags = make_flags(count);
  const std::string text = cgi_get_param(flags, urlencode_unreserved);
  bench::add_row(
      "parse " + name, text, text.size(),
      contender{"ours", [](const std::string& s) { return cgi_parse_param(s, '&', '='); }},
      contender{"Boost.URL", boost_parse}, contender{"uriparser", uriparser_parse});
  bench::add_row(
      "build " + name, flags, text.size(),
      contender{"ours", [](const params& map) { return cgi_get_param(map, urlencode_unreserved); }},
      contender{"Boost.URL", boost_build}, contender{"uriparser", uriparser_build});
}

void add_text(const std::string& name, const std::string& text) {
  const auto encode = [](const std::string& s) { return urlencode(s, urlencode_unreserved, true); };
  bench::add_row("encode " + name, text, text.size(), contender{"ours", encode},
                 contender{"Boost.URL", boost_encode},
                 contender{"uriparser", uriparser_encode, lower_digits});
  bench::add_row("decode " + name, encode(text), text.size(),
                 contender{"ours", [](const std::string& s) { return urldecode(s, true); }},
                 contender{"Boost.URL", boost_decode}, contender{"uriparser", uriparser_decode});
}

}  // namespace

int main(int argc, char** argv) {
  for (const int count : {8, 1000}) add_flags(count);
  for (const auto& [size, size_name] : {std::pair{1024, "1 KB "}, std::pair{102400, "100 KB "}}) {
    for (const auto& [k, kind_name] :
         {std::pair{kind::plain, "plain"}, std::pair{kind::mixed, "mixed"},
          std::pair{kind::binary, "binary"}}) {
      add_text(std::string(size_name) + kind_name, make_text(k, static_cast<std::size_t>(size)));
    }
  }
  return bench::run(argc, argv);
}
