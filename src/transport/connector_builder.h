#pragma once
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "ostrel/result.h"
#include "platform/platform_ref.h"
#include "transport/ol_connector.h"

namespace ostrel {

// Makes the signed connectors of one facade. Its only mutable state is the
// distribution group, mirrored in the settings under "DistributionGroup".
class ConnectorBuilder {
 public:
  // Reaches the service of the platform's deployment; the group is kept in its settings.
  ConnectorBuilder(PlatformRef platform, std::string identifier, std::string secret, bool isDebug,
                   bool isSandbox, bool isDev, int64_t timeout);

  // Any thread. A group travels inside the Authorization header: one with a
  // control character, a double quote or a backslash (or that is not UTF-8) is
  // refused with ConnectionValidationError "Invalid distribution group", and
  // nothing changes. Absent clears it.
  Result<void> setDistributionGroup(const std::optional<std::string>& distributionGroup);
  std::optional<std::string> distributionGroup() const;

  // Whether a group can travel in the header as it is.
  static Result<void> checkDistributionGroup(const std::string& distributionGroup);

  OLConnector buildConnector() const;

  const std::string& identifier() const { return identifier_; }
  bool isDebug() const { return isDebug_; }
  bool isSandbox() const { return isSandbox_; }
  bool isDev() const { return isDev_; }
  int64_t timeout() const { return timeout_; }
  const Deployment& deployment() const { return platform_->deployment; }

 private:
  struct GroupState {
    // Also held while a setter compares and writes the settings, so that the
    // value in memory is always the one last stored.
    mutable std::mutex mutex;
    std::optional<std::string> value;
  };

  PlatformRef platform_;
  std::string identifier_;
  std::string secret_;
  bool isDebug_;
  bool isSandbox_;
  bool isDev_;
  int64_t timeout_;
  // Shared with every connector, so a group set later is used by their next request.
  std::shared_ptr<GroupState> group_;
};

}  // namespace ostrel
