#pragma once
// Ostrel: the library's single entry point. Create it once with the application
// secret; every other component hangs off it. Including this header is enough
// for every call on the facade and on the components it hands out.
//
// Threads. Every call on the facade and on the managers it hands out may come
// from any thread, concurrently, unless its comment says otherwise; a login or
// identity builder is used by one thread at a time. An asynchronous call's
// callback runs exactly once, on the library's network thread (the thread of
// the Platform's HttpClient), never on the calling thread, also when the call
// is refused without the network: a host may hold its own lock around a call.
// Callbacks run one after the other on that thread, so a slow one delays every
// other answer. From a callback any call may be made except those that wait for
// the library's threads: waitUntilPersisted and shutdown. The push callback
// runs on the thread that hands the push over (see OLPushManager), the
// UserStateChangeListener on the thread whose call changed the state (a
// logout) or on the network thread (a login flow's end, a deletion), the
// Platform's LogSink on any of the library's threads. No lock of the library
// is held while a callback or a listener runs. The Platform's services (clock,
// crypto, log sink, files...) may be called with one held: they must answer
// without calling into the library.
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "ostrel/callbacks.h"
#include "ostrel/event_types.h"
#include "ostrel/export.h"
#include "ostrel/json.h"
#include "ostrel/ol_error.h"
#include "ostrel/ol_identity_manager.h"
#include "ostrel/ol_login_builder.h"
#include "ostrel/ol_payment_manager.h"
#include "ostrel/ol_push_manager.h"
#include "ostrel/ol_simple_object.h"
#include "ostrel/platform.h"
#include "ostrel/result.h"
#include "ostrel/user_state_change_listener.h"

namespace ostrel {

class OstrelFacadeImpl;

// Keys of the external parameters handed to getSharedInstanceWithConfig.
// `Custom` carries a free text that is its raw value.
class OSTREL_API OLExternalParameterKey {
 public:
  static OLExternalParameterKey Custom(std::string raw) {
    return OLExternalParameterKey(std::move(raw));
  }
  static OLExternalParameterKey DistributionGroup() {
    return OLExternalParameterKey("DistributionGroup");
  }
  const std::string& rawValue() const { return raw_; }
  bool isDistributionGroup() const { return raw_ == "DistributionGroup"; }
  bool operator==(const OLExternalParameterKey& other) const { return raw_ == other.raw_; }
  bool operator<(const OLExternalParameterKey& other) const { return raw_ < other.raw_; }

 private:
  explicit OLExternalParameterKey(std::string raw) : raw_(std::move(raw)) {}
  std::string raw_;
};

using ExternalParameters = std::map<OLExternalParameterKey, std::string>;

class OSTREL_API Ostrel {
 public:
  static constexpr int64_t buildNumber = 615;
  // "v4.1.1 7f9b2c0 2021-04-30T16:40:40+0200"
  static const std::string& versionString();

  // Creates the process-wide instance. `conf` is the application secret; a
  // secret containing "_" selects the sandbox. The platform pieces the host
  // leaves empty get the defaults. A platform whose deployment or network
  // overrides are not valid is refused with OstrelInitializationError.
  static Result<std::shared_ptr<Ostrel>> getSharedInstanceWithConfig(
      const std::string& conf, std::shared_ptr<OLSimpleObject> customData = nullptr,
      const std::optional<ExternalParameters>& dictParameters = std::nullopt,
      Platform platform = Platform{});
  static Result<std::shared_ptr<Ostrel>> getSharedInstance();
  // Deletes everything the library keeps under the platform's storage root:
  // queued events, tokens, meta info, flags, settings (and so the device
  // identifier). For a host whose start fails on a damaged store (the error's
  // extra names the file and the cause). Refused while the process-wide
  // instance exists. Call it from the thread that starts the library.
  static Result<void> resetStorage(Platform platform = Platform{});

  ~Ostrel();

  std::string environmentString() const;
  // Any thread. The group travels in every request's Authorization header and
  // is kept across runs; one with a control character, a double quote or a
  // backslash is refused (ConnectionValidationError "Invalid distribution
  // group") and the group stays as it was. The external parameter
  // DistributionGroup follows the same rule: a bad one fails the start-up.
  Result<void> setDistributionGroup(const std::string& distributionGroup);
  void unSetDistributionGroup();

