#include "login/ol_user_status.h"

#include "ostrel/ol_notification.h"
#include "transport/connector_builder.h"

namespace ostrel {
namespace {

const char* kAutologinKey = "AutologinToken";

OLError serviceCallError(const std::string& message, const Json& input, int64_t status,
                         const std::optional<Json>& reply, LocalErrorCodes code) {
  return OLError::LocalError(code, message, std::nullopt,
                             Json{{"input", describeValue(input)},
                                  {"statusCode", status},
                                  {"body", reply ? describeValue(*reply) : std::string("nil")}});
}

}  // namespace

Result<std::shared_ptr<OLUserStatus>> OLUserStatus::make(
    PlatformRef platform, const OstrelConfiguration& configuration,
    std::shared_ptr<ConnectorBuilder> connectorBuilder, const std::string& deviceId) {
  auto status = std::shared_ptr<OLUserStatus>(new OLUserStatus());
  status->platform_ = std::move(platform);
  status->_config = configuration;
  status->anonymousToken_ = "A_" + deviceId;
  status->connectorBuilder_ = std::move(connectorBuilder);
  status->storedTokens_ = std::make_unique<OLMap<Token>>(status->platform_, "UserTokens");
  status->storedUserMetaInfo_ =
      std::make_unique<OLTypedStack<OLUserMetaInfo>>(status->platform_, "UserMetaInfo");
  // Restored directly: the persistence hook does not run for what is already stored.
  auto token = status->storedTokens_->get(std::string(kAutologinKey), false);
  if (!token) return token.error();
  if (auto autologin = std::dynamic_pointer_cast<AutologinToken>(*token)) {
    MutexLock lock(status->mutex_);
    status->_autologinToken = autologin;
  }
  auto meta = status->storedUserMetaInfo_->get(std::nullopt, false);
  if (!meta) return meta.error();
  MutexLock lock(status->mutex_);
  status->_userMetaInfo = *meta;
  return status;
}

OLUserStatus::~OLUserStatus() = default;

void OLUserStatus::closeStorage() {
  MutexLock storage(tokenStorageMutex_);
  storageClosed_ = true;
}

std::optional<std::string> OLUserStatus::autologinToken() {
  std::shared_ptr<AutologinToken> token;
  {
    MutexLock lock(mutex_);
    token = _autologinToken;
  }
  if (!token) return std::nullopt;
  if (!token->isExpired(*platform_)) return token->value;
  // Expiry is noticed lazily, here.
  logLine(*platform_, "Autologin Token Has Expired!!!");
  clearExpiredAutologinToken(token);
  return std::nullopt;
}

void OLUserStatus::clearExpiredAutologinToken(const std::shared_ptr<AutologinToken>& expired) {
  MutexLock storage(tokenStorageMutex_);
  if (storageClosed_) return;
  {
    MutexLock lock(mutex_);
    if (_autologinToken != expired) return;  // a login stored a new one meanwhile
    _autologinToken.reset();
  }
  logLine(*platform_, "delete from disk autologin token");
  if (auto removed = storedTokens_->remove(kAutologinKey); !removed) {
    logLine(*platform_, removed.error().description());
  }
}

std::optional<std::string> OLUserStatus::ostrelToken() const {
  MutexLock lock(mutex_);
  return ostrelToken_;
}

std::string OLUserStatus::autologinTokenDescription() const {
  MutexLock lock(mutex_);
  return _autologinToken ? describeOptional(std::optional<std::string>(_autologinToken->value))
                         : "nil";
}

std::string OLUserStatus::currentUserToken() {
  if (auto service = ostrelToken()) return *service;
  if (auto autologin = autologinToken()) return *autologin;
  return anonymousToken_;
}

void OLUserStatus::setAutologinToken(std::optional<std::string> value) {
  std::shared_ptr<AutologinToken> token;
  if (value) token = std::make_shared<AutologinToken>(*value);
  MutexLock storage(tokenStorageMutex_);
  if (storageClosed_) return;
  {
    MutexLock lock(mutex_);
    _autologinToken = token;
  }
  // Storage failures are printed; the in-memory state stands.
  if (!token) {
    logLine(*platform_, "delete from disk autologin token");
    if (auto removed = storedTokens_->remove(kAutologinKey); !removed) {
      logLine(*platform_, removed.error().description());
    }
  } else if (auto added = storedTokens_->add(*token); !added) {
    logLine(*platform_, added.error().description());
  }
}

void OLUserStatus::loginUser(const std::string& ostrelToken,
                             const std::optional<std::string>& autologinToken) {
  bool hadToken;
  {
    MutexLock lock(mutex_);
    hadToken = ostrelToken_.has_value();
    ostrelToken_ = ostrelToken;
  }
  setAutologinToken(autologinToken);
  if (!hadToken) notify(OLNotification::UserLoginStateChanged, this, Json{{"error", nullptr}});
}

Result<void> OLUserStatus::setUserMetaInfo(const Json& info) {
  std::shared_ptr<OLUserMetaInfo> meta;
  {
    MutexLock lock(mutex_);
    if (_userMetaInfo) meta = std::make_shared<OLUserMetaInfo>(*_userMetaInfo);
  }
  // Changed as a copy, outside the lock (the setter prints), then published.
  if (meta) {
    meta->setInfo(info, *platform_);
  } else {
    meta =
        std::make_shared<OLUserMetaInfo>(info, platform_->clock->now(), _config.metaInfoCacheSecs);
  }
  {
    MutexLock lock(mutex_);
    _userMetaInfo = meta;
  }
  MutexLock storage(tokenStorageMutex_);
  if (storageClosed_) return {};
  logLine(*platform_, "Writing user_meta_info to " + storedUserMetaInfo_->storageUrl());
  auto added = storedUserMetaInfo_->add(*meta);
  if (!added) return added.error();
  return {};
}

void OLUserStatus::getUserMetaInfo(DictionaryCallback callback) {
  const std::string token = currentUserToken();
  if (token.starts_with("C_")) {
    callback(std::nullopt, Json{{"login", {{"created", nullptr}, {"flow", "custom"}}}});
    return;
  }
  if (ostrelToken()) {
    callback(std::nullopt, Json{{"login", {{"created", nullptr}, {"flow", "external"}}}});
    return;
  }
  std::shared_ptr<OLUserMetaInfo> cached;
  {
    MutexLock lock(mutex_);
    cached = _userMetaInfo;
  }
  if (cached && cached->info() && !cached->isExpired(*platform_)) {
    logLine(*platform_, "Cached Meta Info");
    callback(std::nullopt, *cached->info());
    return;
  }
  {
    MutexLock storage(tokenStorageMutex_);
    if (!storageClosed_) (void)storedUserMetaInfo_->clear();
  }
  auto self = shared_from_this();
  connectorBuilder_->buildConnector().send(
      OstrelAPIEndpoint::UserInfo, Json{{"user_id", token}},
      [self, callback](std::optional<OLError> error, int64_t, std::optional<Json> reply) {
        if (error) {
          callback(OLError::LocalError(LocalErrorCodes::UserMetaInfoError,
                                       "Internal error on UserInfo call", std::nullopt,
                                       Json{{"error", error->description()}}),
                   std::nullopt);
          return;
        }
        if (!reply) {
          callback(OLError::LocalError(LocalErrorCodes::UserMetaInfoError, "Unexpected Null body"),
                   std::nullopt);
          return;
        }
        if (auto stored = self->setUserMetaInfo(*reply); !stored) {
          callback(OLError::LocalError(LocalErrorCodes::UserMetaInfoError,
                                       "Error in Storage of User Meta Info", std::nullopt,
                                       Json{{"error", stored.error().description()}}),
                   std::nullopt);
          return;
        }
        callback(std::nullopt, *reply);
      });
}

void OLUserStatus::logoutUser(const std::string& logoutType, ErrorCallback callback) {
  const std::string token = currentUserToken();
  if (token == anonymousToken_) {
    // Nobody to log out: nothing changes and nothing is reported.
    callback(std::nullopt);
    return;
  }
  Result<void> cleared;
  {
    MutexLock storage(tokenStorageMutex_);
    if (!storageClosed_) cleared = storedUserMetaInfo_->clear();
  }
  {
    MutexLock lock(mutex_);
    _userMetaInfo.reset();
  }
  if (!cleared) {
    callback(
        OLError::LocalError(LocalErrorCodes::LogoutError, "Error in user logout", std::nullopt,
                            Json{{"userToken", token}, {"error", cleared.error().description()}}));
    return;
  }
  {
    MutexLock lock(mutex_);
    ostrelToken_.reset();
  }
  setAutologinToken(std::nullopt);
  {
    MutexLock storage(tokenStorageMutex_);
    if (!storageClosed_) (void)storedTokens_->clear();
  }
  notify(OLNotification::UserLoginStateChanged, this, Json{{"error", nullptr}});
  if (auto listener = stateChangeListener()) listener->onUserStateChanged(std::nullopt);
  std::function<void(const std::string&, const std::string&)> sink;
  {
    MutexLock lock(mutex_);
    sink = logoutSink_;
  }
  if (sink) sink(token, logoutType);
  callback(std::nullopt);
}

void OLUserStatus::deleteUser(ErrorCallback callback) {
  const std::string token = currentUserToken();
  if (token == anonymousToken_) {
    callback(OLError::LocalError(LocalErrorCodes::UserDeleteError, "User Not Logged", std::nullopt,
                                 Json{{"userToken", token}}));
    return;
  }
  if (token.starts_with("C_")) {
    callback(OLError::LocalError(LocalErrorCodes::UserDeleteError, "User cannot be custom",
                                 std::nullopt, Json{{"userToken", token}}));
    return;
  }
  auto self = shared_from_this();
  const Json input = {{"user_id", token}};
  connectorBuilder_->buildConnector().send(
      OstrelAPIEndpoint::UserDelete, input,
      [self, input, callback](std::optional<OLError> error, int64_t status,
                              std::optional<Json> reply) {
        if (error) {
          callback(serviceCallError("Ostrel Auth End gave an error", input, status, reply,
                                    LocalErrorCodes::UserDeleteError));
          return;
        }
        self->logoutUser("delete", callback);
      });
}

void OLUserStatus::generateTransientToken(TokenCallback callback) {
  const std::string token = currentUserToken();
  const Json input = {{"user_id", token}};
  connectorBuilder_->buildConnector().send(
      OstrelAPIEndpoint::GenerateTransientToken, input,
      [input, token, callback](std::optional<OLError> error, int64_t status,
                               std::optional<Json> reply) {
        if (error) {
          callback(serviceCallError("Ostrel Auth End gave an error", input, status, reply,
                                    LocalErrorCodes::InvalidUserToken),
                   std::nullopt);
          return;
        }
        if (reply && reply->contains("transient") && (*reply)["transient"].is_string()) {
          callback(std::nullopt, (*reply)["transient"].get<std::string>());
          return;
        }
        callback(OLError::LocalError(LocalErrorCodes::InvalidUserToken,
                                     "Unable to retrieve transient Token", std::nullopt,
                                     Json{{"userToken", token}}),
                 std::nullopt);
      });
}

void OLUserStatus::setStateChangeListener(std::weak_ptr<UserStateChangeListener> listener) {
  MutexLock lock(mutex_);
  stateChangeListener_ = std::move(listener);
}

std::shared_ptr<UserStateChangeListener> OLUserStatus::stateChangeListener() const {
  MutexLock lock(mutex_);
  return stateChangeListener_.lock();
}

void OLUserStatus::setLogoutEventSink(
    std::function<void(const std::string&, const std::string&)> sink) {
  MutexLock lock(mutex_);
  logoutSink_ = std::move(sink);
}

}  // namespace ostrel
