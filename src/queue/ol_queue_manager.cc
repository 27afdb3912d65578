#include "queue/ol_queue_manager.h"

#include "core/device_information.h"
#include "core/ol_status.h"
#include "events/content_events.h"
#include "events/internal_events.h"
#include "events/push_events.h"
#include "login/ol_user_status.h"
#include "ostrel/ol_notification.h"
#include "platform/runtime.h"
#include "transport/connector_builder.h"

namespace ostrel {
namespace {

OLError invalidEvent(std::string message, std::optional<Json> extra = std::nullopt) {
  return OLError::LocalError(LocalErrorCodes::InvalidEvent, std::move(message), std::nullopt,
                             std::move(extra));
}

template <class T>
Result<void> queued(OLQueueManager& manager, Result<std::shared_ptr<T>> made) {
  if (!made) return made.error();
  manager.queueEvent(*made);
  return {};
}

}  // namespace

std::shared_ptr<OLQueueManager> OLQueueManager::make(
    std::shared_ptr<ConnectorBuilder> connectorBuilder, const OstrelConfiguration& configuration,
    std::shared_ptr<OLStatus> ostrelStatus) {
  auto m = std::shared_ptr<OLQueueManager>(new OLQueueManager());
  m->_ostrelStatus = std::move(ostrelStatus);
  m->connectorBuilder = std::move(connectorBuilder);
  m->_config = configuration;
  m->eventQueue_ = std::make_shared<OLChunkedQueue>("EventQueue", configuration.chunkSizeBytes);
  m->dispatchQueue_ = runtime::scheduler().makeSerialQueue("com.QueueManager.OstrelClient");
  m->operationQueue_ = OperationQueue::make(m->dispatchQueue_);
  std::weak_ptr<OLQueueManager> weak = m;
  m->heartbeatTimer_ =
      runtime::scheduler().scheduleTimer(configuration.heartbeatPeriodSec, true, [weak] {
        if (auto self = weak.lock()) self->heartbeatHandler();
      });
  m->startExpireTimer();
  return m;
}

OLQueueManager::~OLQueueManager() {
  if (_expireTimer) _expireTimer->invalidate();
  if (heartbeatTimer_) heartbeatTimer_->invalidate();
}

std::string OLQueueManager::currentUserId() {
  return _ostrelStatus->userState()->currentUserToken();
}

void OLQueueManager::queueEvent(std::shared_ptr<OLBaseEvent> event) {
  notify(OLNotification::AnalyticEventAdded, this, nullptr, event);
  std::weak_ptr<OLQueueManager> weak = weak_from_this();
  const void* sender = this;
  operationQueue_->addOperation(std::make_shared<OLAddChunkOperation>(
      eventQueue_, std::move(event), [sender](std::optional<OLError> error) {
        // The session lives on while events are added.
        NotificationCenter::defaultCenter().post(
            Notification{"refresh_session", sender, error,
                         error ? Json{{"error", error->description()}} : Json()});
      }));
  if (isQueueReady()) OperationQueueResume(false);
}

bool OLQueueManager::isQueueReady() {
  const auto s = eventQueue_->snapshot();
  return s.oldestBytes >= _config.chunkSizeBytes || s.oldestCount >= _config.chunkCountEvents ||
         s.chunkCount >= 2;
}

void OLQueueManager::OperationQueueResume(bool force) {
  // A flush is added when none is waiting yet, even behind pending appends, so
  // a steady stream of events cannot starve the upload; only one runs at a time.
  // Checked against the last flush only: looking through the whole queue would
  // cost every event the length of the backlog.
  bool flushWaiting;
  {
    std::lock_guard lock(mutex_);
    auto last = lastFlush_.lock();
    flushWaiting = last && !last->isExecuting() && !last->isFinished() && !last->isCancelled();
  }
  if (!flushWaiting) addConsumeOperation(force);
  if (operationQueue_->isSuspended()) operationQueue_->setSuspended(false);
}

void OLQueueManager::addConsumeOperation(bool forceConsume) {
  AutologinStarter starter;
  {
    std::lock_guard lock(mutex_);
    starter = autologin_;
  }
  auto op = std::make_shared<OLConsumeBlockOperation>(
      eventQueue_, connectorBuilder->buildConnector(), starter, forceConsume);
  {
    std::lock_guard lock(mutex_);
    lastFlush_ = op;
  }
  operationQueue_->addOperation(op);
}

void OLQueueManager::flushEvents(
    std::function<void(std::optional<OLError>, std::optional<Json>)> callback) {
  // Sends chunk after chunk until the queue holds nothing more or a send fails.
  auto flushed = std::make_shared<int>(0);
  auto step = std::make_shared<std::function<void()>>();
  std::weak_ptr<OLQueueManager> weak = weak_from_this();
  *step = [weak, step, flushed, callback] {
    auto self = weak.lock();
    if (!self) return;
    auto op = std::make_shared<OLConsumeBlockOperation>(
        self->eventQueue_, self->connectorBuilder->buildConnector(), self->autologin_, true);
    std::weak_ptr<OLConsumeBlockOperation> weakOp = op;
    op->setCompletionBlock([weak, weakOp, step, flushed, callback] {
      auto self = weak.lock();
      auto done = weakOp.lock();
      if (!self || !done) return;
      if (done->outcome) {
        callback(done->outcome, std::nullopt);
        *step = nullptr;
        return;
      }
      ++*flushed;
      const auto s = self->eventQueue_->snapshot();
      if (s.chunkCount > 1 || s.oldestCount > 0) {
        (*step)();
      } else {
        callback(std::nullopt, Json{{"flushedChunks", *flushed}});
        *step = nullptr;
      }
    });
    self->operationQueue_->addOperation(op);
  };
  (*step)();
  if (operationQueue_->isSuspended()) operationQueue_->setSuspended(false);
}

void OLQueueManager::startExpireTimer() {
  if (_expireTimer && _expireTimer->isValid() && _expireTimer->fireDate() < runtime::now() - 1) {
    _expireTimer->fire();  // the overdue forced flush happens at once
  }
  if (_expireTimer) _expireTimer->invalidate();
  std::weak_ptr<OLQueueManager> weak = weak_from_this();
  _expireTimer = runtime::scheduler().scheduleTimer(_config.expireTimeSec, true, [weak] {
    if (auto self = weak.lock()) self->expireHandler();
  });
}

void OLQueueManager::expireHandler() {
  logLine("expire handler called");
  OperationQueueResume(true);
}

void OLQueueManager::heartbeatHandler() {
  logLine("heartbeat handler called");
  std::vector<std::string> names;
  {
    std::lock_guard lock(mutex_);
    for (const auto& [name, timer] : timers) names.push_back(name);
  }
  if (names.empty()) return;
  if (auto made = generateHeartBeat(names, _config.heartbeatPeriodSec); !made) {
    logLine("Fail in generation of heartbeat Event " + made.error().description());
  }
}

void OLQueueManager::libraryGoToBackground() {
  if (_expireTimer) _expireTimer->invalidate();
  operationQueue_->setSuspended(true);
}

void OLQueueManager::libraryGoToForeground() {
  startExpireTimer();
  OperationQueueResume(true);
}

Result<void> OLQueueManager::addEvent(const std::string& name, EventType type,
                                      std::shared_ptr<OLSimpleObject> customData) {
  switch (type.type) {
    case _EventType::Custom:
      return queued(*this, OLCustomEvent::make(name, _ostrelStatus->sessionId(), currentUserId(),
                                               std::move(customData)));
    case _EventType::TimerStart: {
      std::lock_guard lock(mutex_);
      if (timers.count(name)) {
        return invalidEvent("Cannot Start a timer already present", Json{{"timerName", name}});
      }
      auto timer = OLTimedEvent::make(name, _ostrelStatus->sessionId(), currentUserId(),
                                      std::move(customData));
      if (!timer) return timer.error();
      timers[name] = *timer;
      queueEvent((*timer)->snapshot());
      return {};
    }
    case _EventType::TimerStop: {
      std::shared_ptr<OLTimedEvent> timer;
      {
        std::lock_guard lock(mutex_);
        auto it = timers.find(name);
        if (it == timers.end()) {
          return invalidEvent("Timer was never started", Json{{"timerName", name}});
        }
        timer = it->second;
        if (auto stopped = timer->stop(std::move(customData)); !stopped) return stopped;
        timers.erase(it);
      }
      queueEvent(timer);
      return {};
    }
    case _EventType::FlowBegin: {
      auto flow = OLFlowEvent::make(name, _ostrelStatus->sessionId(), currentUserId(),
                                    std::move(customData));
      if (!flow) return flow.error();
      {
        std::lock_guard lock(mutex_);
        activeFlow = *flow;
      }
      queueEvent((*flow)->snapshot());
      return {};
    }
    case _EventType::FlowStep:
      return flowOperation(name, FlowStatus::Step, std::move(customData));
    case _EventType::FlowSucceed:
      return flowOperation(name, FlowStatus::Succeeded, std::move(customData));
    case _EventType::FlowCancel:
      return flowOperation(name, FlowStatus::Canceled, std::move(customData));
    case _EventType::FlowFail:
      return flowOperation(name, FlowStatus::Failed, std::move(customData));
  }
  return {};
}

Result<void> OLQueueManager::flowOperation(const std::string& name, FlowStatus status,
                                           std::shared_ptr<OLSimpleObject> customData) {
  std::shared_ptr<OLFlowEvent> stage;
  {
    std::lock_guard lock(mutex_);
    if (!activeFlow) return invalidEvent("Flow was never begun");
    if (isFinal(activeFlow->flowStatus)) {
      return OLError::LocalError(LocalErrorCodes::EventFlowInconsistance,
                                 status == FlowStatus::Step
                                     ? "Cannot Step a Flow Event already finished"
                                     : "Cannot finish an event never started",
                                 std::nullopt, Json{{"flowId", activeFlow->flowId}});
    }
    auto moved = status == FlowStatus::Succeeded
                     ? activeFlow->flowSucceed(name, std::move(customData))
                     : activeFlow->iterateFlow(name, status, std::move(customData));
    if (!moved) return moved;
    stage = activeFlow->snapshot();
  }
  queueEvent(stage);
  return {};
}

Result<void> OLQueueManager::addRankContentEvent(const std::string& contentId, RankingScope scope,
                                                 float multiplier) {
  return queued(*this, OLRankingContentEvent::make(_ostrelStatus->sessionId(), currentUserId(),
                                                   contentId, scope, multiplier));
}

Result<void> OLQueueManager::addAttachSessionEvent(AttachType attachType,
                                                   const std::string& attachedSessionId,
                                                   const std::optional<std::string>& attachedUserId,
                                                   std::shared_ptr<OLSimpleObject> customData) {
  return queued(
      *this, OLAttachSessionEvent::make(_ostrelStatus->sessionId(), currentUserId(), attachType,
                                        attachedSessionId, attachedUserId, std::move(customData)));
}

Result<void> OLQueueManager::generateHeartBeat(std::vector<std::string> names, double period) {
  return queued(*this, OLTimersHearbeat::make(period, std::move(names), _ostrelStatus->sessionId(),
                                              currentUserId()));
}

Result<void> OLQueueManager::generateSessionStart(
    const std::string& sessionId, const DeviceInformation& deviceInfo, bool isFirstSession,
    std::shared_ptr<OLSimpleObject> customData,
    const std::optional<std::string>& refreshedSession) {
  return queued(*this, OLSessionEvent::make(sessionId, currentUserId(), deviceInfo, isFirstSession,
                                            std::move(customData), refreshedSession));
}

Result<void> OLQueueManager::generateIdentify(const std::string& userId,
                                              std::shared_ptr<OLSimpleObject> cData,
                                              const IdentificationType& loginType) {
  if (!loginType.isLogin()) {
    return OLError::LocalError(LocalErrorCodes::EventCreationError, "Type must be Login");
  }
  return queued(*this, OLIdentifyEvent::make(_ostrelStatus->sessionId(), userId, std::move(cData),
                                             std::get<LoginType>(loginType.type)));
}

Result<void> OLQueueManager::generateLogout(const std::string& ofUserId,
                                            const IdentificationType& logoutType) {
  if (logoutType.isLogin()) {
    return OLError::LocalError(LocalErrorCodes::EventCreationError, "Type must be Logout");
  }
  return queued(*this, OLLogoutEvent::make(_ostrelStatus->sessionId(), ofUserId,
                                           std::get<LogoutType>(logoutType.type)));
}

Result<void> OLQueueManager::generatePushReceived(const std::string& pushId,
                                                  PushNotificationEventType pushType,
                                                  bool isLocal) {
  return queued(*this, OLPushReceivedEvent::make(pushId, pushType, isLocal,
                                                 _ostrelStatus->sessionId(), currentUserId()));
}

Result<void> OLQueueManager::generatePushRegistered(bool succeeded,
                                                    const std::optional<std::string>& reason) {
  return queued(*this, OLPushRegisteredEvent::make(succeeded, reason, _ostrelStatus->sessionId(),
                                                   currentUserId()));
}

bool OLQueueManager::isTimedEventRunning(const std::string& name) {
  std::lock_guard lock(mutex_);
  return timers.count(name) > 0;
}

bool OLQueueManager::isAnalyticFlowBegun() {
  std::lock_guard lock(mutex_);
  return activeFlow && !isFinal(activeFlow->flowStatus);
}

std::optional<std::string> OLQueueManager::currentFlowName() {
  std::lock_guard lock(mutex_);
  if (!activeFlow) return std::nullopt;
  return activeFlow->name;
}

void OLQueueManager::setAutologinStarter(AutologinStarter starter) {
  std::lock_guard lock(mutex_);
  autologin_ = std::move(starter);
}

void OLQueueManager::waitUntilIdle() {
  operationQueue_->waitUntilAllOperationsAreFinished();
}

}  // namespace ostrel
