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

struct OLLoginBuilder::Fields {
  ErrorCallback onFlowCompleteCallback;
  std::shared_ptr<OLStatus> ostrelState;
  std::optional<std::string> customId;
  std::shared_ptr<OLSimpleObject> customData;
  std::optional<std::string> clientId;
  std::optional<std::string> manualToken;
  std::optional<std::string> email;
  std::optional<std::string> password;
  std::shared_ptr<OLSimpleObject> emailParams;
  std::shared_ptr<OLSimpleObject> userProperties;
  std::optional<std::string> msisdn;
  std::optional<std::string> pin;
  std::optional<std::string> externalId;
  std::optional<std::string> offerId;
  std::optional<std::string> pony;
  std::shared_ptr<ConnectorBuilder> buildConnector;
  std::weak_ptr<OLQueueManager> eventManager;
  std::optional<std::string> brivolaUser;
  std::optional<std::string> infoUtente;
  std::optional<std::string> receiptUrl;
  std::optional<std::string> imsi;
};

OLLoginBuilder::OLLoginBuilder() : d_(std::make_unique<Fields>()) {}
OLLoginBuilder::~OLLoginBuilder() = default;

const std::optional<std::string>& OLLoginBuilder::pin() const {
  return d_->pin;
}

std::shared_ptr<OLLoginBuilder> OLLoginBuilder::make(
    std::shared_ptr<OLStatus> state, std::shared_ptr<ConnectorBuilder> connectorBuilder,
    std::weak_ptr<OLQueueManager> eventManager) {
  auto b = std::shared_ptr<OLLoginBuilder>(new OLLoginBuilder());
  b->d_->ostrelState = std::move(state);
  b->d_->buildConnector = std::move(connectorBuilder);
  b->d_->eventManager = std::move(eventManager);
  return b;
}

