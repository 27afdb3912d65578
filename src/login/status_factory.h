#pragma once
// The run-time status and the user status it carries, made together: the user
// is restored from its store first, and the layers below login read the user's
// token through the status.
#include <memory>

#include "ostrel/result.h"
#include "platform/platform_ref.h"

namespace ostrel {

class ConnectorBuilder;
class DeviceInformation;
class OLSimpleObject;
class OLStatus;
struct OstrelConfiguration;

// Fails with the cause when the user status cannot be restored.
Result<std::shared_ptr<OLStatus>> makeOstrelStatus(
    PlatformRef platform, const OstrelConfiguration& configuration,
    std::shared_ptr<DeviceInformation> devInfo, std::shared_ptr<ConnectorBuilder> connectorBuilder,
    std::shared_ptr<OLSimpleObject> customData);

}  // namespace ostrel
