// A remote push payload, as JSON text, to a push object.
#include "fuzz_platform.h"
#include "ostrel/ol_push_builder.h"
#include "push/push_archive.h"
#include "push/user_info_parser.h"

namespace {

// A standard or URL push without a body is a payload the service never sends,
// and the library stops on it on purpose: not a finding.
bool isBodylessNotification(std::string_view text) {
  auto parsed = ostrel::parseJson(text);
  if (!parsed || !parsed->is_object()) return false;
  ostrel::UserInfoParser parser(*parsed);
  auto type = parser.getType();
  if (!type || (*type != ostrel::PushNotificationType::Standard &&
                *type != ostrel::PushNotificationType::Url)) {
    return false;
  }
  auto body = parser.getBody();
  return parser.getPushId() && body && !*body;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ostrel::fuzz::installQuietPlatform();
  const auto text = ostrel::fuzz::bytesOf(data, size);
  if (isBodylessNotification(text)) return 0;
  for (bool atStartup : {false, true}) {
    auto push = ostrel::OLPushBuilder::buildPushObject(text, atStartup);
    if (!push) continue;
    (void)(*push)->description();
    // Pushes are kept on disk until the host takes them: what was built must come back.
    if (!ostrel::decodePush(ostrel::archivePush(**push))) __builtin_trap();
  }
  return 0;
}
