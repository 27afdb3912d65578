// The facade's start-up steps after its components exist: external parameters,
// the session start and its refresh, the start-up autologin, the life cycle.
#include "core/device_information.h"
#include "facade/ostrel_facade_impl.h"
#include "login/ol_auto_login_flow.h"
#include "login/ol_user_status.h"
#include "ostrel/notification_center.h"
#include "ostrel/ol_login_builder.h"
#include "ostrel/ol_push_manager.h"
#include "queue/ol_queue_manager.h"
#include "status/ol_status.h"

namespace ostrel {

OstrelFacadeImpl::~OstrelFacadeImpl() {
  if (refreshObserver) NotificationCenter::defaultCenter().removeObserver(refreshObserver);
  if (lifeCycleObserver) platform->lifeCycle->removeObserver(lifeCycleObserver);
  // Others may still hold the manager (a login flow under way): stop it now.
  if (eventManager) eventManager->shutdown(std::chrono::milliseconds(1000));
  if (_ostrelStatus) _ostrelStatus->userState()->closeStorage();
}

void OstrelFacadeImpl::setupExternalParamenters(
    const std::optional<ExternalParameters>& dictParameters) {
  if (!dictParameters) return;
  for (const auto& [key, value] : *dictParameters) {
    if (key.isDistributionGroup()) {
      // Checked with the rest of the start-up input before anything was built.
      (void)_connetionBuilder->setDistributionGroup(value);
    } else {
      // Custom parameters are kept in the settings under their own key.
      platform->settings->set("ExternalParameter." + key.rawValue(), value);
    }
  }
}

void OstrelFacadeImpl::startSession() {
  std::weak_ptr<OLQueueManager> manager = eventManager;
  _ostrelStatus->setSessionStartGenerator(
      [manager](const std::string& sessionId, const DeviceInformation& deviceInfo,
                bool isFirstStart, std::shared_ptr<OLSimpleObject> customData,
                const std::optional<std::string>& refreshedSession) -> Result<void> {
        auto m = manager.lock();
        if (!m) return {};
        return m->generateSessionStart(sessionId, deviceInfo, isFirstStart, std::move(customData),
                                       refreshedSession);
      });
  _ostrelStatus->generateSessionStart(std::nullopt);
  std::weak_ptr<OLStatus> status = _ostrelStatus;
  refreshObserver = NotificationCenter::defaultCenter().addObserver(
      "refresh_session", "io.ostrel.refreshSession", eventManager.get(),
      [status, platform = platform](const Notification& n) {
        const auto* error = std::any_cast<std::optional<OLError>>(&n.object);
        if (error && *error) {
          logLine(*platform, "Error in Analytic event add " + (*error)->description());
          return;
        }
        logLine(*platform, "Refresh Session");
        if (auto s = status.lock()) s->rawSessionId().setLastUpdate(platform->clock->now());
      });
}

void OstrelFacadeImpl::observeLifeCycle(std::weak_ptr<Ostrel> facade) {
  terminateQueue = platform->scheduler->makeSerialQueue("io.ostrel.AppWillTerminate");
  std::weak_ptr<OLQueueManager> manager = eventManager;
  lifeCycleObserver = platform->lifeCycle->addObserver(
      [facade, manager, queue = terminateQueue](platform::LifeCycleEvent event) {
        auto self = facade.lock();
        auto m = manager.lock();
        if (!self || !m) return;
        switch (event) {
          case platform::LifeCycleEvent::DidEnterBackground:
            m->libraryGoToBackground();
            break;
          case platform::LifeCycleEvent::WillEnterForeground:
          case platform::LifeCycleEvent::DidFinishLaunching:
            m->libraryGoToForeground();
            break;
          case platform::LifeCycleEvent::WillTerminate: {
            std::shared_ptr<OLPushManager> push;
            {
              OstrelFacadeImpl& parts = OstrelFacadeImpl::of(*self);
              std::lock_guard lock(parts.managersMutex);
              push = parts.pushManager;
            }
            // The process is about to end: the push reminder, then the orderly
            // shutdown, which writes whatever was accepted and abandons the
            // network (what is queued goes at the next start).
            queue->async([push, manager] {
              if (push) push->terminationActions();
              if (auto mm = manager.lock()) mm->shutdown(std::chrono::milliseconds(1000));
            });
            break;
          }
        }
      });
}

}  // namespace ostrel

namespace ostrel {

void OstrelFacadeImpl::startAutologin() {
  auto builder = makeLoginBuilder();
  // The flush asks for an autologin when the service answers 205.
  std::weak_ptr<OLStatus> status = _ostrelStatus;
  std::weak_ptr<OLQueueManager> manager = eventManager;
  std::shared_ptr<ConnectorBuilder> connectors = _connetionBuilder;
  eventManager->setAutologinStarter([status, manager, connectors, platform = platform] {
    auto s = status.lock();
    if (!s) return;
    auto b = OLLoginBuilder::make(s, connectors, manager);
    b->setOnFlowCompleteCallback([platform](std::optional<OLError> error) {
      if (error) {
        logLine(*platform, "Analytic Autologin flow finished with error " + error->description());
      }
    });
    auto flow = b->getAutoLoginFlow();
    if (!flow) {
      logLine(*platform, "Fail in Autologin Flow Build with error " + flow.error().description());
      return;
    }
    (*flow)->startLoginFlow();
  });
  auto flow = builder->getAutoLoginFlow();
  if (!flow) {
    logLine(*platform,
            "Fail in Startup Autologin Flow Build with error " + flow.error().description());
    return;
  }
  (*flow)->startLoginFlow();
}

}  // namespace ostrel
