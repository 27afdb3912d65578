#include "login/tokens.h"

#include "login/autologin_expiry.h"
#include "platform/runtime.h"

namespace ostrel {

std::optional<double> AutologinToken::expireDate() const {
  if (value.size() < 17) {
    logLine("Invalid stored autologin " + value);
    return std::nullopt;
  }
  return autologinExpiry(value);
}

bool AutologinToken::isExpired() const {
  auto expiry = expireDate();
  if (!expiry) return true;
  return runtime::now() > *expiry;
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
