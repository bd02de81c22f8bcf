#include "text/strings.h"

#include <algorithm>
#include <array>

namespace {

/// Appends the pieces of `s` between characters that `separates` to `*out`.
template <class Separates>
void split(std::vector<std::string>* out, const std::string& s, Separates separates) {
  const char* const end = s.data() + s.size();
  const auto most = static_cast<std::size_t>(std::count_if(s.begin(), s.end(), separates)) + 1;
  if (out->empty()) out->reserve(most);
  for (const char* p = s.data(); p != end;) {
    const char* const stop = std::find_if(p, end, separates);
    if (stop != p) out->emplace_back(p, stop);
    p = stop == end ? end : stop + 1;
  }
}

}  // namespace

bool replace_all(std::string& s, const std::string& from, const std::string& to) {
  std::size_t at = s.find(from);
  if (at == std::string::npos) return false;
  std::string result;
  result.reserve(s.size());
  std::size_t done = 0;
  for (; at != std::string::npos; at = s.find(from, done)) {
    result.append(s, done, at - done).append(to);
    done = at + from.size();
  }
  result.append(s, done);
  s.swap(result);
  return true;
}

void get_tokens(std::vector<std::string>* out, const std::string& s, char separator) {
  split(out, s, [separator](char c) { return c == separator; });
}

void get_tokens(std::vector<std::string>* out, const std::string& s,
                const std::string& separators) {
  if (separators.size() == 1) return get_tokens(out, s, separators[0]);
  std::array<bool, 256> separates{};
  for (const unsigned char c : separators) separates[c] = true;
  split(out, s, [&separates](char c) { return separates[static_cast<unsigned char>(c)]; });
}

std::string join_tokens(const std::string& separator, const std::vector<std::string>& tokens) {
  return join_ntokens(separator, tokens, 0, std::string::npos);
}

std::string join_ntokens(const std::string& separator, const std::vector<std::string>& tokens,
                         unsigned long first, unsigned long count) {
  if (first >= tokens.size()) return "";
  const std::size_t end = first + std::min<std::size_t>(count, tokens.size() - first);
  if (first == end) return "";

  std::size_t size = (end - first - 1) * separator.size();
  for (std::size_t i = first; i < end; ++i) size += tokens[i].size();

  std::string result;
  result.reserve(size);
  result = tokens[first];
  for (std::size_t i = first + 1; i < end; ++i) result.append(separator).append(tokens[i]);
  return result;
}

bool starts_with(const std::string& s, const std::string& prefix) {
  return s.compare(0, prefix.size(), prefix) == 0;
}

bool ends_with(const std::string& s, const std::string& suffix) {
  return s.size() >= suffix.size() &&
         s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}
