#include "capi/c_text.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <variant>

#include <utf8proc.h>

#include "capi/c_error.h"

namespace ostrel::capi {
namespace {

bool isUtf8(std::string_view text) {
  const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
  auto left = static_cast<utf8proc_ssize_t>(text.size());
  while (left > 0) {
    utf8proc_int32_t codepoint = 0;
    const utf8proc_ssize_t used = utf8proc_iterate(bytes, left, &codepoint);
    if (used <= 0) return false;
    bytes += used;
    left -= used;
  }
  return true;
}

// Adds one checked entry the way the simple object's typed setters store it.
Result<void> addProperty(OLSimpleObject& object, const std::string& key, const Json& value) {
  auto checked = OLSimpleObject::getCheckedProperty(key, value);
  if (!checked) return checked.error();
  return std::visit(
      [&](const auto& v) -> Result<void> {
        using V = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<V, std::string>) return object.setString(key, v);
        if constexpr (std::is_same_v<V, int64_t>) return object.setInt(key, v);
        if constexpr (std::is_same_v<V, float>) return object.setFloat(key, v);
        if constexpr (std::is_same_v<V, double>) return object.setDouble(key, v);
        if constexpr (std::is_same_v<V, bool>) return object.setBool(key, v);
        if constexpr (std::is_same_v<V, SimpleNull>) return object.setNull(key);
      },
      *checked);
}

}  // namespace

char* copyOut(const std::string& text) {
  auto* copy = static_cast<char*>(std::malloc(text.size() + 1));
  if (!copy) throw std::bad_alloc();
  std::memcpy(copy, text.c_str(), text.size() + 1);
  return copy;
}

ostrel_code_t readText(const char* in, const char* what, std::string& out, ostrel_error_t** error) {
  if (!in) return invalidArgument(error, std::string(what) + " is NULL");
  std::string_view text(in);
  if (!isUtf8(text)) return invalidArgument(error, std::string(what) + " is not UTF-8");
  out.assign(text);
  return OSTREL_OK;
}

ostrel_code_t readOptionalText(const char* in, const char* what, std::optional<std::string>& out,
                               ostrel_error_t** error) {
  out.reset();
  if (!in) return OSTREL_OK;
  std::string text;
  OSTREL_C_CHECK(readText(in, what, text, error));
  out = std::move(text);
  return OSTREL_OK;
}

ostrel_code_t readCustomData(const char* json, const char* what,
                             std::shared_ptr<OLSimpleObject>& out, ostrel_error_t** error) {
  out.reset();
  if (!json) return OSTREL_OK;
  std::string text;
  OSTREL_C_CHECK(readText(json, what, text, error));
  auto parsed = parseJson(text);
  if (!parsed || !parsed->is_object()) {
    return invalidArgument(error, std::string(what) + " is not a JSON object");
  }
  auto object = OLSimpleObject::fromDictionary(Json::object());
  for (const auto& [key, value] : parsed->items()) {
    if (auto added = addProperty(*object, key, value); !added) return fail(error, added.error());
  }
  out = std::move(object);
  return OSTREL_OK;
}

ostrel_code_t needOut(const void* out, const char* what, ostrel_error_t** error) {
  return out ? OSTREL_OK : invalidArgument(error, std::string(what) + " is NULL");
}

}  // namespace ostrel::capi

extern "C" void ostrel_string_free(char* text) {
  std::free(text);
}
