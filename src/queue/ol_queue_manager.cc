#include "queue/ol_queue_manager.h"

#include <algorithm>
#include <atomic>

#include "core/device_information.h"
#include "core/missing_component.h"
#include "events/content_events.h"
#include "events/internal_events.h"
#include "events/push_events.h"
#include "ostrel/ol_notification.h"
#include "status/ol_status.h"
#include "transport/connector_builder.h"

namespace ostrel {
namespace {

OLError invalidEvent(std::string message, std::optional<Json> extra = std::nullopt) {
  return OLError::LocalError(LocalErrorCodes::InvalidEvent, std::move(message), std::nullopt,
                             std::move(extra));
}

// Queues a new event, made `now`.
template <class T>
Result<void> queued(OLQueueManager& manager, double now, Result<std::shared_ptr<T>> made) {
  if (!made) return made.error();
  (*made)->creationDate = now;
  return manager.queueEvent(*made);
}

}  // namespace

// One explicit flush: answered exactly once.
struct OLQueueManager::FlushRun {
  explicit FlushRun(std::function<void(std::optional<OLError>, std::optional<Json>)> callback)
      : callback(std::move(callback)) {}
  void answer(std::optional<OLError> error, std::optional<Json> details) {
    if (!answered.exchange(true)) callback(std::move(error), std::move(details));
  }
  std::function<void(std::optional<OLError>, std::optional<Json>)> callback;
  std::atomic<bool> answered{false};
  int flushed = 0;
  // Chunks left to send, counted after the first send; -1 before it.
  long remaining = -1;
};

std::shared_ptr<OLQueueManager> OLQueueManager::make(
    PlatformRef platform, std::shared_ptr<ConnectorBuilder> connectorBuilder,
    const OstrelConfiguration& configuration, std::shared_ptr<OLStatus> ostrelStatus) {
  auto m = std::shared_ptr<OLQueueManager>(new OLQueueManager());
  m->platform_ = std::move(platform);
  m->_ostrelStatus = std::move(ostrelStatus);
  m->connectorBuilder = std::move(connectorBuilder);
  m->_config = configuration;
  m->flowStore_ = std::make_shared<OLFlowStore>(m->platform_, "Flow");
  if (auto stored = m->flowStore_->get(StorableTraits<OLFlowEvent>::kActiveFlow, false)) {
    MutexLock lock(m->mutex_);
    m->activeFlow = *stored;
  } else {
    logLine(*m->platform_, "Cannot read the flow in progress: " + stored.error().description());
  }
  m->eventQueue_ =
      std::make_shared<OLChunkedQueue>(m->platform_, "EventQueue", configuration.chunkSizeBytes);
  const Platform& services = *m->platform_;
  m->dispatchQueue_ = services.scheduler->makeSerialQueue("com.QueueManager.OstrelClient");
  m->operationQueue_ = OperationQueue::make(m->dispatchQueue_);
  m->intake_ = EventIntake::open(services.files, services.scheduler, services.log,
                                 services.files->storageRoot() + "/" + EventIntake::kFolder, {});
  std::weak_ptr<OLQueueManager> weak = m;
  m->intake_->start([weak](IntakeRecord record, EventIntake::Ticket ticket) {
    if (auto self = weak.lock()) self->feed(std::move(record), std::move(ticket));
  });
  m->heartbeatTimer_ =
      services.scheduler->scheduleTimer(configuration.heartbeatPeriodSec, true, [weak] {
        if (auto self = weak.lock()) self->heartbeatHandler();
      });
  m->startExpireTimer();
  return m;
}

OLQueueManager::~OLQueueManager() {
  shutdown(std::chrono::milliseconds(1000));
}

void OLQueueManager::shutdown(std::chrono::milliseconds timeout) {
  std::vector<std::shared_ptr<FlushRun>> runs;
  {
    MutexLock lock(mutex_);
    if (shutDown_) return;
    shutDown_ = true;
    for (auto& w : flushRuns_) {
      if (auto run = w.lock()) runs.push_back(std::move(run));
    }
    flushRuns_.clear();
  }
  if (_expireTimer) _expireTimer->invalidate();
  if (heartbeatTimer_) heartbeatTimer_->invalidate();
  // Everything accepted is in the intake; what the operation queue still holds
  // is replayed from there at the next start.
  intake_->close(timeout);
  operationQueue_->setSuspended(true);
  for (const auto& op : operationQueue_->operations()) op->cancel();
  // The flow's last stage may still be on its way to the "Flow" store.
  dispatchQueue_->sync([] {});
  for (auto& run : runs) run->answer(missingEventQueueManager(), std::nullopt);
}

std::string OLQueueManager::currentUserId() {
  return _ostrelStatus->currentUserToken();
}

Result<void> OLQueueManager::queueEvent(std::shared_ptr<OLBaseEvent> event) {
  if (auto accepted = intake_->accept(OLChunkedQueue::recordOf(*event)); !accepted) {
    MutexLock lock(mutex_);
    return shutDown_ ? missingEventQueueManager() : accepted.error();
  }
  notify(OLNotification::AnalyticEventAdded, this, nullptr, event);
  return {};
}

void OLQueueManager::feed(IntakeRecord record, EventIntake::Ticket ticket) {
  std::weak_ptr<OLQueueManager> weak = weak_from_this();
  operationQueue_->addOperation(std::make_shared<OLAddChunkOperation>(
      eventQueue_, std::move(record), std::move(ticket.wanted),
      [weak, done = std::move(ticket.done)](std::optional<Result<void>> outcome) {
        if (auto self = weak.lock()) self->appended(outcome);
        // Not written (no longer wanted) counts as not appended: the intake
        // keeps it for later.
        done(outcome && *outcome);
      }));
}

void OLQueueManager::appended(const std::optional<Result<void>>& outcome) {
  if (!outcome) return;  // not written: no longer wanted
  std::optional<OLError> error;
  if (!*outcome) error = outcome->error();
  // The session lives on while events are added.
  NotificationCenter::defaultCenter().post(Notification{
      "refresh_session", this, error, error ? Json{{"error", error->description()}} : Json()});
  if (isQueueReady()) resume(false, true);
}

bool OLQueueManager::isQueueReady() {
  const auto s = eventQueue_->snapshot();
  return s.oldestBytes >= _config.chunkSizeBytes || s.oldestCount >= _config.chunkCountEvents ||
         s.chunkCount >= 2;
}

void OLQueueManager::OperationQueueResume(bool force) {
  resume(force, true);
}

void OLQueueManager::resume(bool force, bool honourBackoff) {
  // A flush is added when none is waiting yet, even behind pending appends, so
  // a steady stream of events cannot starve the upload; only one runs at a time.
  // Checked against the last flush only: looking through the whole queue would
  // cost every event the length of the backlog.
  bool add;
  {
    MutexLock lock(mutex_);
    if (shutDown_) return;
    auto last = lastFlush_.lock();
    const bool flushWaiting =
        last && !last->isExecuting() && !last->isFinished() && !last->isCancelled();
    add = !flushWaiting && !(honourBackoff && backingOff_);
  }
  if (add) addConsumeOperation(force);
  if (operationQueue_->isSuspended()) operationQueue_->setSuspended(false);
}

std::shared_ptr<OLConsumeBlockOperation> OLQueueManager::makeConsumeOperation(bool forceConsume) {
  AutologinStarter starter;
  {
    MutexLock lock(mutex_);
    starter = autologin_;
  }
  return std::make_shared<OLConsumeBlockOperation>(eventQueue_, connectorBuilder->buildConnector(),
                                                   std::move(starter), forceConsume);
}

void OLQueueManager::addConsumeOperation(bool forceConsume) {
  auto op = makeConsumeOperation(forceConsume);
  std::weak_ptr<OLQueueManager> weak = weak_from_this();
  std::weak_ptr<OLConsumeBlockOperation> weakOp = op;
  op->setCompletionBlock([weak, weakOp] {
    auto self = weak.lock();
    auto done = weakOp.lock();
    // A backlog drains at the network's pace: one chunk per round trip.
    if (self && done && self->flushSettled(*done) && self->isQueueReady()) {
      self->resume(false, true);
    }
  });
  {
    MutexLock lock(mutex_);
    lastFlush_ = op;
  }
  operationQueue_->addOperation(op);
}

bool OLQueueManager::flushSettled(const OLConsumeBlockOperation& op) {
  if (op.isCancelled()) return false;
  double delay = 0;
  {
    MutexLock lock(mutex_);
    if (shutDown_) return false;
    if (!op.outcome || !op.chunkKept) {
      backoffSecs_ = 0;
      backingOff_ = false;
      return true;
    }
    // A transient failure: wait 1 s, then twice as long after each further
    // one, up to 5 minutes; the random part keeps many devices from coming
    // back all at once after an outage.
    backoffSecs_ = backoffSecs_ == 0 ? 1 : std::min(backoffSecs_ * 2, 300.0);
    if (backingOff_) return false;  // a retry is scheduled already
    backingOff_ = true;
    const auto random = platform_->crypto->randomBytes(2);
    const double spread =
        (static_cast<unsigned char>(random[0]) << 8 | static_cast<unsigned char>(random[1])) /
        65535.0;
    delay = backoffSecs_ * (0.5 + 0.5 * spread);
  }
  std::weak_ptr<OLQueueManager> weak = weak_from_this();
  platform_->scheduler->after(delay, [weak] {
    if (auto self = weak.lock()) self->retryAfterBackoff();
  });
  return false;
}

void OLQueueManager::retryAfterBackoff() {
  {
    MutexLock lock(mutex_);
    backingOff_ = false;
  }
  if (isQueueReady() || eventQueue_->snapshot().oldestCount > 0) resume(true, false);
}

void OLQueueManager::flushEvents(
    std::function<void(std::optional<OLError>, std::optional<Json>)> callback) {
  auto run = std::make_shared<FlushRun>(std::move(callback));
  {
    MutexLock lock(mutex_);
    if (shutDown_) {
      run->answered = true;
    } else {
      flushRuns_.erase(std::remove_if(flushRuns_.begin(), flushRuns_.end(),
                                      [](const auto& w) { return w.expired(); }),
                       flushRuns_.end());
      flushRuns_.push_back(run);
    }
  }
  if (run->answered) {
    run->callback(missingEventQueueManager(), std::nullopt);
    return;
  }
  // The first send goes behind the appends of every event accepted so far.
  std::weak_ptr<OLQueueManager> weak = weak_from_this();
  intake_->whenFed(intake_->acceptedCount(), [weak, run] {
    if (auto self = weak.lock()) {
      self->flushStep(run);
    } else {
      run->answer(missingEventQueueManager(), std::nullopt);
    }
  });
  if (operationQueue_->isSuspended()) operationQueue_->setSuspended(false);
}

void OLQueueManager::flushStep(std::shared_ptr<FlushRun> run) {
  auto op = makeConsumeOperation(true);
  std::weak_ptr<OLQueueManager> weak = weak_from_this();
  std::weak_ptr<OLConsumeBlockOperation> weakOp = op;
  op->setCompletionBlock([weak, weakOp, run] {
    auto self = weak.lock();
    auto done = weakOp.lock();
    if (!self || !done || done->isCancelled()) {
      run->answer(missingEventQueueManager(), std::nullopt);
      return;
    }
    (void)self->flushSettled(*done);
    if (done->outcome) {
      run->answer(done->outcome, std::nullopt);
      return;
    }
    ++run->flushed;
    const auto s = self->eventQueue_->snapshot();
    const bool more = s.chunkCount > 1 || s.oldestCount > 0;
    // The chunks there now hold every event accepted before the flush: send
    // that many more at most, so that a host recording meanwhile cannot keep
    // the flush from ever answering.
    if (run->remaining < 0) run->remaining = static_cast<long>(s.chunkCount);
    if (more && run->remaining-- > 0) {
      self->flushStep(run);
    } else {
      run->answer(std::nullopt, Json{{"flushedChunks", run->flushed}});
    }
  });
  operationQueue_->addOperation(op);
}

bool OLQueueManager::waitUntilPersisted(std::chrono::milliseconds timeout) {
  return intake_->waitUntilPersisted(intake_->acceptedCount(), timeout);
}

void OLQueueManager::startExpireTimer() {
  if (_expireTimer && _expireTimer->isValid() &&
      _expireTimer->fireDate() < platform_->clock->now() - 1) {
    _expireTimer->fire();  // the overdue forced flush happens at once
  }
  if (_expireTimer) _expireTimer->invalidate();
  std::weak_ptr<OLQueueManager> weak = weak_from_this();
  _expireTimer = platform_->scheduler->scheduleTimer(_config.expireTimeSec, true, [weak] {
    if (auto self = weak.lock()) self->expireHandler();
  });
}

void OLQueueManager::expireHandler() {
  logLine(*platform_, "expire handler called");
  OperationQueueResume(true);
}

void OLQueueManager::heartbeatHandler() {
  logLine(*platform_, "heartbeat handler called");
  std::vector<std::string> names;
  {
    MutexLock lock(mutex_);
    for (const auto& [name, timer] : timers) names.push_back(name);
  }
  if (names.empty()) return;
  if (auto made = generateHeartBeat(names, _config.heartbeatPeriodSec); !made) {
    logLine(*platform_, "Fail in generation of heartbeat Event " + made.error().description());
  }
}

void OLQueueManager::libraryGoToBackground() {
  if (_expireTimer) _expireTimer->invalidate();
  operationQueue_->setSuspended(true);
}

void OLQueueManager::libraryGoToForeground() {
  startExpireTimer();
  resume(true, false);
  // Events accepted in the background wait in the intake: hand them on.
  intake_->kick();
}

Result<void> OLQueueManager::addEvent(const std::string& name, EventType type,
                                      std::shared_ptr<OLSimpleObject> customData) {
  switch (type.type) {
    case _EventType::Custom:
      return queued(*this, now(),
                    OLCustomEvent::make(name, _ostrelStatus->sessionId(), currentUserId(),
                                        std::move(customData)));
    case _EventType::TimerStart: {
      auto timer = OLTimedEvent::make(name, _ostrelStatus->sessionId(), currentUserId(),
                                      std::move(customData));
      if (!timer) return timer.error();
      (*timer)->creationDate = now();
      {
        MutexLock lock(mutex_);
        if (timers.count(name)) {
          return invalidEvent("Cannot Start a timer already present", Json{{"timerName", name}});
        }
        timers[name] = *timer;
      }
      // Queued without the lock: accepting an event may call back into this
      // manager (an observer of the added notification, a ready queue).
      if (auto queued = queueEvent((*timer)->snapshot()); !queued) {
        MutexLock lock(mutex_);
        if (auto it = timers.find(name); it != timers.end() && it->second == *timer)
          timers.erase(it);
        return queued;
      }
      return {};
    }
    case _EventType::TimerStop: {
      std::shared_ptr<OLTimedEvent> timer;
      const double at = now();
      {
        MutexLock lock(mutex_);
        auto it = timers.find(name);
        if (it == timers.end()) {
          return invalidEvent("Timer was never started", Json{{"timerName", name}});
        }
        timer = it->second;
        if (auto stopped = timer->stop(std::move(customData), at); !stopped) return stopped;
        timers.erase(it);
      }
      return queueEvent(timer);
    }
    case _EventType::FlowBegin: {
      auto flow = OLFlowEvent::make(makeUuid(*platform_->crypto), name, _ostrelStatus->sessionId(),
                                    currentUserId(), std::move(customData));
      if (!flow) return flow.error();
      (*flow)->creationDate = now();
      auto stage = (*flow)->snapshot();
      {
        MutexLock lock(mutex_);
        activeFlow = *flow;
      }
      storeFlow(stage);
      return queueEvent(stage);
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
  Result<void> moved;
  const double at = now();
  {
    MutexLock lock(mutex_);
    if (!activeFlow) return invalidEvent("Flow was never begun");
    if (isFinal(activeFlow->flowStatus)) {
      return OLError::LocalError(LocalErrorCodes::EventFlowInconsistance,
                                 status == FlowStatus::Step
                                     ? "Cannot Step a Flow Event already finished"
                                     : "Cannot finish an event never started",
                                 std::nullopt, Json{{"flowId", activeFlow->flowId}});
    }
    moved = status == FlowStatus::Succeeded
                ? activeFlow->flowSucceed(name, std::move(customData), at)
                : activeFlow->iterateFlow(name, status, std::move(customData), at);
    stage = activeFlow->snapshot();
  }
  // A refused name leaves the flow changed, and so does the store.
  storeFlow(stage);
  if (!moved) return moved;
  return queueEvent(stage);
}

void OLQueueManager::storeFlow(std::shared_ptr<OLFlowEvent> stage) {
  // Written in call order on the manager's queue, never on the caller's thread.
  dispatchQueue_->async([store = flowStore_, stage] {
    if (auto added = store->add(*stage); !added) {
      logLine(store->platform(),
              "Cannot store the flow in progress: " + added.error().description());
    }
  });
}

Result<void> OLQueueManager::addRankContentEvent(const std::string& contentId, RankingScope scope,
                                                 float multiplier) {
  return queued(*this, now(),
                OLRankingContentEvent::make(_ostrelStatus->sessionId(), currentUserId(), contentId,
                                            scope, multiplier));
}

Result<void> OLQueueManager::addAttachSessionEvent(AttachType attachType,
                                                   const std::string& attachedSessionId,
                                                   const std::optional<std::string>& attachedUserId,
                                                   std::shared_ptr<OLSimpleObject> customData) {
  return queued(
      *this, now(),
      OLAttachSessionEvent::make(_ostrelStatus->sessionId(), currentUserId(), attachType,
                                 attachedSessionId, attachedUserId, std::move(customData)));
}

Result<void> OLQueueManager::generateHeartBeat(std::vector<std::string> names, double period) {
  return queued(*this, now(),
                OLTimersHearbeat::make(period, std::move(names), _ostrelStatus->sessionId(),
                                       currentUserId()));
}

Result<void> OLQueueManager::generateSessionStart(
    const std::string& sessionId, const DeviceInformation& deviceInfo, bool isFirstSession,
    std::shared_ptr<OLSimpleObject> customData,
    const std::optional<std::string>& refreshedSession) {
  return queued(*this, now(),
                OLSessionEvent::make(sessionId, currentUserId(), deviceInfo, isFirstSession,
                                     std::move(customData), refreshedSession));
}

Result<void> OLQueueManager::generateIdentify(const std::string& userId,
                                              std::shared_ptr<OLSimpleObject> cData,
                                              const IdentificationType& loginType) {
  if (!loginType.isLogin()) {
    return OLError::LocalError(LocalErrorCodes::EventCreationError, "Type must be Login");
  }
  return queued(*this, now(),
                OLIdentifyEvent::make(_ostrelStatus->sessionId(), userId, std::move(cData),
                                      std::get<LoginType>(loginType.type)));
}

Result<void> OLQueueManager::generateLogout(const std::string& ofUserId,
                                            const IdentificationType& logoutType) {
  if (logoutType.isLogin()) {
    return OLError::LocalError(LocalErrorCodes::EventCreationError, "Type must be Logout");
  }
  return queued(*this, now(),
                OLLogoutEvent::make(_ostrelStatus->sessionId(), ofUserId,
                                    std::get<LogoutType>(logoutType.type)));
}

Result<void> OLQueueManager::generatePushReceived(const std::string& pushId,
                                                  PushNotificationEventType pushType,
                                                  bool isLocal) {
  return queued(*this, now(),
                OLPushReceivedEvent::make(pushId, pushType, isLocal, _ostrelStatus->sessionId(),
                                          currentUserId()));
}

Result<void> OLQueueManager::generatePushRegistered(bool succeeded,
                                                    const std::optional<std::string>& reason) {
  return queued(
      *this, now(),
      OLPushRegisteredEvent::make(succeeded, reason, _ostrelStatus->sessionId(), currentUserId()));
}

bool OLQueueManager::isTimedEventRunning(const std::string& name) {
  MutexLock lock(mutex_);
  return timers.count(name) > 0;
}

bool OLQueueManager::isAnalyticFlowBegun() {
  MutexLock lock(mutex_);
  return activeFlow && !isFinal(activeFlow->flowStatus);
}

std::optional<std::string> OLQueueManager::currentFlowName() {
  MutexLock lock(mutex_);
  if (!activeFlow) return std::nullopt;
  return activeFlow->name;
}

void OLQueueManager::setAutologinStarter(AutologinStarter starter) {
  MutexLock lock(mutex_);
  autologin_ = std::move(starter);
}

void OLQueueManager::waitUntilIdle() {
  for (;;) {
    operationQueue_->waitUntilAllOperationsAreFinished();
    if (operationQueue_->isSuspended()) return;
    if (intake_->isDrained() && operationQueue_->operationCount() == 0) return;
    intake_->waitForProgress(std::chrono::milliseconds(5));
  }
}

}  // namespace ostrel