  // Users and login.
  Result<std::shared_ptr<OLLoginBuilder>> getLoginBuilder();
  Result<void> finalizeLoginFlow();
  Result<std::string> getUserToken();
  Result<bool> isUserLogged();
  void getUserMetaInfo(DictionaryCallback callback);
  Result<void> userLogout();
  Result<void> setOnUserStateChangeListener(std::weak_ptr<UserStateChangeListener> listener);
  void syncUserState(ErrorCallback callback);
  void __temporaryUserDelete(ErrorCallback callback);
  void generateTransientToken(TokenCallback callback);
  Result<std::shared_ptr<OLIdentityManager>> getIdentityManager();
  Result<std::string> getSessionId();

  // Push and payments.
  Result<std::shared_ptr<OLPushManager>> getPushManager();
  Result<std::shared_ptr<OLPaymentManager>> getPaymentManager();

  // Analytics.
  Result<void> sendEvent(const std::string& name,
                         std::shared_ptr<OLSimpleObject> customData = nullptr);
  Result<void> timedEventStart(const std::string& name,
                               std::shared_ptr<OLSimpleObject> customData = nullptr);
  Result<void> timedEventStop(const std::string& name,
                              std::shared_ptr<OLSimpleObject> customData = nullptr);
  Result<void> flowBegin(const std::string& name,
                         std::shared_ptr<OLSimpleObject> customData = nullptr);
  Result<void> flowStep(const std::string& name,
                        std::shared_ptr<OLSimpleObject> customData = nullptr);
  Result<void> flowSucceed(const std::string& reason,
                           std::shared_ptr<OLSimpleObject> customData = nullptr);
  Result<void> flowFail(const std::string& reason,
                        std::shared_ptr<OLSimpleObject> customData = nullptr);
  Result<void> flowCancel(const std::string& reason,
                          std::shared_ptr<OLSimpleObject> customData = nullptr);
  Result<bool> isTimedEventRunning(const std::string& name);
  Result<bool> isAnalyticFlowBegun();
  Result<std::string> getCurrentAnalyticFlowName();
  Result<void> rankContent(const std::string& contentId, const RankingScope& scope,
                           float multiplier);
  Result<void> attachMasterSession(const std::string& masterSessionId,
                                   const std::string& masterUserId,
                                   std::shared_ptr<OLSimpleObject> customData = nullptr);
  Result<void> attachSession(const std::string& attachedSessionId,
                             const std::optional<std::string>& attachedUserId,
                             AttachType attachType,
                             std::shared_ptr<OLSimpleObject> customData = nullptr);
  void flushEvents(DictionaryCallback callback);

  // Durability. An analytics call that returned success has handed its event
  // to the library's intake; the intake's own thread writes it to disk within
  // milliseconds, and from then on it survives a crash and is delivered
  // (possibly twice after a crash, never not at all). An analytics call waits
  // while that thread is behind (an event accepted more than 2 ms ago is still
  // unwritten): a crash can then take only what was accepted just before the
  // system stopped the thread, however long it holds it. A normal exit (a return
  // from main, std::exit) and the destruction of the facade write what is
  // still in memory, waiting at most a second; network work is abandoned.
  //
  // waitUntilPersisted: any thread, never from a library callback; blocks
  // until every event accepted before the call is on disk, or the timeout
  // passes (answers false then). No network is involved.
  bool waitUntilPersisted(std::chrono::milliseconds timeout);
  // shutdown: any thread; writes what was accepted (waiting at most `timeout`
  // for a write under way), stops the timers and abandons queued and running
  // work. Later analytics calls fail with OstrelNotInitialized; a pending
  // flushEvents callback is answered with that error. Idempotent.
  void shutdown(std::chrono::milliseconds timeout = std::chrono::seconds(1));

  // For tests and tools: an instance that is not the process-wide one.
  static Result<std::shared_ptr<Ostrel>> makeUnshared(
      const std::string& conf, std::shared_ptr<OLSimpleObject> customData = nullptr,
      const std::optional<ExternalParameters>& dictParameters = std::nullopt,
      Platform platform = Platform{});

 private:
  friend class OstrelFacadeImpl;
  explicit Ostrel(std::unique_ptr<OstrelFacadeImpl> impl);
  std::unique_ptr<OstrelFacadeImpl> impl_;
};

}  // namespace ostrel
