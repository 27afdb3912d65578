#pragma once
// Who the current user is, as a set of tokens, and everything that changes or
// queries that identity on the service.
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "core/ostrel_api_endpoint.h"
#include "core/ostrel_configuration.h"
#include "login/ol_user_meta_info.h"
#include "login/tokens.h"
#include "ostrel/json.h"
#include "ostrel/ostrel.h"
#include "ostrel/result.h"
#include "ostrel/user_state_change_listener.h"
#include "platform/platform_ref.h"
#include "platform/thread_annotations.h"

namespace ostrel {

class ConnectorBuilder;
class OLStatus;
class OLLoginBuilder;
class OLQueueManager;

class OLUserStatus : public std::enable_shared_from_this<OLUserStatus> {
 public:
  // Restores the stored autologin token and meta info; fails, naming the file
  // and the cause, when a stored item cannot be read.
  static Result<std::shared_ptr<OLUserStatus>> make(
      PlatformRef platform, const OstrelConfiguration& configuration,
      std::shared_ptr<ConnectorBuilder> connectorBuilder, const std::string& deviceId);
  ~OLUserStatus();
  // The facade is going: a login or reply still under way stores nothing from
  // now on, so the host's files stay as they are and the next start reads
  // what this one had stored.
  void closeStorage();

  // The service token if held, else the unexpired autologin token, else the anonymous one.
  std::string currentUserToken();
  const std::string& anonymousToken() const { return anonymousToken_; }
  // The autologin token when held and not expired; an expired one is dropped here.
  std::optional<std::string> autologinToken();
  std::optional<std::string> ostrelToken() const;
  // Text form for the console ("nil" when absent), without dropping anything.
  std::string autologinTokenDescription() const;
  bool isLogged() { return currentUserToken() != anonymousToken_; }

  void loginUser(const std::string& ostrelToken, const std::optional<std::string>& autologinToken);
  void getUserMetaInfo(DictionaryCallback callback);
  Result<void> setUserMetaInfo(const Json& info);
  // `logoutType` is the raw value of the logout kind ("explicit", "delete", ...).
  void logoutUser(const std::string& logoutType, ErrorCallback callback);
  void deleteUser(ErrorCallback callback);
  void generateTransientToken(TokenCallback callback);
  void syncUserState(const std::shared_ptr<OLStatus>& status,
                     const std::shared_ptr<OLLoginBuilder>& builder, ErrorCallback callback);

  void setStateChangeListener(std::weak_ptr<UserStateChangeListener> listener);
  std::shared_ptr<UserStateChangeListener> stateChangeListener() const;
  // Where logout events go (the queue manager); may be unset.
  void setLogoutEventSink(
      std::function<void(const std::string& userId, const std::string& logoutType)> sink);

 private:
  OLUserStatus() = default;
  void setAutologinToken(std::optional<std::string> value);  // runs the persistence hook
  void attachToLoginNotification(const std::string& observerName,
                                 const std::shared_ptr<OLStatus>& status,
                                 const std::shared_ptr<OLLoginBuilder>& builder,
                                 ErrorCallback callback);
  // Clears the autologin token found expired, unless a login replaced it meanwhile.
  void clearExpiredAutologinToken(const std::shared_ptr<AutologinToken>& expired);

  PlatformRef platform_;
  OstrelConfiguration _config;
  std::string anonymousToken_;
  std::shared_ptr<ConnectorBuilder> connectorBuilder_;
  // Held across a change of the autologin token and its write to disk, so that
  // memory and disk agree whatever the order of two changes (taken before mutex_).
  Mutex tokenStorageMutex_;
  bool storageClosed_ OSTREL_GUARDED_BY(tokenStorageMutex_) = false;
  mutable Mutex mutex_;
  std::shared_ptr<AutologinToken> _autologinToken OSTREL_GUARDED_BY(mutex_);
  std::optional<std::string> ostrelToken_ OSTREL_GUARDED_BY(mutex_);
  // Replaced, never changed in place: readers take a copy of the pointer.
  std::shared_ptr<OLUserMetaInfo> _userMetaInfo OSTREL_GUARDED_BY(mutex_);
  std::unique_ptr<OLMap<Token>> storedTokens_;
  std::unique_ptr<OLTypedStack<OLUserMetaInfo>> storedUserMetaInfo_;
  std::weak_ptr<UserStateChangeListener> stateChangeListener_ OSTREL_GUARDED_BY(mutex_);
  std::function<void(const std::string&, const std::string&)> logoutSink_ OSTREL_GUARDED_BY(mutex_);
};

}  // namespace ostrel
