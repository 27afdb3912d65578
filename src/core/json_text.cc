#include "ostrel/json.h"

namespace ostrel {
namespace {
struct TooDeep {};
}  // namespace

std::string dumpJson(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::optional<Json> parseJson(std::string_view text, int maxDepth) {
  // The parser itself is iterative; the depth cap protects everything that walks
  // the result recursively afterwards (dump, comparisons, our own readers).
  auto guard = [maxDepth](int depth, Json::parse_event_t, Json&) {
    if (depth > maxDepth) throw TooDeep{};
    return true;
  };
  try {
    Json parsed = Json::parse(text.begin(), text.end(), guard, /*allow_exceptions=*/true);
    return parsed;
  } catch (const TooDeep&) {
    return std::nullopt;
  } catch (const Json::exception&) {
    return std::nullopt;
  }
}

}  // namespace ostrel
