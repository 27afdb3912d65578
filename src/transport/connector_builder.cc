#include "transport/connector_builder.h"

#include <utf8proc.h>

#include "core/ol_default.h"

namespace ostrel {
namespace {
const Key<std::string> kDistributionGroupKey("DistributionGroup");
}  // namespace

ConnectorBuilder::ConnectorBuilder(PlatformRef platform, std::string identifier, std::string secret,
                                   bool isDebug, bool isSandbox, bool isDev, int64_t timeout)
    : platform_(std::move(platform)),
      identifier_(std::move(identifier)),
      secret_(std::move(secret)),
      isDebug_(isDebug),
      isSandbox_(isSandbox),
      isDev_(isDev),
      timeout_(timeout),
      group_(std::make_shared<GroupState>()) {
  OLDefault defaults = OLDefault(platform_->settings);
  auto stored = defaults.get(kDistributionGroupKey);
  // A settings file is outside input too: a group that could break the header
  // (stored by an older version, or edited) is dropped rather than sent.
  if (stored && !checkDistributionGroup(*stored)) {
    logLine(*platform_, "Dropping the stored distribution group: it cannot travel in a header");
    defaults.clear(kDistributionGroupKey);
    stored.reset();
  }
  group_->value = std::move(stored);
}

Result<void> ConnectorBuilder::checkDistributionGroup(const std::string& distributionGroup) {
  bool valid = isValidUtf8(distributionGroup);
  auto* p = reinterpret_cast<const utf8proc_uint8_t*>(distributionGroup.data());
  auto left = static_cast<utf8proc_ssize_t>(distributionGroup.size());
  while (valid && left > 0) {
    utf8proc_int32_t cp;
    const utf8proc_ssize_t n = utf8proc_iterate(p, left, &cp);
    valid = cp != '"' && cp != '\\' && utf8proc_category(cp) != UTF8PROC_CATEGORY_CC;
    p += n;
    left -= n;
  }
  if (valid) return {};
  return OLError::LocalError(LocalErrorCodes::ConnectionValidationError,
                             "Invalid distribution group", std::nullopt,
                             Json{{"distributionGroup", distributionGroup}});
}

Result<void> ConnectorBuilder::setDistributionGroup(
    const std::optional<std::string>& distributionGroup) {
  if (distributionGroup) {
    if (auto ok = checkDistributionGroup(*distributionGroup); !ok) return ok;
  }
  // The settings store never calls back into the library, so holding the lock
  // across its write cannot deadlock; requests only wait for a settings write.
  std::lock_guard lock(group_->mutex);
  OLDefault defaults = OLDefault(platform_->settings);
  if (distributionGroup) {
    if (defaults.get(kDistributionGroupKey) != distributionGroup) {
      defaults.set(*distributionGroup, kDistributionGroupKey);
    }
  } else {
    defaults.clear(kDistributionGroupKey);
  }
  group_->value = distributionGroup;
  return {};
}

std::optional<std::string> ConnectorBuilder::distributionGroup() const {
  std::lock_guard lock(group_->mutex);
  return group_->value;
}

OLConnector ConnectorBuilder::buildConnector() const {
  return OLConnector(
      identifier_, secret_, isDebug_, isSandbox_, isDev_,
      [group = group_]() -> std::optional<std::string> {
        std::lock_guard lock(group->mutex);
        return group->value;
      },
      static_cast<double>(timeout_), platform_);
}

}  // namespace ostrel
