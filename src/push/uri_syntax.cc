#include "push/uri_syntax.h"

#include <algorithm>
#include <cstring>

namespace ostrel {
namespace {

bool isAlpha(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isDigit(char c) {
  return c >= '0' && c <= '9';
}
bool isHex(char c) {
  return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
bool isUnreserved(char c) {
  return isAlpha(c) || isDigit(c) || (c != '\0' && std::strchr("-._~", c) != nullptr);
}
bool isSubDelim(char c) {
  return c != '\0' && std::strchr("!$&'()*+,;=", c) != nullptr;
}
bool isRegNameChar(char c) {
  return isUnreserved(c) || isSubDelim(c);
}
bool isUserInfoChar(char c) {
  return isRegNameChar(c) || c == ':';
}
bool isPathChar(char c) {  // pchar or "/"
  return isUserInfoChar(c) || c == '@' || c == '/';
}
bool isQueryChar(char c) {  // also the fragment's
  return isPathChar(c) || c == '?';
}

// Every character is allowed, or starts a percent-encoded octet.
bool allOf(std::string_view text, bool (*allowed)(char)) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%') {
      if (i + 2 >= text.size() || !isHex(text[i + 1]) || !isHex(text[i + 2])) return false;
      i += 2;
    } else if (!allowed(text[i])) {
      return false;
    }
  }
  return true;
}

// dec-octet "." dec-octet "." dec-octet "." dec-octet, without leading zeros.
bool isIPv4(std::string_view text) {
  for (int part = 0; part < 4; ++part) {
    std::size_t n = 0;
    while (n < text.size() && isDigit(text[n])) ++n;
    if (n == 0 || n > 3 || (n > 1 && text[0] == '0')) return false;
    int value = 0;
    for (std::size_t i = 0; i < n; ++i) value = value * 10 + (text[i] - '0');
    if (value > 255) return false;
    text.remove_prefix(n);
    if (part < 3) {
      if (text.empty() || text[0] != '.') return false;
      text.remove_prefix(1);
    }
  }
  return text.empty();
}

// h16 *( ":" h16 ), the last one possibly an IPv4 address (two 16-bit units);
// answers the number of units, or nothing when the list is malformed.
std::optional<int> h16Units(std::string_view text, bool ipv4Tail) {
  if (text.empty()) return 0;
  int units = 0;
  while (true) {
    const auto colon = text.find(':');
    const std::string_view part = text.substr(0, colon);
    if (colon == std::string_view::npos && ipv4Tail && part.find('.') != std::string_view::npos) {
      return isIPv4(part) ? std::optional(units + 2) : std::nullopt;
    }
    if (part.empty() || part.size() > 4 || !std::all_of(part.begin(), part.end(), isHex)) {
      return std::nullopt;
    }
    ++units;
    if (colon == std::string_view::npos) return units;
    text.remove_prefix(colon + 1);
  }
}

bool isIPv6(std::string_view text) {
  const auto gap = text.find("::");
  if (gap == std::string_view::npos) return h16Units(text, true) == 8;
  if (text.find("::", gap + 1) != std::string_view::npos) return false;
  auto head = h16Units(text.substr(0, gap), false);
  auto tail = h16Units(text.substr(gap + 2), true);
  // "::" stands for at least one unit.
  return head && tail && *head + *tail <= 7;
}

// "v" 1*HEXDIG "." 1*( unreserved / sub-delims / ":" )
bool isIPvFuture(std::string_view text) {
  if (text.size() < 4 || (text[0] != 'v' && text[0] != 'V')) return false;
  const auto dot = text.find('.');
  if (dot == std::string_view::npos || dot < 2 || dot + 1 == text.size()) return false;
  const auto version = text.substr(1, dot - 1);
  const auto rest = text.substr(dot + 1);
  return std::all_of(version.begin(), version.end(), isHex) &&
         std::all_of(rest.begin(), rest.end(), isUserInfoChar);
}

// [ userinfo "@" ] host [ ":" port ]
bool isAuthority(std::string_view text) {
  if (const auto at = text.find('@'); at != std::string_view::npos) {
    if (!allOf(text.substr(0, at), isUserInfoChar)) return false;
    text.remove_prefix(at + 1);
  }
  std::string_view port;
  if (!text.empty() && text[0] == '[') {
    const auto close = text.find(']');
    if (close == std::string_view::npos) return false;
    const auto literal = text.substr(1, close - 1);
    if (!isIPv6(literal) && !isIPvFuture(literal)) return false;
    const auto rest = text.substr(close + 1);
    if (!rest.empty() && rest[0] != ':') return false;
    if (!rest.empty()) port = rest.substr(1);
  } else {
    const auto colon = text.find(':');
    if (colon != std::string_view::npos) port = text.substr(colon + 1);
    if (!allOf(text.substr(0, colon), isRegNameChar)) return false;
  }
  return std::all_of(port.begin(), port.end(), isDigit);
}

}  // namespace

std::optional<std::string_view> uriScheme(std::string_view text) {
  const auto colon = text.find(':');
  if (colon == std::string_view::npos || colon == 0 || !isAlpha(text[0])) return std::nullopt;
  const auto scheme = text.substr(0, colon);
  if (!std::all_of(scheme.begin(), scheme.end(), [](char c) {
        return isAlpha(c) || isDigit(c) || c == '+' || c == '-' || c == '.';
      })) {
    return std::nullopt;
  }
  std::string_view rest = text.substr(colon + 1);
  if (const auto hash = rest.find('#'); hash != std::string_view::npos) {
    if (!allOf(rest.substr(hash + 1), isQueryChar)) return std::nullopt;
    rest = rest.substr(0, hash);
  }
  if (const auto question = rest.find('?'); question != std::string_view::npos) {
    if (!allOf(rest.substr(question + 1), isQueryChar)) return std::nullopt;
    rest = rest.substr(0, question);
  }
  // hier-part: "//" authority path-abempty, or a path that is absolute, rootless or empty.
  if (rest.starts_with("//")) {
    const auto slash = rest.find('/', 2);
    if (!isAuthority(rest.substr(2, slash == std::string_view::npos ? rest.npos : slash - 2))) {
      return std::nullopt;
    }
    rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash);
  }
  if (!allOf(rest, isPathChar)) return std::nullopt;
  return scheme;
}

}  // namespace ostrel
