#include "facade/startup_input.h"

#include <utf8proc.h>

#include "transport/connector_builder.h"
#include "transport/ol_connector.h"

namespace ostrel {
namespace {

constexpr std::size_t kAppTextLimit = 256;

bool isPlainText(const std::string& text) {
  if (text.size() > kAppTextLimit || !isValidUtf8(text)) return false;
  auto* p = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
  auto left = static_cast<utf8proc_ssize_t>(text.size());
  while (left > 0) {
    utf8proc_int32_t cp;
    const utf8proc_ssize_t n = utf8proc_iterate(p, left, &cp);
    if (utf8proc_category(cp) == UTF8PROC_CATEGORY_CC) return false;
    p += n;
    left -= n;
  }
  return true;
}

Result<void> checkAppInfo(const AppInfo& app) {
  for (const auto& [field, text] :
       {std::pair<const char*, const std::string&>{"identifier", app.identifier},
        {"version", app.version},
        {"build", app.build}}) {
    if (!isPlainText(text)) {
      // The refused bytes may not be UTF-8, so the extra names the field only.
      return OLError::LocalError(LocalErrorCodes::OstrelInitializationError,
                                 std::string("Invalid application ") + field, std::nullopt,
                                 Json{{"field", field}, {"bytes", text.size()}});
    }
  }
  return {};
}

}  // namespace

Result<void> checkStartupInput(const Platform& platform,
                               const std::optional<ExternalParameters>& dictParameters) {
  if (auto ok = platform.deployment.validate(); !ok) return ok;
  if (auto ok = checkAppInfo(platform.app); !ok) return ok;
  if (!platform.http) {
    if (auto ok = platform.network.validate(); !ok) return ok;
  }
  if (dictParameters) {
    auto group = dictParameters->find(OLExternalParameterKey::DistributionGroup());
    if (group != dictParameters->end()) {
      if (auto ok = ConnectorBuilder::checkDistributionGroup(group->second); !ok) return ok;
    }
  }
  return {};
}

}  // namespace ostrel
