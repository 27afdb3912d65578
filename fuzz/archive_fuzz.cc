// Archive decoding of every stored class: events, pushes, tokens, the user's
// meta information and flags. The first byte picks the store.
#include "events/event_archive.h"
#include "fuzz_platform.h"
#include "login/ol_user_meta_info.h"
#include "login/tokens.h"
#include "push/push_archive.h"
#include "status/flag.h"

namespace {

// What a stored item must survive after decoding: being read and archived again.
template <class T, class Archive>
void roundTrip(const ostrel::Result<std::shared_ptr<T>>& decoded, Archive archive) {
  if (!decoded || !*decoded) return;
  (void)archive(**decoded);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const auto bytes = ostrel::fuzz::bytesOf(data + 1, size - 1);
  switch (data[0] % 5) {
    case 0: {
      auto event = ostrel::decodeEvent(bytes);
      if (event && *event) {
        (void)(*event)->getEventDictionary(*ostrel::fuzz::quietPlatform()->clock);
        (void)(*event)->uniqueName();
        if (!ostrel::decodeEvent(ostrel::archivedBytes(**event))) __builtin_trap();
      }
      break;
    }
    case 1: {
      auto push = ostrel::decodePush(bytes);
      if (push && *push) {
        (void)(*push)->description();
        if (!ostrel::decodePush(ostrel::archivePush(**push))) __builtin_trap();
      }
      break;
    }
    case 2:
      roundTrip(ostrel::decodeToken(bytes),
                [](const ostrel::Token& t) { return ostrel::archivedBytes(t); });
      break;
    case 3:
      roundTrip(ostrel::OLUserMetaInfo::decode(bytes),
                [](const ostrel::OLUserMetaInfo& m) { return ostrel::archivedBytes(m); });
      break;
    default:
      roundTrip(ostrel::Flag::decode(bytes),
                [](const ostrel::Flag& f) { return ostrel::archivedBytes(f); });
      break;
  }
  return 0;
}