OLLoginBuilder& OLLoginBuilder::setOnFlowCompleteCallback(ErrorCallback c) {
  // A flow refused at its start ends inside startLoginFlow.
  d_->onFlowCompleteCallback =
      answeredOnNetworkThread(d_->ostrelState->platformRef(), std::move(c));
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setCustomData(std::shared_ptr<OLSimpleObject> v) {
  d_->customData = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setCustomID(std::string v) {
  d_->customId = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setAccessToken(std::string v) {
  d_->manualToken = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setOAuthClientID(std::string v) {
  d_->clientId = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setEmail(std::string v) {
  d_->email = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setPassword(std::string v) {
  d_->password = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setProductEmailParams(std::shared_ptr<OLSimpleObject> v) {
  d_->emailParams = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setUserProperties(std::shared_ptr<OLSimpleObject> v) {
  d_->userProperties = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setMSISDN(std::string v) {
  d_->msisdn = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setPIN(std::string v) {
  d_->pin = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setNOPIN() {
  d_->pin = kNoPinSentinel;
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setExternalID(std::string v) {
  d_->externalId = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setOfferId(std::string v) {
  d_->offerId = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setPony(std::string v) {
  d_->pony = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setBrivolaUser(std::string v) {
  d_->brivolaUser = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setInfoUtente(std::string v) {
  d_->infoUtente = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setIMSI(std::string v) {
  d_->imsi = std::move(v);
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setAllowCustomLoginSession() {
  logLine(d_->ostrelState->platform(), "Dummy method setAllowCustomLoginSession");
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setReturnUrl(const std::string&) {
  logLine(d_->ostrelState->platform(), "Dummy method setReturnUrl");
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setWaitingUrl(const std::string&) {
  logLine(d_->ostrelState->platform(), "Dummy method setWaitingUrl");
  return *this;
}
OLLoginBuilder& OLLoginBuilder::setErrorUrl(const std::string&) {
  logLine(d_->ostrelState->platform(), "Dummy method setErrorUrl");
  return *this;
}

Result<void> OLLoginBuilder::checkRequirements() {
  if (d_->ostrelState->hasRunningFlow()) return builderError("Another Flow is in progress");
  auto& user = *d_->ostrelState->userState();
  const std::string token = user.currentUserToken();
  if (token != user.anonymousToken()) {
    return builderError("User Already Logged", Json{{"userToken", token}});
  }
  return {};
}

Result<void> OLLoginBuilder::checkEmail(bool needsPassword) {
  if (auto ok = checkRequirements(); !ok) return ok;
  if (!d_->email) return builderError("Missing EMAIL credential");
  if (d_->email->empty())
    return builderError("Wrong EMAIL credential", Json{{"email", *d_->email}});
  if (needsPassword && !d_->password) return builderError("Missing PASSWORD credential");
  return {};
}

std::function<void(std::optional<OLError>, std::optional<std::string>)> OLLoginBuilder::finalizer(
    LoginType loginType) {
  return [self = shared_from_this(), loginType](std::optional<OLError> e,
                                                std::optional<std::string> t) {
    self->finalizeFlow(std::move(e), std::move(t), loginType, self->d_->customData);
  };
}

void OLLoginBuilder::finalizeFlow(std::optional<OLError> error,
                                  std::optional<std::string> sessionToken, LoginType loginType,
                                  const std::shared_ptr<OLSimpleObject>& customData) {
  auto listener = d_->ostrelState->userState()->stateChangeListener();
  logLine(d_->ostrelState->platform(),
          "State Change Listener " + (listener ? listener->description() : std::string("none")));
  if (!error) {
    if (auto manager = d_->eventManager.lock(); manager && sessionToken) {
      logLine(d_->ostrelState->platform(),
              "Queueing identify event of " + std::string(rawValue(loginType)));
      (void)manager->generateIdentify(*sessionToken, customData,
                                      IdentificationType::login(loginType));
    }
    logLine(d_->ostrelState->platform(),
            std::string("Finalize Login Flow ") + (listener ? "true" : "false"));
    if (listener) listener->onUserStateChanged(std::nullopt);
    if (d_->onFlowCompleteCallback) d_->onFlowCompleteCallback(std::nullopt);
    return;
  }
  logLine(d_->ostrelState->platform(), "Finalize Login Flow Error " + error->description());
  if (listener) listener->onUserStateChanged(error);
  if (d_->onFlowCompleteCallback) d_->onFlowCompleteCallback(error);
}

void OLLoginBuilder::autologinCompleted(std::optional<OLError> error,
                                        std::optional<std::string> token) {
  auto user = d_->ostrelState->userState();
  if (error && error->statusCode()) {
    // The stored credentials are no longer accepted.
    const int64_t status = *error->statusCode();
    const char* type = status == 401 ? "refresh" : status == 400 ? "invalid" : "error";
    auto callback = d_->onFlowCompleteCallback;
    auto original = *error;
    user->logoutUser(type, [callback, original](std::optional<OLError>) {
      if (callback) callback(original);
    });
    return;
  }
  if (error) {
    if (auto listener = user->stateChangeListener()) listener->onUserStateChanged(error);
    if (d_->onFlowCompleteCallback) d_->onFlowCompleteCallback(error);
    return;
  }
  if (!token) {
    if (d_->onFlowCompleteCallback) {
      d_->onFlowCompleteCallback(OLError::LocalError(LocalErrorCodes::AutologinServerError,
                                                     "Missing User Token in Autologin Response"));
    }
    return;
  }
  if (auto manager = d_->eventManager.lock()) {
    (void)manager->generateIdentify(*token, d_->customData,
                                    IdentificationType::login(LoginType::autologin));
  }
  if (d_->onFlowCompleteCallback) d_->onFlowCompleteCallback(std::nullopt);
}

Result<std::shared_ptr<OLAutoLoginFlow>> OLLoginBuilder::getAutoLoginFlow() {
  auto flow =
      std::make_shared<OLAutoLoginFlowImpl>(d_->ostrelState, d_->buildConnector->buildConnector());
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
      d_->ostrelState, d_->buildConnector->buildConnector(), *d_->email, d_->password);
  flow->setInternalCompletionCallback(finalizer(LoginType::email));
  return {std::move(flow)};
}

Result<std::shared_ptr<OLEmailSignupLoginFlow>> OLLoginBuilder::getEmailSignupFlow() {
  if (auto ok = checkEmail(true); !ok) return ok.error();
  auto flow = std::make_shared<OLEmailSignupLoginFlowImpl>(
      d_->ostrelState, d_->buildConnector->buildConnector(), *d_->email, d_->password,
      d_->userProperties);
  flow->setInternalCompletionCallback(finalizer(LoginType::emailSignup));
  return {std::move(flow)};
}

Result<std::shared_ptr<OLEmailForgotFlow>> OLLoginBuilder::getEmailForgotFlow() {
  if (auto ok = checkEmail(false); !ok) return ok.error();
  auto flow = std::make_shared<OLEmailForgotFlowImpl>(
      d_->ostrelState, d_->buildConnector->buildConnector(), *d_->email);
  flow->setInternalCompletionCallback(finalizer(LoginType::email));
  return {std::move(flow)};
}

Result<std::shared_ptr<OLEmailResendFlow>> OLLoginBuilder::getEmailResendFlow() {
  if (auto ok = checkEmail(false); !ok) return ok.error();
  auto flow = std::make_shared<OLEmailResendFlowImpl>(
      d_->ostrelState, d_->buildConnector->buildConnector(), *d_->email);
  flow->setInternalCompletionCallback(finalizer(LoginType::emailConfirm));
  return {std::move(flow)};
}

Result<std::shared_ptr<OLMSISDNPINLoginFlow>> OLLoginBuilder::getMSISDPINLoginFlow() {
  if (auto ok = checkRequirements(); !ok) return ok.error();
  if (!d_->msisdn) return builderError("Missing MSISDN credential");
  auto flow = std::make_shared<OLMSISDNPINLoginFlowImpl>(
      d_->ostrelState, d_->buildConnector->buildConnector(), *d_->msisdn, d_->pin);
  flow->setInternalCompletionCallback(finalizer(LoginType::msisdnPin));
  return {std::move(flow)};
}

Result<std::shared_ptr<OLMSISDNUserRecognitionLoginFlow>> OLLoginBuilder::getMSISDNURLoginFlow() {
  if (auto ok = checkRequirements(); !ok) return ok.error();
  auto flow = std::make_shared<OLMSISDNUserRecognitionLoginFlowImpl>(
      d_->ostrelState, d_->buildConnector->buildConnector(), d_->imsi, 0, kOperatorPagePattern);
  flow->setInternalCompletionCallback(finalizer(LoginType::msisdnUR));
  return {std::move(flow)};
}

OLLoginBuilder& OLLoginBuilder::setReceiptUrl(std::string path) {
  d_->receiptUrl = std::move(path);
  return *this;
}

Result<std::shared_ptr<OLCustomLoginFlow>> OLLoginBuilder::getCustomLoginFlow() {
  if (auto ok = checkRequirements(); !ok) return ok.error();
  if (!d_->customId) return builderError("Missing customID");
  auto flow = std::make_shared<OLCustomLoginFlowImpl>(
      d_->ostrelState, d_->buildConnector->buildConnector(), *d_->customId);
  flow->setInternalCompletionCallback(finalizer(LoginType::custom));
  return {std::move(flow)};
}

Result<std::shared_ptr<OLExternalLoginFlow>> OLLoginBuilder::getExternalLoginFlow() {
  if (auto ok = checkRequirements(); !ok) return ok.error();
  if (!d_->externalId) return builderError("Missing externalID");
  auto flow = std::make_shared<OLExternalLoginFlowImpl>(
      d_->ostrelState, d_->buildConnector->buildConnector(), *d_->externalId);
  flow->setInternalCompletionCallback(finalizer(LoginType::external));
  return {std::move(flow)};
}

Result<std::shared_ptr<OLPaymentReceiptLoginFlow>> OLLoginBuilder::getPaymentReceiptLoginFlow() {
  if (auto ok = checkRequirements(); !ok) return ok.error();
  const Json offer = {{"offerId", describeOptional(d_->offerId)}};
  if (!d_->offerId) return builderError("Missing OfferId", offer);
  if (d_->offerId->size() != 32) return builderError("Invalid OfferId", offer);
  auto flow = std::make_shared<OLPaymentReceiptLoginFlowImpl>(
      d_->ostrelState, d_->buildConnector->buildConnector(), *d_->offerId, d_->receiptUrl,
      d_->emailParams);
  flow->setInternalCompletionCallback(finalizer(LoginType::paymentReceipt));
  return {std::move(flow)};
}

Result<std::shared_ptr<OLMFPLoginFlow>> OLLoginBuilder::getMFPLoginFlow() {
  if (auto ok = checkRequirements(); !ok) return ok.error();
  auto decoded = d_->pony ? d_->ostrelState->decodePony(*d_->pony) : std::nullopt;
  if (!decoded) {
    return OLError::LocalError(LocalErrorCodes::LoginBuilderError,
                               "Unable to retrieve Mobile Fingerprint", std::nullopt,
                               Json{{"pony", describeOptional(d_->pony)}});
  }
  // The pony is outside input: a field of another type is no field at all.
  auto text = [&](const char* key) {
    auto it = decoded->find(key);
    return it != decoded->end() && it->is_string() ? it->get<std::string>() : std::string();
  };
  auto flow = std::make_shared<OLMFPLoginFlowImpl>(
      d_->ostrelState, d_->buildConnector->buildConnector(), text("session_id"), text("user_id"));
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
                           ponyData ? ponyData : self->d_->customData);
      });
  return {std::move(flow)};
}

Result<std::shared_ptr<OLUO2CredentialsLoginFlow>> OLLoginBuilder::getUO2CredentialsLoginFlow() {
  if (auto ok = checkRequirements(); !ok) return ok.error();
  if (!d_->infoUtente) {
    return builderError("Missing InfoUtente parameter",
                        Json{{"infoUtente", describeOptional(d_->infoUtente)}});
  }
  if (!d_->brivolaUser) {
    return builderError("Missing BrivolaUser parameter",
                        Json{{"brivolaUser", describeOptional(d_->brivolaUser)}});
  }
  auto flow = std::make_shared<OLUO2CredentialsLoginFlowImpl>(
      d_->ostrelState, d_->buildConnector->buildConnector(), *d_->brivolaUser, *d_->infoUtente);
  flow->setInternalCompletionCallback(finalizer(LoginType::withUO20credentials));
  return {std::move(flow)};
}

}  // namespace ostrel
