#pragma once
// The library's run-time state between the facade and its subsystems: the user
// status, the single running-login slot, the device snapshot, the start-up
// custom data, the analytics session and the persisted application flags.
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "core/ostrel_configuration.h"
#include "ostrel/json.h"
#include "ostrel/platform/scheduler.h"
#include "ostrel/result.h"
#include "platform/platform_ref.h"
#include "status/session_id.h"

namespace ostrel {

class DeviceInformation;
class OLSimpleObject;
class OLUserStatus;
class OLLoginFlow;
class OLUrlPush;
class Flag;
template <class T>
class OLMap;

// Asks the queue manager for a session-start event: (session id, device
// information, is first start, custom data, refreshed session).
using SessionStartGenerator =
    std::function<Result<void>(const std::string&, const DeviceInformation&, bool,
                               std::shared_ptr<OLSimpleObject>, const std::optional<std::string>&)>;

// The token of the user events are recorded for: what the layers below login
// know of the user status.
using CurrentUserToken = std::function<std::string()>;

class OLStatus {
 public:
  // Login restores the user status and makes both (makeOstrelStatus).
  static std::shared_ptr<OLStatus> make(PlatformRef platform,
                                        const OstrelConfiguration& configuration,
                                        std::shared_ptr<DeviceInformation> devInfo,
                                        std::shared_ptr<OLUserStatus> userState,
                                        CurrentUserToken currentUserToken,
                                        std::shared_ptr<OLSimpleObject> customData);
  ~OLStatus();

  // The current session identifier; an expired session is renewed first, which
  // emits one session start naming the old session.
  std::string sessionId();
  // The session without renewal (for the refresh observer).
  SessionId& rawSessionId() { return *_sessionId; }

  void setSessionStartGenerator(SessionStartGenerator generator);
  void generateSessionStart(const std::optional<std::string>& refreshedSession);

  // True only for the very first start of an installation (or when the flag
  // store fails).
  bool _isFirstStart();

  bool setCurrentRunningFlow(const std::shared_ptr<OLLoginFlow>& flow);
  void freeCurrentRunningFlow(const OLLoginFlow* flow);
  bool hasRunningFlow();
  std::shared_ptr<OLLoginFlow> runningFlow();
  // Runs `then` once no login flow holds the slot: at once, on the caller's
  // thread, when none does; else on the thread that frees it.
  void whenRunningFlowFreed(std::function<void()> then);

  // The map the mobile-fingerprint login reads "session_id", "user_id" and
  // "custom_data" from; absent when the text is not such JSON.
  std::optional<Json> decodePony(const std::string& pony) const;

  // {"offerId", "applicationId", "platform", "receipt" (Base64)} of the store
  // receipt at receiptUrl (else the platform's receipt location).
  Result<Json> getSerializedReceipt(const std::string& fromOffer,
                                    const std::optional<std::string>& receiptUrl) const;

  const std::shared_ptr<OLUserStatus>& userState() const { return userState_; }
  std::string currentUserToken() const { return currentUserToken_(); }
  const DeviceInformation& deviceInfo() const { return *_deviceInfo; }
  std::shared_ptr<OLSimpleObject> customData() const { return customData_; }
  const std::shared_ptr<platform::SerialQueue>& queue() const { return queue_; }
  const Platform& platform() const { return *platform_; }
  const PlatformRef& platformRef() const { return platform_; }

  std::shared_ptr<OLUrlPush> urlPush;

 private:
  OLStatus();

  PlatformRef platform_;
  std::shared_ptr<OLUserStatus> userState_;
  CurrentUserToken currentUserToken_;
  std::shared_ptr<OLLoginFlow> _runningLoginFlow;        // read and written only on queue_
  std::vector<std::function<void()>> flowFreedWaiters_;  // likewise
  std::shared_ptr<platform::SerialQueue> queue_;
  std::shared_ptr<DeviceInformation> _deviceInfo;
  std::shared_ptr<OLSimpleObject> customData_;
  std::unique_ptr<SessionId> _sessionId;
  std::mutex sessionMutex_;  // one renewal, one session start
  std::mutex generatorMutex_;
  SessionStartGenerator sessionStartGenerator_;
  std::unique_ptr<OLMap<Flag>> storedFlags_;
};

}  // namespace ostrel
