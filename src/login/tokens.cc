#include "login/tokens.h"

#include "login/autologin_expiry.h"
#include "platform/platform_ref.h"

namespace ostrel {

std::optional<double> AutologinToken::expireDate(const Platform& platform) const {
  if (value.size() < 17) {
    logLine(platform, "Invalid stored autologin " + value);
    return std::nullopt;
  }
  return autologinExpiry(value, *platform.clock);
}

bool AutologinToken::isExpired(const Platform& platform) const {
  auto expiry = expireDate(platform);
  if (!expiry) return true;
  return platform.clock->now() > *expiry;
}

Result<std::shared_ptr<Token>> decodeToken(std::string_view bytes) {
  auto reader = ArchiveReader::open(bytes);
  if (!reader) return reader.error();
  auto value = reader->decodeString("value");
  if (!value) return value.error();
  if (reader->className() == "Ostrel.AutologinToken") {
    return std::shared_ptr<Token>(std::make_shared<AutologinToken>(*value));
  }
  if (reader->className() == "Ostrel.Token") return std::make_shared<Token>(*value);
  return archiveError("Not a token: " + reader->className());
}

}  // namespace ostrel
