// The facade's operations. Each checks that the component it needs exists and
// reports its absence with OstrelNotInitialized.
#include "core/ostrel_facade_impl.h"

namespace ostrel {

// Users and login need the run-time status.
Result<std::shared_ptr<OLLoginBuilder>> Ostrel::getLoginBuilder() {
  return missingInternalStatus();
}
Result<void> Ostrel::finalizeLoginFlow() {
  return missingInternalStatus();
}
Result<std::string> Ostrel::getUserToken() {
  return missingInternalStatus();
}
Result<bool> Ostrel::isUserLogged() {
  return missingInternalStatus();
}
void Ostrel::getUserMetaInfo(DictionaryCallback callback) {
  callback(missingInternalStatus(), std::nullopt);
}
Result<void> Ostrel::userLogout() {
  return missingInternalStatus();
}
Result<void> Ostrel::setOnUserStateChangeListener(std::weak_ptr<UserStateChangeListener>) {
  return missingInternalStatus();
}
void Ostrel::syncUserState(ErrorCallback callback) {
  callback(missingInternalStatus());
}
void Ostrel::__temporaryUserDelete(ErrorCallback callback) {
  callback(missingInternalStatus());
}
void Ostrel::generateTransientToken(TokenCallback callback) {
  callback(missingInternalStatus(), std::nullopt);
}
Result<std::shared_ptr<OLIdentityManager>> Ostrel::getIdentityManager() {
  return missingInternalStatus();
}
Result<std::string> Ostrel::getSessionId() {
  return missingInternalStatus();
}
Result<std::shared_ptr<OLPushManager>> Ostrel::getPushManager() {
  return missingInternalStatus();
}
Result<std::shared_ptr<OLPaymentManager>> Ostrel::getPaymentManager() {
  return missingInternalStatus();
}

// Analytics needs the event queue manager.
Result<void> Ostrel::sendEvent(const std::string&, std::shared_ptr<OLSimpleObject>) {
  return missingEventQueueManager();
}
Result<void> Ostrel::timedEventStart(const std::string&, std::shared_ptr<OLSimpleObject>) {
  return missingEventQueueManager();
}
Result<void> Ostrel::timedEventStop(const std::string&, std::shared_ptr<OLSimpleObject>) {
  return missingEventQueueManager();
}
Result<void> Ostrel::flowBegin(const std::string&, std::shared_ptr<OLSimpleObject>) {
  return missingEventQueueManager();
}
Result<void> Ostrel::flowStep(const std::string&, std::shared_ptr<OLSimpleObject>) {
  return missingEventQueueManager();
}
Result<void> Ostrel::flowSucceed(const std::string&, std::shared_ptr<OLSimpleObject>) {
  return missingEventQueueManager();
}
Result<void> Ostrel::flowFail(const std::string&, std::shared_ptr<OLSimpleObject>) {
  return missingEventQueueManager();
}
Result<void> Ostrel::flowCancel(const std::string&, std::shared_ptr<OLSimpleObject>) {
  return missingEventQueueManager();
}
Result<bool> Ostrel::isTimedEventRunning(const std::string&) {
  return missingEventQueueManager();
}
Result<bool> Ostrel::isAnalyticFlowBegun() {
  return missingEventQueueManager();
}
Result<std::string> Ostrel::getCurrentAnalyticFlowName() {
  return missingEventQueueManager();
}
Result<void> Ostrel::rankContent(const std::string&, const RankingScope&, float) {
  return missingEventQueueManager();
}
Result<void> Ostrel::attachMasterSession(const std::string&, const std::string&,
                                         std::shared_ptr<OLSimpleObject>) {
  return missingEventQueueManager();
}
Result<void> Ostrel::attachSession(const std::string&, const std::optional<std::string>&,
                                   AttachType, std::shared_ptr<OLSimpleObject>) {
  return missingEventQueueManager();
}
void Ostrel::flushEvents(DictionaryCallback callback) {
  callback(missingEventQueueManager(), std::nullopt);
}

}  // namespace ostrel
