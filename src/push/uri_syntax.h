#pragma once
// Whether a text is a URI by the `URI` rule of RFC 3986 (section 3):
//   scheme ":" hier-part [ "?" query ] [ "#" fragment ]
// with every component checked against its grammar (authority with user
// information, IP literal or registered name and port; percent-encodings of
// two hexadecimal digits). "http:foo" is a URI of scheme "http"; a relative
// reference ("//host/x", "/x") is not. Text outside ASCII is not a URI.
#include <optional>
#include <string_view>

namespace ostrel {

// The scheme of `text` when it is a URI, as written (not lower-cased).
std::optional<std::string_view> uriScheme(std::string_view text);

}  // namespace ostrel
