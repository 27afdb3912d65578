#pragma once
// The one way analytics events enter the library: builds events from the
// facade's calls, appends them to the on-disk queue through the operation
// queue, and decides when chunks are flushed.
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
#include "queue/ol_chunked_queue.h"
#include "queue/operation_queue.h"
#include "queue/queue_operations.h"

namespace ostrel {

class ConnectorBuilder;
class DeviceInformation;
class OLStatus;

class OLQueueManager : public std::enable_shared_from_this<OLQueueManager> {
 public:
  static std::shared_ptr<OLQueueManager> make(std::shared_ptr<ConnectorBuilder> connectorBuilder,
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

  void queueEvent(std::shared_ptr<OLBaseEvent> event);
  bool isQueueReady();
  void OperationQueueResume(bool force);
  void addConsumeOperation(bool forceConsume);

  void startExpireTimer();
  void expireHandler();
  void heartbeatHandler();
  void libraryGoToBackground();
  void libraryGoToForeground();

  // Flushes now; the callback runs when that flush has settled.
  void flushEvents(std::function<void(std::optional<OLError>, std::optional<Json>)> callback);

  bool isTimedEventRunning(const std::string& name);
  bool isAnalyticFlowBegun();
  std::optional<std::string> currentFlowName();

  // What a 205 reply starts: an autologin (set once the login builder exists).
  void setAutologinStarter(AutologinStarter starter);
  // For tests and tools: waits until every queued operation has run.
  void waitUntilIdle();
  const std::shared_ptr<OLChunkedQueue>& eventQueue() const { return eventQueue_; }
  const std::shared_ptr<OperationQueue>& operationQueue() const { return operationQueue_; }

 private:
  OLQueueManager() = default;
  Result<void> flowOperation(const std::string& name, FlowStatus status,
                             std::shared_ptr<OLSimpleObject> customData);
  std::string currentUserId();

  std::shared_ptr<OLStatus> _ostrelStatus;
  std::shared_ptr<ConnectorBuilder> connectorBuilder;
  OstrelConfiguration _config;
  std::shared_ptr<OLChunkedQueue> eventQueue_;
  std::shared_ptr<platform::SerialQueue> dispatchQueue_;
  std::shared_ptr<OperationQueue> operationQueue_;
  std::shared_ptr<platform::Timer> _expireTimer;
  std::shared_ptr<platform::Timer> heartbeatTimer_;

  std::mutex mutex_;  // guards the flow, the timers and the autologin starter
  std::shared_ptr<OLFlowEvent> activeFlow;
  std::map<std::string, std::shared_ptr<OLTimedEvent>> timers;
  AutologinStarter autologin_;
  // The flush added last; while it waits to run no other is added.
  std::weak_ptr<AsynchronousOperation> lastFlush_;
};

}  // namespace ostrel
