#pragma once
// Requests to an emulator sent by hand, for what the library's own connector
// would never send: signed requests with a wrong version or a raw body, and
// calls to the control API.
#include <optional>
#include <string>

#include "emulator/emulator.h"

namespace ostrel::test {

struct RawReply {
  int status = 0;  // 0: no reply
  std::string body;
};

// POSTs `body` to `path` on the service's client host, signed for the demo
// application as the library signs, except that the header carries `version`.
RawReply sendSigned(const emulator::Info& info, const std::string& path, const std::string& body,
                    const std::string& version = "2.1");

// GETs a control path (or POSTs `post` to it); answers the reply as JSON, a
// JSON string when it is not JSON, null without a reply. Long enough a wait
// for the page's long polls.
Json control(const emulator::Info& info, const std::string& path,
             const std::optional<Json>& post = std::nullopt);

}  // namespace ostrel::test
