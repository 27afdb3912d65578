#pragma once
// What the facade owns. The fields keep the system's names; a component that is
// absent makes the operations that need it fail with OstrelNotInitialized.
#include <memory>
#include <mutex>
#include <string>

#include "core/missing_component.h"
#include "core/ostrel_configuration.h"
#include "core/ostrel_environment.h"
#include "ostrel/ostrel.h"
#include "platform/platform_ref.h"
#include "transport/connector_builder.h"

namespace ostrel {

class DeviceInformation;
class OLStatus;
class OLQueueManager;

class OstrelFacadeImpl {
 public:
  OstrelFacadeImpl(PlatformRef platform, std::string secret, OstrelEnvironment environment)
      : platform(std::move(platform)), _environment(environment), _secret(std::move(secret)) {}
  ~OstrelFacadeImpl();

  // Construction steps after the components exist.
  void setupExternalParamenters(const std::optional<ExternalParameters>& dictParameters);
  void startSession();
  void startAutologin();
  // The observer holds the facade weakly: one destroyed meanwhile is left alone.
  void observeLifeCycle(std::weak_ptr<Ostrel> facade);

  // The parts of a facade, which keeps them out of the public header.
  static OstrelFacadeImpl& of(Ostrel& facade) { return *facade.impl_; }

  // The components only the facade makes (their factories take the parts
  // above). The managers are made on first request, then kept.
  std::shared_ptr<OLLoginBuilder> makeLoginBuilder() const;
  std::shared_ptr<OLIdentityManager> identity();
  std::shared_ptr<OLPushManager> push();
  std::shared_ptr<OLPaymentManager> payment();

  // The host's platform, completed once; every component of this facade shares
  // it, and no other facade's.
  const PlatformRef platform;
  std::shared_ptr<OLStatus> _ostrelStatus;
  std::shared_ptr<OLQueueManager> eventManager;
  OstrelEnvironment _environment;
  OstrelConfiguration _conf;
  std::string _secret;
  std::shared_ptr<ConnectorBuilder> _connetionBuilder;
  std::shared_ptr<DeviceInformation> _deviceInfo;
  std::shared_ptr<OLPushManager> pushManager;
  std::shared_ptr<OLPaymentManager> paymentManager;
  std::shared_ptr<OLIdentityManager> identityManager;
  // Guards the managers created on first request.
  std::mutex managersMutex;
  uint64_t refreshObserver = 0;
  int lifeCycleObserver = 0;
  std::shared_ptr<platform::SerialQueue> terminateQueue;
};

}  // namespace ostrel
