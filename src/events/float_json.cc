#include "events/float_json.h"

#include <charconv>

namespace ostrel {

Json floatJson(float value) {
  char buf[64];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, value);
  double d = value;
  if (ec == std::errc()) std::from_chars(buf, end, d);
  return Json(d);
}

}  // namespace ostrel
