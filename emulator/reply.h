#pragma once
// How the emulator answers over HTTP: JSON bodies and the service's error object.
#include <string>

#include "ostrel/json.h"

namespace httplib {
struct Response;
}  // namespace httplib

namespace ostrel::emulator {

void reply(httplib::Response& res, int status, const Json& body);
// {"error": {"code", "message", "extra"}}, as the service refuses.
void refuse(httplib::Response& res, int status, const std::string& code, const std::string& message,
            Json extra = Json::object());
// Wall-clock seconds since the epoch: what arrival times and token expiries are stamped with.
double nowSecs();

}  // namespace ostrel::emulator
