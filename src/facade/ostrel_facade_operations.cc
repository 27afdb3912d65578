// The facade's operations. Each checks that the component it needs exists and
// reports its absence with OstrelNotInitialized.
#include "facade/ostrel_facade_impl.h"
#include "login/ol_user_status.h"
#include "ostrel/ol_identity_manager.h"
#include "ostrel/ol_login_builder.h"
#include "ostrel/ol_payment_manager.h"
#include "ostrel/ol_push_manager.h"
#include "queue/ol_queue_manager.h"
#include "status/ol_status.h"

namespace ostrel {
namespace {

// A facade whose start stopped half-way lacks some components: a call that
// needs one answers that it is missing rather than reaching through null.
template <class R, class Call>
Result<R> onStatus(const OstrelFacadeImpl& impl, Call&& call) {
  if (!impl._ostrelStatus) return missingInternalStatus();
  return call(*impl._ostrelStatus);
}

template <class R, class Call>
Result<R> onEventQueue(const OstrelFacadeImpl& impl, Call&& call) {
  if (!impl.eventManager) return missingEventQueueManager();
  return call(*impl.eventManager);
}

}  // namespace

Result<std::shared_ptr<OLLoginBuilder>> Ostrel::getLoginBuilder() {
  if (!impl_->_ostrelStatus) return missingInternalStatus();
  return OLLoginBuilder::make(impl_->_ostrelStatus, impl_->_connetionBuilder, impl_->eventManager);
}

Result<void> Ostrel::finalizeLoginFlow() {
  return onStatus<void>(*impl_, [&](OLStatus& status) -> Result<void> {
    if (auto flow = status.runningFlow()) status.freeCurrentRunningFlow(flow.get());
    return {};
  });
}

Result<std::string> Ostrel::getUserToken() {
  return onStatus<std::string>(
      *impl_, [&](OLStatus& status) { return status.userState()->currentUserToken(); });
}

Result<bool> Ostrel::isUserLogged() {
  return onStatus<bool>(*impl_, [&](OLStatus& status) { return status.userState()->isLogged(); });
}

void Ostrel::getUserMetaInfo(DictionaryCallback callback) {
  if (!impl_->_ostrelStatus) return callback(missingInternalStatus(), std::nullopt);
  impl_->_ostrelStatus->userState()->getUserMetaInfo(std::move(callback));
}

Result<void> Ostrel::userLogout() {
  return onStatus<void>(*impl_, [&](OLStatus& status) -> Result<void> {
    const std::string token = status.userState()->currentUserToken();
    status.userState()->logoutUser(
        "explicit", [token, platform = impl_->platform](std::optional<OLError> error) {
          if (!error) logLine(*platform, token + " succesfully logged out");
        });
    return {};
  });
}

Result<void> Ostrel::setOnUserStateChangeListener(std::weak_ptr<UserStateChangeListener> listener) {
  return onStatus<void>(*impl_, [&](OLStatus& status) -> Result<void> {
    status.userState()->setStateChangeListener(std::move(listener));
    return {};
  });
}

void Ostrel::__temporaryUserDelete(ErrorCallback callback) {
  if (!impl_->_ostrelStatus) return callback(missingInternalStatus());
  impl_->_ostrelStatus->userState()->deleteUser(std::move(callback));
}

void Ostrel::generateTransientToken(TokenCallback callback) {
  if (!impl_->_ostrelStatus) return callback(missingInternalStatus(), std::nullopt);
  impl_->_ostrelStatus->userState()->generateTransientToken(std::move(callback));
}

Result<std::string> Ostrel::getSessionId() {
  return onStatus<std::string>(*impl_, [&](OLStatus& status) { return status.sessionId(); });
}

Result<std::shared_ptr<OLIdentityManager>> Ostrel::getIdentityManager() {
  if (!impl_->_ostrelStatus) return missingInternalStatus();
  std::lock_guard lock(impl_->managersMutex);
  if (!impl_->identityManager) {
    impl_->identityManager =
        std::make_shared<OLIdentityManager>(impl_->_ostrelStatus, impl_->_connetionBuilder);
  }
  return impl_->identityManager;
}
Result<std::shared_ptr<OLPushManager>> Ostrel::getPushManager() {
  if (!impl_->_ostrelStatus) return missingInternalStatus();
  if (!impl_->eventManager) return missingEventQueueManager();
  std::lock_guard lock(impl_->managersMutex);
  if (!impl_->pushManager) {
    impl_->pushManager =
        OLPushManager::make(impl_->_ostrelStatus, impl_->_connetionBuilder, impl_->eventManager);
  }
  return impl_->pushManager;
}
Result<std::shared_ptr<OLPaymentManager>> Ostrel::getPaymentManager() {
  if (!impl_->_ostrelStatus) return missingInternalStatus();
  std::lock_guard lock(impl_->managersMutex);
  if (!impl_->paymentManager) {
    impl_->paymentManager = std::make_shared<OLPaymentManager>(
        impl_->_ostrelStatus,
        std::make_shared<OLConnector>(impl_->_connetionBuilder->buildConnector()));
  }
  return impl_->paymentManager;
}

Result<void> Ostrel::sendEvent(const std::string& name,
                               std::shared_ptr<OLSimpleObject> customData) {
  return onEventQueue<void>(*impl_, [&](OLQueueManager& manager) {
    return manager.addEvent(name, EventType(_EventType::Custom), std::move(customData));
  });
}
Result<void> Ostrel::timedEventStart(const std::string& name,
                                     std::shared_ptr<OLSimpleObject> customData) {
  return onEventQueue<void>(*impl_, [&](OLQueueManager& manager) {
    return manager.addEvent(name, EventType(_EventType::TimerStart), std::move(customData));
  });
}
Result<void> Ostrel::timedEventStop(const std::string& name,
                                    std::shared_ptr<OLSimpleObject> customData) {
  return onEventQueue<void>(*impl_, [&](OLQueueManager& manager) {
    return manager.addEvent(name, EventType(_EventType::TimerStop), std::move(customData));
  });
}
Result<void> Ostrel::flowBegin(const std::string& name,
                               std::shared_ptr<OLSimpleObject> customData) {
  return onEventQueue<void>(*impl_, [&](OLQueueManager& manager) {
    return manager.addEvent(name, EventType(_EventType::FlowBegin), std::move(customData));
  });
}
Result<void> Ostrel::flowStep(const std::string& name, std::shared_ptr<OLSimpleObject> customData) {
  return onEventQueue<void>(*impl_, [&](OLQueueManager& manager) {
    return manager.addEvent(name, EventType(_EventType::FlowStep), std::move(customData));
  });
}
Result<void> Ostrel::flowSucceed(const std::string& reason,
                                 std::shared_ptr<OLSimpleObject> customData) {
  return onEventQueue<void>(*impl_, [&](OLQueueManager& manager) {
    return manager.addEvent(reason, EventType(_EventType::FlowSucceed), std::move(customData));
  });
}
Result<void> Ostrel::flowFail(const std::string& reason,
                              std::shared_ptr<OLSimpleObject> customData) {
  return onEventQueue<void>(*impl_, [&](OLQueueManager& manager) {
    return manager.addEvent(reason, EventType(_EventType::FlowFail), std::move(customData));
  });
}
Result<void> Ostrel::flowCancel(const std::string& reason,
                                std::shared_ptr<OLSimpleObject> customData) {
  return onEventQueue<void>(*impl_, [&](OLQueueManager& manager) {
    return manager.addEvent(reason, EventType(_EventType::FlowCancel), std::move(customData));
  });
}
Result<bool> Ostrel::isTimedEventRunning(const std::string& name) {
  return onEventQueue<bool>(
      *impl_, [&](OLQueueManager& manager) { return manager.isTimedEventRunning(name); });
}
Result<bool> Ostrel::isAnalyticFlowBegun() {
  return onEventQueue<bool>(*impl_,
                            [&](OLQueueManager& manager) { return manager.isAnalyticFlowBegun(); });
}
Result<std::string> Ostrel::getCurrentAnalyticFlowName() {
  return onEventQueue<std::string>(*impl_, [&](OLQueueManager& manager) -> Result<std::string> {
    if (auto name = manager.currentFlowName()) return *name;
    return OLError::LocalError(LocalErrorCodes::InvalidEvent, "Flow was never begun");
  });
}
Result<void> Ostrel::rankContent(const std::string& contentId, const RankingScope& scope,
                                 float multiplier) {
  return onEventQueue<void>(*impl_, [&](OLQueueManager& manager) {
    return manager.addRankContentEvent(contentId, scope, multiplier);
  });
}
Result<void> Ostrel::attachMasterSession(const std::string& masterSessionId,
                                         const std::string& masterUserId,
                                         std::shared_ptr<OLSimpleObject> customData) {
  return onEventQueue<void>(*impl_, [&](OLQueueManager& manager) {
    return manager.addAttachSessionEvent(AttachType::master, masterSessionId, masterUserId,
                                         std::move(customData));
  });
}
Result<void> Ostrel::attachSession(const std::string& attachedSessionId,
                                   const std::optional<std::string>& attachedUserId,
                                   AttachType attachType,
                                   std::shared_ptr<OLSimpleObject> customData) {
  return onEventQueue<void>(*impl_, [&](OLQueueManager& manager) {
    return manager.addAttachSessionEvent(attachType, attachedSessionId, attachedUserId,
                                         std::move(customData));
  });
}
void Ostrel::flushEvents(DictionaryCallback callback) {
  if (!impl_->eventManager) return callback(missingEventQueueManager(), std::nullopt);
  impl_->eventManager->flushEvents(std::move(callback));
}

bool Ostrel::waitUntilPersisted(std::chrono::milliseconds timeout) {
  return impl_->eventManager && impl_->eventManager->waitUntilPersisted(timeout);
}

void Ostrel::shutdown(std::chrono::milliseconds timeout) {
  if (impl_->eventManager) impl_->eventManager->shutdown(timeout);
}

void Ostrel::syncUserState(ErrorCallback callback) {
  if (!impl_->_ostrelStatus) return callback(missingInternalStatus());
  auto builder =
      OLLoginBuilder::make(impl_->_ostrelStatus, impl_->_connetionBuilder, impl_->eventManager);
  impl_->_ostrelStatus->userState()->syncUserState(impl_->_ostrelStatus, builder,
                                                   std::move(callback));
}

}  // namespace ostrel
