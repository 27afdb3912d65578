#include "login/status_factory.h"

#include "core/device_information.h"
#include "login/ol_user_status.h"
#include "status/ol_status.h"
#include "transport/connector_builder.h"

namespace ostrel {

Result<std::shared_ptr<OLStatus>> makeOstrelStatus(
    PlatformRef platform, const OstrelConfiguration& configuration,
    std::shared_ptr<DeviceInformation> devInfo, std::shared_ptr<ConnectorBuilder> connectorBuilder,
    std::shared_ptr<OLSimpleObject> customData) {
  auto user =
      OLUserStatus::make(platform, configuration, std::move(connectorBuilder), devInfo->deviceId);
  if (!user) return user.error();
  logLine(*platform, "######Created User with currentToken: " + (*user)->currentUserToken() +
                         " autologinToken:" + (*user)->autologinTokenDescription());
  // The status owns the user, so the token source never outlives it.
  CurrentUserToken token = [user = user->get()] { return user->currentUserToken(); };
  return OLStatus::make(std::move(platform), configuration, std::move(devInfo), std::move(*user),
                        std::move(token), std::move(customData));
}

}  // namespace ostrel
