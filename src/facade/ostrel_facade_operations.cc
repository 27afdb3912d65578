// The facade's operations. Each checks that the component it needs exists and
// reports its absence with OstrelNotInitialized.
#include "core/answer_off_caller.h"
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

std::shared_ptr<OLLoginBuilder> OstrelFacadeImpl::makeLoginBuilder() const {
  return OLLoginBuilder::make(_ostrelStatus, _connetionBuilder, eventManager);
}

std::shared_ptr<OLIdentityManager> OstrelFacadeImpl::identity() {
  std::lock_guard lock(managersMutex);
  if (!identityManager) {
    identityManager =
        std::shared_ptr<OLIdentityManager>(new OLIdentityManager(_ostrelStatus, _connetionBuilder));
  }
  return identityManager;
}

std::shared_ptr<OLPushManager> OstrelFacadeImpl::push() {
  std::lock_guard lock(managersMutex);
  if (!pushManager)
    pushManager = OLPushManager::make(_ostrelStatus, _connetionBuilder, eventManager);
  return pushManager;
}

std::shared_ptr<OLPaymentManager> OstrelFacadeImpl::payment() {
  std::lock_guard lock(managersMutex);
  if (!paymentManager) {
    paymentManager = std::shared_ptr<OLPaymentManager>(new OLPaymentManager(
        _ostrelStatus, std::make_shared<OLConnector>(_connetionBuilder->buildConnector())));
  }
  return paymentManager;
}

Result<std::shared_ptr<OLLoginBuilder>> Ostrel::getLoginBuilder() {
  if (!impl_->_ostrelStatus) return missingInternalStatus();
  return impl_->makeLoginBuilder();
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
  AnswerOffCaller<std::optional<OLError>, std::optional<Json>> answer(impl_->platform,
                                                                      std::move(callback));
  if (!impl_->_ostrelStatus) return answer.callback()(missingInternalStatus(), std::nullopt);
  impl_->_ostrelStatus->userState()->getUserMetaInfo(answer.callback());
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
  AnswerOffCaller<std::optional<OLError>> answer(impl_->platform, std::move(callback));
  if (!impl_->_ostrelStatus) return answer.callback()(missingInternalStatus());
  impl_->_ostrelStatus->userState()->deleteUser(answer.callback());
}

void Ostrel::generateTransientToken(TokenCallback callback) {
  AnswerOffCaller<std::optional<OLError>, std::optional<std::string>> answer(impl_->platform,
                                                                             std::move(callback));
  if (!impl_->_ostrelStatus) return answer.callback()(missingInternalStatus(), std::nullopt);
  impl_->_ostrelStatus->userState()->generateTransientToken(answer.callback());
}

Result<std::string> Ostrel::getSessionId() {
  return onStatus<std::string>(*impl_, [&](OLStatus& status) { return status.sessionId(); });
}

Result<std::shared_ptr<OLIdentityManager>> Ostrel::getIdentityManager() {
  if (!impl_->_ostrelStatus) return missingInternalStatus();
  return impl_->identity();
}
Result<std::shared_ptr<OLPushManager>> Ostrel::getPushManager() {
  if (!impl_->_ostrelStatus) return missingInternalStatus();
  if (!impl_->eventManager) return missingEventQueueManager();
  return impl_->push();
}
Result<std::shared_ptr<OLPaymentManager>> Ostrel::getPaymentManager() {
  if (!impl_->_ostrelStatus) return missingInternalStatus();
  return impl_->payment();
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
  AnswerOffCaller<std::optional<OLError>, std::optional<Json>> answer(impl_->platform,
                                                                      std::move(callback));
  if (!impl_->eventManager) return answer.callback()(missingEventQueueManager(), std::nullopt);
  impl_->eventManager->flushEvents(answer.callback());
}

bool Ostrel::waitUntilPersisted(std::chrono::milliseconds timeout) {
  return impl_->eventManager && impl_->eventManager->waitUntilPersisted(timeout);
}

void Ostrel::shutdown(std::chrono::milliseconds timeout) {
  if (impl_->eventManager) impl_->eventManager->shutdown(timeout);
}

void Ostrel::syncUserState(ErrorCallback callback) {
  AnswerOffCaller<std::optional<OLError>> answer(impl_->platform, std::move(callback));
  if (!impl_->_ostrelStatus) return answer.callback()(missingInternalStatus());
  impl_->_ostrelStatus->userState()->syncUserState(impl_->_ostrelStatus, impl_->makeLoginBuilder(),
                                                   answer.callback());
}

}  // namespace ostrel
