// The facade's operations. Each checks that the component it needs exists and
// reports its absence with OstrelNotInitialized.
#include "facade/ostrel_facade_impl.h"
#include "login/ol_user_status.h"
#include "ostrel/ol_identity_manager.h"
#include "ostrel/ol_login_builder.h"
#include "ostrel/ol_payment_manager.h"
#include "ostrel/ol_push_manager.h"
#include "platform/runtime.h"
#include "queue/ol_queue_manager.h"
#include "status/ol_status.h"

namespace ostrel {
namespace {

#define OSTREL_NEED_STATUS()                                 \
  if (!impl_->_ostrelStatus) return missingInternalStatus(); \
  auto& status = *impl_->_ostrelStatus;                      \
  (void)status
#define OSTREL_NEED_QUEUE()                                    \
  if (!impl_->eventManager) return missingEventQueueManager(); \
  auto& manager = *impl_->eventManager;                        \
  (void)manager

}  // namespace

Result<std::shared_ptr<OLLoginBuilder>> Ostrel::getLoginBuilder() {
  OSTREL_NEED_STATUS();
  return OLLoginBuilder::make(impl_->_ostrelStatus, impl_->_connetionBuilder, impl_->eventManager);
}

Result<void> Ostrel::finalizeLoginFlow() {
  OSTREL_NEED_STATUS();
  if (auto flow = status.runningFlow()) status.freeCurrentRunningFlow(flow.get());
  return {};
}

Result<std::string> Ostrel::getUserToken() {
  OSTREL_NEED_STATUS();
  return status.userState()->currentUserToken();
}

Result<bool> Ostrel::isUserLogged() {
  OSTREL_NEED_STATUS();
  return status.userState()->isLogged();
}

void Ostrel::getUserMetaInfo(DictionaryCallback callback) {
  if (!impl_->_ostrelStatus) return callback(missingInternalStatus(), std::nullopt);
  impl_->_ostrelStatus->userState()->getUserMetaInfo(std::move(callback));
}

Result<void> Ostrel::userLogout() {
  OSTREL_NEED_STATUS();
  const std::string token = status.userState()->currentUserToken();
  status.userState()->logoutUser("explicit", [token](std::optional<OLError> error) {
    if (!error) logLine(token + " succesfully logged out");
  });
  return {};
}

Result<void> Ostrel::setOnUserStateChangeListener(std::weak_ptr<UserStateChangeListener> listener) {
  OSTREL_NEED_STATUS();
  status.userState()->setStateChangeListener(std::move(listener));
  return {};
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
  OSTREL_NEED_STATUS();
  return status.sessionId();
}

Result<std::shared_ptr<OLIdentityManager>> Ostrel::getIdentityManager() {
  OSTREL_NEED_STATUS();
  std::lock_guard lock(impl_->managersMutex);
  if (!impl_->identityManager) {
    impl_->identityManager =
        std::make_shared<OLIdentityManager>(impl_->_ostrelStatus, impl_->_connetionBuilder);
  }
  return impl_->identityManager;
}
Result<std::shared_ptr<OLPushManager>> Ostrel::getPushManager() {
  OSTREL_NEED_STATUS();
  if (!impl_->eventManager) return missingEventQueueManager();
  std::lock_guard lock(impl_->managersMutex);
  if (!impl_->pushManager) {
    impl_->pushManager =
        OLPushManager::make(impl_->_ostrelStatus, impl_->_connetionBuilder, impl_->eventManager);
  }
  return impl_->pushManager;
}
Result<std::shared_ptr<OLPaymentManager>> Ostrel::getPaymentManager() {
  OSTREL_NEED_STATUS();
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
  OSTREL_NEED_QUEUE();
  return manager.addEvent(name, EventType(_EventType::Custom), std::move(customData));
}
Result<void> Ostrel::timedEventStart(const std::string& name,
                                     std::shared_ptr<OLSimpleObject> customData) {
  OSTREL_NEED_QUEUE();
  return manager.addEvent(name, EventType(_EventType::TimerStart), std::move(customData));
}
Result<void> Ostrel::timedEventStop(const std::string& name,
                                    std::shared_ptr<OLSimpleObject> customData) {
  OSTREL_NEED_QUEUE();
  return manager.addEvent(name, EventType(_EventType::TimerStop), std::move(customData));
}
Result<void> Ostrel::flowBegin(const std::string& name,
                               std::shared_ptr<OLSimpleObject> customData) {
  OSTREL_NEED_QUEUE();
  return manager.addEvent(name, EventType(_EventType::FlowBegin), std::move(customData));
}
Result<void> Ostrel::flowStep(const std::string& name, std::shared_ptr<OLSimpleObject> customData) {
  OSTREL_NEED_QUEUE();
  return manager.addEvent(name, EventType(_EventType::FlowStep), std::move(customData));
}
Result<void> Ostrel::flowSucceed(const std::string& reason,
                                 std::shared_ptr<OLSimpleObject> customData) {
  OSTREL_NEED_QUEUE();
  return manager.addEvent(reason, EventType(_EventType::FlowSucceed), std::move(customData));
}
Result<void> Ostrel::flowFail(const std::string& reason,
                              std::shared_ptr<OLSimpleObject> customData) {
  OSTREL_NEED_QUEUE();
  return manager.addEvent(reason, EventType(_EventType::FlowFail), std::move(customData));
}
Result<void> Ostrel::flowCancel(const std::string& reason,
                                std::shared_ptr<OLSimpleObject> customData) {
  OSTREL_NEED_QUEUE();
  return manager.addEvent(reason, EventType(_EventType::FlowCancel), std::move(customData));
}
Result<bool> Ostrel::isTimedEventRunning(const std::string& name) {
  OSTREL_NEED_QUEUE();
  return manager.isTimedEventRunning(name);
}
Result<bool> Ostrel::isAnalyticFlowBegun() {
  OSTREL_NEED_QUEUE();
  return manager.isAnalyticFlowBegun();
}
Result<std::string> Ostrel::getCurrentAnalyticFlowName() {
  OSTREL_NEED_QUEUE();
  if (auto name = manager.currentFlowName()) return *name;
  return OLError::LocalError(LocalErrorCodes::InvalidEvent, "Flow was never begun");
}
Result<void> Ostrel::rankContent(const std::string& contentId, const RankingScope& scope,
                                 float multiplier) {
  OSTREL_NEED_QUEUE();
  return manager.addRankContentEvent(contentId, scope, multiplier);
}
Result<void> Ostrel::attachMasterSession(const std::string& masterSessionId,
                                         const std::string& masterUserId,
                                         std::shared_ptr<OLSimpleObject> customData) {
  OSTREL_NEED_QUEUE();
  return manager.addAttachSessionEvent(AttachType::master, masterSessionId, masterUserId,
                                       std::move(customData));
}
Result<void> Ostrel::attachSession(const std::string& attachedSessionId,
                                   const std::optional<std::string>& attachedUserId,
                                   AttachType attachType,
                                   std::shared_ptr<OLSimpleObject> customData) {
  OSTREL_NEED_QUEUE();
  return manager.addAttachSessionEvent(attachType, attachedSessionId, attachedUserId,
                                       std::move(customData));
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
