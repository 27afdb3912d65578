#pragma once
// The one way analytics events enter the library: builds events from the
// facade's calls, hands them to the write-ahead intake (which feeds the on-disk
// chunked queue through the operation queue), and decides when chunks are
// flushed: when a chunk is complete, on the expire timer, on the return to the
// foreground, on request, and again at once after every flush that leaves a
// ready queue behind; after a transient failure, with an exponential back-off.
//
// Threads: producers may be called from any thread and never wait on the disk
// or the network. Notifications of added events are posted on the producer's
// thread. Appends and flushes run one at a time on the operation queue; flush
// replies arrive on the HTTP client's thread. No lock of this class is held
// while it calls another component or the host.
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "core/ostrel_configuration.h"
#include "events/flow_events.h"
#include "ostrel/event_types.h"
#include "ostrel/ol_push.h"
#include "ostrel/ol_simple_object.h"
#include "ostrel/platform/scheduler.h"
#include "platform/platform_ref.h"
#include "platform/thread_annotations.h"
#include "queue/event_intake.h"
#include "queue/flow_store.h"
#include "queue/ol_chunked_queue.h"
#include "queue/operation_queue.h"
#include "queue/queue_operations.h"

namespace ostrel {

class ConnectorBuilder;
class DeviceInformation;
class OLStatus;

class OLQueueManager : public std::enable_shared_from_this<OLQueueManager> {
 public:
  static std::shared_ptr<OLQueueManager> make(PlatformRef platform,
                                              std::shared_ptr<ConnectorBuilder> connectorBuilder,
                                              const OstrelConfiguration& configuration,
                                              std::shared_ptr<OLStatus> ostrelStatus);
  ~OLQueueManager();

  // Producers: each builds its event and queues it, or fails with the event's error.
  Result<void> addEvent(const std::string& name, EventType type,
                        std::shared_ptr<OLSimpleObject> customData);
  Result<void> addRankContentEvent(const std::string& contentId, RankingScope scope,
                                   float multiplier);
  Result<void> addAttachSessionEvent(AttachType attachType, const std::string& attachedSessionId,
                                     const std::optional<std::string>& attachedUserId,
                                     std::shared_ptr<OLSimpleObject> customData);
  Result<void> generateHeartBeat(std::vector<std::string> timers, double period);
  Result<void> generateSessionStart(const std::string& sessionId,
                                    const DeviceInformation& deviceInfo, bool isFirstSession,
                                    std::shared_ptr<OLSimpleObject> customData,
                                    const std::optional<std::string>& refreshedSession);
  Result<void> generateIdentify(const std::string& userId, std::shared_ptr<OLSimpleObject> cData,
                                const IdentificationType& loginType);
  Result<void> generateLogout(const std::string& ofUserId, const IdentificationType& logoutType);
  Result<void> generatePushReceived(const std::string& pushId, PushNotificationEventType pushType,
                                    bool isLocal);
  Result<void> generatePushRegistered(bool succeeded, const std::optional<std::string>& reason);

  // Accepts one event: it is in the intake's log on return (a mapped log), or
  // in its memory now and on disk within milliseconds (a file system that
  // cannot map). Fails only when the queue was shut down or the disk refuses
  // every write and the room for events is full.
  Result<void> queueEvent(std::shared_ptr<OLBaseEvent> event);
  bool isQueueReady();
  void OperationQueueResume(bool force);
  void addConsumeOperation(bool forceConsume);

  void startExpireTimer();
  void expireHandler();
  void heartbeatHandler();
  void libraryGoToBackground();
  void libraryGoToForeground();

  // Sends every chunk that holds an event accepted before the call, oldest
  // first, one request at a time; the callback runs once, when the last was
  // sent or the first send failed (or at once with an error when the manager
  // goes away meanwhile), on the thread of the last reply.
  void flushEvents(std::function<void(std::optional<OLError>, std::optional<Json>)> callback);

  // Waits until every event accepted so far is on disk; false on time-out.
  bool waitUntilPersisted(std::chrono::milliseconds timeout);
  // Writes what was accepted, records where the queue stands and stops: the
  // timers end, queued operations are dropped, a request under way is
  // abandoned, and producers fail from now on. Idempotent.
  void shutdown(std::chrono::milliseconds timeout);

  bool isTimedEventRunning(const std::string& name);
  bool isAnalyticFlowBegun();
  std::optional<std::string> currentFlowName();

  // What a 205 reply starts: an autologin (set once the login builder exists).
  void setAutologinStarter(AutologinStarter starter);
  // For tests and tools: waits until every accepted event is appended and
  // every queued operation has run (or the operation queue is suspended).
  void waitUntilIdle();
  const std::shared_ptr<OLChunkedQueue>& eventQueue() const { return eventQueue_; }
  const std::shared_ptr<EventIntake>& intake() const { return intake_; }

 private:
  struct FlushRun;
  OLQueueManager() = default;
  Result<void> flowOperation(const std::string& name, FlowStatus status,
                             std::shared_ptr<OLSimpleObject> customData);
  // Records the flow's new stage in the "Flow" store, off the caller's thread.
  void storeFlow(std::shared_ptr<OLFlowEvent> stage);
  std::string currentUserId();
  // When an event is made: the platform's clock, not the event's own.
  double now() const { return platform_->clock->now(); }
  void feed(IntakeRecord record, EventIntake::Ticket ticket);
  void appended(const std::optional<Result<void>>& outcome);
  // `honourBackoff`: an automatic attempt waits out the back-off; the host's
  // own (foreground, explicit flush) does not.
  void resume(bool force, bool honourBackoff);
  std::shared_ptr<OLConsumeBlockOperation> makeConsumeOperation(bool forceConsume);
  // Back-off bookkeeping after each flush; true when the queue should go on.
  bool flushSettled(const OLConsumeBlockOperation& op);
  void retryAfterBackoff();
  void flushStep(std::shared_ptr<FlushRun> run);

  PlatformRef platform_;
  std::shared_ptr<OLStatus> _ostrelStatus;
  std::shared_ptr<ConnectorBuilder> connectorBuilder;
  OstrelConfiguration _config;
  std::shared_ptr<OLChunkedQueue> eventQueue_;
  std::shared_ptr<EventIntake> intake_;
  std::shared_ptr<platform::SerialQueue> dispatchQueue_;
  std::shared_ptr<OperationQueue> operationQueue_;
  std::shared_ptr<platform::Timer> _expireTimer;
  std::shared_ptr<platform::Timer> heartbeatTimer_;
  std::shared_ptr<OLFlowStore> flowStore_;

  // Guards everything below; never held while calling out.
  Mutex mutex_;
  std::shared_ptr<OLFlowEvent> activeFlow OSTREL_GUARDED_BY(mutex_);
  std::map<std::string, std::shared_ptr<OLTimedEvent>> timers OSTREL_GUARDED_BY(mutex_);
  AutologinStarter autologin_ OSTREL_GUARDED_BY(mutex_);
  // The flush added last; while it waits to run no other is added.
  std::weak_ptr<AsynchronousOperation> lastFlush_ OSTREL_GUARDED_BY(mutex_);
  // The current back-off (0 when the last flush went through) and whether an
  // automatic flush must wait for the retry timer.
  double backoffSecs_ OSTREL_GUARDED_BY(mutex_) = 0;
  bool backingOff_ OSTREL_GUARDED_BY(mutex_) = false;
  bool shutDown_ OSTREL_GUARDED_BY(mutex_) = false;
  std::vector<std::weak_ptr<FlushRun>> flushRuns_ OSTREL_GUARDED_BY(mutex_);
};

}  // namespace ostrel
