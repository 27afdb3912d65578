#include "ostrel/ol_login_builder.h"

#include "core/answer_off_caller.h"
#include "login/email_flows.h"
#include "login/msisdn_flows.h"
#include "login/ol_auto_login_flow.h"
#include "login/ol_user_status.h"
#include "login/other_flows.h"
#include "queue/ol_queue_manager.h"
#include "status/ol_status.h"
#include "transport/connector_builder.h"

namespace ostrel {
namespace {
OLError builderError(std::string message, std::optional<Json> extra = std::nullopt) {
  return OLError::LocalError(LocalErrorCodes::LoginBuilderError, std::move(message), std::nullopt,
                             std::move(extra));
}
// The page pattern of the operator recognition: an address up to a double quote.
const char* kOperatorPagePattern = "http://\\S+\"";
}  // namespace

std::shared_ptr<OLLoginBuilder> OLLoginBuilder::make(
    std::shared_ptr<OLStatus> state, std::shared_ptr<ConnectorBuilder> connectorBuilder,
    std::weak_ptr<OLQueueManager> eventManager) {
  auto b = std::shared_ptr<OLLoginBuilder>(new OLLoginBuilder());
  b->_ostrelState = std::move(state);
  b->_buildConnector = std::move(connectorBuilder);
  b->_eventManager = std::move(eventManager);
  return b;
}

OLLoginBuilder& OLLoginBuilder::setOnFlowCompleteCallback(ErrorCallback c) {
  // A flow refused at its start ends inside startLoginFlow.
  _onFlowCompleteCallback = answeredOnNetworkThread(_ostrelState->platformRef(), std::move(c));
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setCustomData(std::shared_ptr<OLSimpleObject> v) {
  _customData = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setCustomID(std::string v) {
  _customId = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setAccessToken(std::string v) {
  _manualToken = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setOAuthClientID(std::string v) {
  _clientId = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setEmail(std::string v) {
  _email = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setPassword(std::string v) {
  _password = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setProductEmailParams(std::shared_ptr<OLSimpleObject> v) {
  _emailParams = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setUserProperties(std::shared_ptr<OLSimpleObject> v) {
  _userProperties = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setMSISDN(std::string v) {
  _msisdn = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setPIN(std::string v) {
  _pin = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setNOPIN() {
  _pin = kNoPinSentinel;
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setExternalID(std::string v) {
  _externalId = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setOfferId(std::string v) {
  _offerId = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setPony(std::string v) {
  _pony = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setBrivolaUser(std::string v) {
  _brivolaUser = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setInfoUtente(std::string v) {
  _infoUtente = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setIMSI(std::string v) {
  _imsi = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setAllowCustomLoginSession() {
  logLine(_ostrelState->platform(), "Dummy method setAllowCustomLoginSession");
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setReturnUrl(const std::string&) {
  logLine(_ostrelState->platform(), "Dummy method setReturnUrl");
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setWaitingUrl(const std::string&) {
  logLine(_ostrelState->platform(), "Dummy method setWaitingUrl");
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setErrorUrl(const std::string&) {
  logLine(_ostrelState->platform(), "Dummy method setErrorUrl");
  return *this;
}

Result<void> OLLoginBuilder::checkRequirements() {
  if (_ostrelState->hasRunningFlow()) return builderError("Another Flow is in progress");
  auto& user = *_ostrelState->userState();
  const std::string token = user.currentUserToken();
  if (token != user.anonymousToken()) {
    return builderError("User Already Logged", Json{{"userToken", token}});
  }
  return {};
}

Result<void> OLLoginBuilder::checkEmail(bool needsPassword) {
  if (auto ok = checkRequirements(); !ok) return ok;
  if (!_email) return builderError("Missing EMAIL credential");
  if (_email->empty()) return builderError("Wrong EMAIL credential", Json{{"email", *_email}});
  if (needsPassword && !_password) return builderError("Missing PASSWORD credential");
  return {};
}

std::function<void(std::optional<OLError>, std::optional<std::string>)> OLLoginBuilder::finalizer(
    LoginType loginType) {
  return [self = shared_from_this(), loginType](std::optional<OLError> e,
                                                std::optional<std::string> t) {
    self->finalizeFlow(std::move(e), std::move(t), loginType, self->_customData);
  };
}

void OLLoginBuilder::finalizeFlow(std::optional<OLError> error,
                                  std::optional<std::string> sessionToken, LoginType loginType,
                                  const std::shared_ptr<OLSimpleObject>& customData) {
  auto listener = _ostrelState->userState()->stateChangeListener();
  logLine(_ostrelState->platform(),
          "State Change Listener " + (listener ? listener->description() : std::string("none")));
  if (!error) {
    if (auto manager = _eventManager.lock(); manager && sessionToken) {
      logLine(_ostrelState->platform(),
              "Queueing identify event of " + std::string(rawValue(loginType)));
      (void)manager->generateIdentify(*sessionToken, customData,
                                      IdentificationType::login(loginType));
    }
    logLine(_ostrelState->platform(),
            std::string("Finalize Login Flow ") + (listener ? "true" : "false"));
    if (listener) listener->onUserStateChanged(std::nullopt);
    if (_onFlowCompleteCallback) _onFlowCompleteCallback(std::nullopt);
    return;
  }
  logLine(_ostrelState->platform(), "Finalize Login Flow Error " + error->description());
  if (listener) listener->onUserStateChanged(error);
  if (_onFlowCompleteCallback) _onFlowCompleteCallback(error);
}

void OLLoginBuilder::autologinCompleted(std::optional<OLError> error,
                                        std::optional<std::string> token) {
  auto user = _ostrelState->userState();
  if (error && error->statusCode()) {
    // The stored credentials are no longer accepted.
    const int64_t status = *error->statusCode();
    const char* type = status == 401 ? "refresh" : status == 400 ? "invalid" : "error";
    auto callback = _onFlowCompleteCallback;
    auto original = *error;
    user->logoutUser(type, [callback, original](std::optional<OLError>) {
      if (callback) callback(original);
    });
    return;
  }
  if (error) {
    if (auto listener = user->stateChangeListener()) listener->onUserStateChanged(error);
    if (_onFlowCompleteCallback) _onFlowCompleteCallback(error);
    return;
  }
  if (!token) {
    if (_onFlowCompleteCallback) {
      _onFlowCompleteCallback(OLError::LocalError(LocalErrorCodes::AutologinServerError,
                                                  "Missing User Token in Autologin Response"));
    }
    return;
  }
  if (auto manager = _eventManager.lock()) {
    (void)manager->generateIdentify(*token, _customData,
                                    IdentificationType::login(LoginType::autologin));
  }
  if (_onFlowCompleteCallback) _onFlowCompleteCallback(std::nullopt);
}

Result<std::shared_ptr<OLAutoLoginFlow>> OLLoginBuilder::getAutoLoginFlow() {
  auto flow =
      std::make_shared<OLAutoLoginFlowImpl>(_ostrelState, _buildConnector->buildConnector());
  std::weak_ptr<OLLoginBuilder> weak = weak_from_this();
  auto self = shared_from_this();  // the builder lives while its flow runs
  flow->setInternalCompletionCallback(
      [self](std::optional<OLError> e, std::optional<std::string> t) {
        self->autologinCompleted(std::move(e), std::move(t));
      });
  return {std::move(flow)};
}

Result<std::shared_ptr<OLEmailPasswordLoginFlow>> OLLoginBuilder::getEmailLoginFlow() {
  if (auto ok = checkEmail(true); !ok) return ok.error();
  auto flow = std::make_shared<OLEmailPasswordLoginFlowImpl>(
      _ostrelState, _buildConnector->buildConnector(), *_email, _password);
  flow->setInternalCompletionCallback(finalizer(LoginType::email));
  return {std::move(flow)};
}

Result<std::shared_ptr<OLEmailSignupLoginFlow>> OLLoginBuilder::getEmailSignupFlow() {
  if (auto ok = checkEmail(true); !ok) return ok.error();
  auto flow = std::make_shared<OLEmailSignupLoginFlowImpl>(
      _ostrelState, _buildConnector->buildConnector(), *_email, _password, _userProperties);
  flow->setInternalCompletionCallback(finalizer(LoginType::emailSignup));
  return {std::move(flow)};
}

Result<std::shared_ptr<OLEmailForgotFlow>> OLLoginBuilder::getEmailForgotFlow() {
  if (auto ok = checkEmail(false); !ok) return ok.error();
  auto flow = std::make_shared<OLEmailForgotFlowImpl>(_ostrelState,
                                                      _buildConnector->buildConnector(), *_email);
  flow->setInternalCompletionCallback(finalizer(LoginType::email));
  return {std::move(flow)};
}

Result<std::shared_ptr<OLEmailResendFlow>> OLLoginBuilder::getEmailResendFlow() {
  if (auto ok = checkEmail(false); !ok) return ok.error();
  auto flow = std::make_shared<OLEmailResendFlowImpl>(_ostrelState,
                                                      _buildConnector->buildConnector(), *_email);
  flow->setInternalCompletionCallback(finalizer(LoginType::emailConfirm));
  return {std::move(flow)};
}

Result<std::shared_ptr<OLMSISDNPINLoginFlow>> OLLoginBuilder::getMSISDPINLoginFlow() {
  if (auto ok = checkRequirements(); !ok) return ok.error();
  if (!_msisdn) return builderError("Missing MSISDN credential");
  auto flow = std::make_shared<OLMSISDNPINLoginFlowImpl>(
      _ostrelState, _buildConnector->buildConnector(), *_msisdn, _pin);
  flow->setInternalCompletionCallback(finalizer(LoginType::msisdnPin));
  return {std::move(flow)};
}

Result<std::shared_ptr<OLMSISDNUserRecognitionLoginFlow>> OLLoginBuilder::getMSISDNURLoginFlow() {
  if (auto ok = checkRequirements(); !ok) return ok.error();
  auto flow = std::make_shared<OLMSISDNUserRecognitionLoginFlowImpl>(
      _ostrelState, _buildConnector->buildConnector(), _imsi, 0, kOperatorPagePattern);
  flow->setInternalCompletionCallback(finalizer(LoginType::msisdnUR));
  return {std::move(flow)};
}

OLLoginBuilder& OLLoginBuilder::setReceiptUrl(std::string path) {
  _receiptUrl = std::move(path);
  return *this;
}

Result<std::shared_ptr<OLCustomLoginFlow>> OLLoginBuilder::getCustomLoginFlow() {
  if (auto ok = checkRequirements(); !ok) return ok.error();
  if (!_customId) return builderError("Missing customID");
  auto flow = std::make_shared<OLCustomLoginFlowImpl>(
      _ostrelState, _buildConnector->buildConnector(), *_customId);
  flow->setInternalCompletionCallback(finalizer(LoginType::custom));
  return {std::move(flow)};
}

Result<std::shared_ptr<OLExternalLoginFlow>> OLLoginBuilder::getExternalLoginFlow() {
  if (auto ok = checkRequirements(); !ok) return ok.error();
  if (!_externalId) return builderError("Missing externalID");
  auto flow = std::make_shared<OLExternalLoginFlowImpl>(
      _ostrelState, _buildConnector->buildConnector(), *_externalId);
  flow->setInternalCompletionCallback(finalizer(LoginType::external));
  return {std::move(flow)};
}

Result<std::shared_ptr<OLPaymentReceiptLoginFlow>> OLLoginBuilder::getPaymentReceiptLoginFlow() {
  if (auto ok = checkRequirements(); !ok) return ok.error();
  const Json offer = {{"offerId", describeOptional(_offerId)}};
  if (!_offerId) return builderError("Missing OfferId", offer);
  if (_offerId->size() != 32) return builderError("Invalid OfferId", offer);
  auto flow = std::make_shared<OLPaymentReceiptLoginFlowImpl>(
      _ostrelState, _buildConnector->buildConnector(), *_offerId, _receiptUrl, _emailParams);
  flow->setInternalCompletionCallback(finalizer(LoginType::paymentReceipt));
  return {std::move(flow)};
}

Result<std::shared_ptr<OLMFPLoginFlow>> OLLoginBuilder::getMFPLoginFlow() {
  if (auto ok = checkRequirements(); !ok) return ok.error();
  auto decoded = _pony ? _ostrelState->decodePony(*_pony) : std::nullopt;
  if (!decoded) {
    return OLError::LocalError(LocalErrorCodes::LoginBuilderError,
                               "Unable to retrieve Mobile Fingerprint", std::nullopt,
                               Json{{"pony", describeOptional(_pony)}});
  }
  // The pony is outside input: a field of another type is no field at all.
  auto text = [&](const char* key) {
    auto it = decoded->find(key);
    return it != decoded->end() && it->is_string() ? it->get<std::string>() : std::string();
  };
  auto flow = std::make_shared<OLMFPLoginFlowImpl>(_ostrelState, _buildConnector->buildConnector(),
                                                   text("session_id"), text("user_id"));
  // The pony's custom data belongs to this flow's identify event; the builder's
  // own stays for the flows it hands out next.
  std::shared_ptr<OLSimpleObject> ponyData;
  if (auto data = decoded->find("custom_data"); data != decoded->end()) {
    ponyData = OLSimpleObject::fromDictionary(*data);
  }
  auto self = shared_from_this();
  flow->setInternalCompletionCallback(
      [self, ponyData](std::optional<OLError> e, std::optional<std::string> t) {
        self->finalizeFlow(std::move(e), std::move(t), LoginType::mfp,
                           ponyData ? ponyData : self->_customData);
      });
  return {std::move(flow)};
}

Result<std::shared_ptr<OLUO2CredentialsLoginFlow>> OLLoginBuilder::getUO2CredentialsLoginFlow() {
  if (auto ok = checkRequirements(); !ok) return ok.error();
  if (!_infoUtente) {
    return builderError("Missing InfoUtente parameter",
                        Json{{"infoUtente", describeOptional(_infoUtente)}});
  }
  if (!_brivolaUser) {
    return builderError("Missing BrivolaUser parameter",
                        Json{{"brivolaUser", describeOptional(_brivolaUser)}});
  }
  auto flow = std::make_shared<OLUO2CredentialsLoginFlowImpl>(
      _ostrelState, _buildConnector->buildConnector(), *_brivolaUser, *_infoUtente);
  flow->setInternalCompletionCallback(finalizer(LoginType::withUO20credentials));
  return {std::move(flow)};
}

}  // namespace ostrel
