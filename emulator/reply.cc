#include "emulator/reply.h"

#include <httplib.h>

#include <chrono>

namespace ostrel::emulator {

void reply(httplib::Response& res, int status, const Json& body) {
  res.status = status;
  res.set_content(dumpJson(body), "application/json");
}

void refuse(httplib::Response& res, int status, const std::string& code, const std::string& message,
            Json extra) {
  reply(res, status,
        Json{{"error", {{"code", code}, {"message", message}, {"extra", std::move(extra)}}}});
}

double nowSecs() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace ostrel::emulator
