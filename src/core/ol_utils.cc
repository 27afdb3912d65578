#include "core/ol_utils.h"

#include "platform/fatal.h"

namespace ostrel {

const std::array<std::string_view, 94>& OLUtils::charset() {
  static const std::array<std::string_view, 94> chars = [] {
    // Never destroyed, like every static the library's threads read: they may
    // still run while the process exits.
    static const std::string& all = *new std::string([] {
      std::string s;
      for (char c = 33; c <= 126; ++c) s.push_back(c);
      return s;
    }());
    std::array<std::string_view, 94> out{};
    for (std::size_t i = 0; i < out.size(); ++i) out[i] = std::string_view(all).substr(i, 1);
    return out;
  }();
  return chars;
}

std::string OLUtils::generateRandomString(const platform::Crypto& crypto, int length) {
  if (length < 0) fatal("generateRandomString needs a length of zero or more");
  std::string out;
  out.reserve(static_cast<std::size_t>(length));
  const auto& chars = charset();
  for (int i = 0; i < length; ++i) {
    out += chars[crypto.randomUniform(static_cast<uint32_t>(chars.size()))];
  }
  return out;
}

}  // namespace ostrel
