#include <atomic>
#include <mutex>

#include "core/device_information.h"
#include "facade/ostrel_facade_impl.h"
#include "facade/startup_input.h"
#include "login/ol_user_status.h"
#include "login/status_factory.h"
#include "platform/defaults.h"
#include "queue/ol_queue_manager.h"
#include "status/ol_status.h"

namespace ostrel {
namespace {

// The process-wide instance. The flag is set once and never cleared: a
// construction that produced nothing leaves every later attempt failing.
std::mutex g_instanceMutex;
// The instance lives for the whole process and is never torn down.
std::shared_ptr<Ostrel>& g_instance = *new std::shared_ptr<Ostrel>();
std::atomic<bool> g_initializing{false};

}  // namespace

const std::string& Ostrel::versionString() {
  // VCS tag, commit and build date, computed once. Never destroyed: a queue
  // thread may still describe the device while the process exits.
  static const std::string& version = *new std::string([] {
    std::string v = "v4.1.1";
    v.append(" ").append("7f9b2c0").append(" ").append("2021-04-30T16:40:40+0200");
    return v;
  }());
  return version;
}

Ostrel::Ostrel(std::unique_ptr<OstrelFacadeImpl> impl) : impl_(std::move(impl)) {}
Ostrel::~Ostrel() = default;

Result<std::shared_ptr<Ostrel>> Ostrel::makeUnshared(
    const std::string& conf, std::shared_ptr<OLSimpleObject> customData,
    const std::optional<ExternalParameters>& dictParameters, Platform platform) {
  if (auto ok = checkStartupInput(platform, dictParameters); !ok) return ok.error();
  const auto services = std::make_shared<const Platform>(platform.completed());
  auto impl = std::make_unique<OstrelFacadeImpl>(
      services, conf,
      OstrelEnvironment(conf, OLDeviceUtils::isDevelopmentApp(*services->deviceFacts),
                        *services->log));
  impl->_deviceInfo = std::make_shared<DeviceInformation>(services->deviceFacts->snapshot());
  // The service knows the installation by its device identifier.
  impl->_connetionBuilder = std::make_shared<ConnectorBuilder>(
      services, impl->_deviceInfo->deviceId, conf, impl->_environment.isDebug(),
      impl->_environment.isSandbox(), impl->_environment.isDev(),
      impl->_conf.connectionTimeoutSecs);
  auto status = makeOstrelStatus(services, impl->_conf, impl->_deviceInfo, impl->_connetionBuilder,
                                 customData);
  if (!status) {
    // The host sees why (a stored item that cannot be read names its file) and
    // can start afresh with resetStorage.
    const OLError& cause = status.error();
    logLine(*services, "Cannot initialize singleton: " + cause.description());
    return OLError::LocalError(
        LocalErrorCodes::OstrelNotInitialized, "Cannot initialize singleton", std::nullopt,
        Json{{"error", cause.description()}, {"cause", cause.extra() ? *cause.extra() : Json()}});
  }
  impl->_ostrelStatus = std::move(*status);
  impl->eventManager =
      OLQueueManager::make(services, impl->_connetionBuilder, impl->_conf, impl->_ostrelStatus);
  // Logouts and deletions are recorded as logout events.
  std::weak_ptr<OLQueueManager> manager = impl->eventManager;
  impl->_ostrelStatus->userState()->setLogoutEventSink(
      [manager, services](const std::string& userId, const std::string& logoutType) {
        auto m = manager.lock();
        auto type = logoutTypeFromRaw(logoutType);
        if (!m || !type) return;
        if (auto queued = m->generateLogout(userId, IdentificationType::logout(*type)); !queued) {
          logLine(*services, "Error in logout event " + queued.error().description());
        }
      });
  auto facade = std::shared_ptr<Ostrel>(new Ostrel(std::move(impl)));
  OstrelFacadeImpl& f = *facade->impl_;
  logLine(*services, "########Initialized Ostrel with Session: " + f._ostrelStatus->sessionId() +
                         " environment " + facade->environmentString() + "#######");
  f.setupExternalParamenters(dictParameters);
  f.startSession();
  f.startAutologin();
  f.observeLifeCycle(facade);
  return facade;
}

Result<std::shared_ptr<Ostrel>> Ostrel::getSharedInstanceWithConfig(
    const std::string& conf, std::shared_ptr<OLSimpleObject> customData,
    const std::optional<ExternalParameters>& dictParameters, Platform platform) {
  {
    std::lock_guard lock(g_instanceMutex);
    if (g_instance) {
      return OLError::LocalError(LocalErrorCodes::OstrelInitializationError,
                                 "Ostrel Already Initialized. Must call getSharedInstance");
    }
  }
  // Refused before the one attempt is spent, so that the host can correct it.
  if (auto ok = checkStartupInput(platform, dictParameters); !ok) return ok.error();
  if (g_initializing.exchange(true)) {
    return notInitialized("Concurrent Initialization of singleton");
  }
  auto made = makeUnshared(conf, std::move(customData), dictParameters, std::move(platform));
  if (!made) return made.error();
  std::lock_guard lock(g_instanceMutex);
  g_instance = *made;
  return g_instance;
}

Result<void> Ostrel::resetStorage(Platform platform) {
  {
    std::lock_guard lock(g_instanceMutex);
    if (g_instance) {
      return OLError::LocalError(LocalErrorCodes::OstrelInitializationError,
                                 "Cannot reset the storage of a running instance");
    }
  }
  auto files = platform.files ? platform.files
                              : platform::makePosixFileSystem(
                                    platform.storageRoot.value_or(platform::defaultStorageRoot()));
  const std::string root = files->storageRoot();
  if (auto removed = files->removeAll(root); !removed) return removed;
  (platform.log ? platform.log : platform::makeStdoutLogSink())->write("Deleted " + root);
  return {};
}

Result<std::shared_ptr<Ostrel>> Ostrel::getSharedInstance() {
  std::lock_guard lock(g_instanceMutex);
  if (!g_instance) return notInitialized("Must call getSharedInstanceWithConfig first");
  return g_instance;
}

std::string Ostrel::environmentString() const {
  return std::string("PROD-") + (impl_->_environment.isSandbox() ? "SANDBOX" : "RELEASE");
}

Result<void> Ostrel::setDistributionGroup(const std::string& distributionGroup) {
  return impl_->_connetionBuilder->setDistributionGroup(distributionGroup);
}

void Ostrel::unSetDistributionGroup() {
  (void)impl_->_connetionBuilder->setDistributionGroup(std::nullopt);  // clearing never fails
}

}  // namespace ostrel
