#pragma once
// The host's way to obtain a login flow: chained setters for credentials,
// then one getter that checks the library's state and the credentials and
// answers a ready flow (or a LoginBuilderError, without touching the network).
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "ostrel/callbacks.h"
#include "ostrel/event_types.h"
#include "ostrel/export.h"
#include "ostrel/ol_login_flow.h"
#include "ostrel/ol_simple_object.h"
#include "ostrel/result.h"

namespace ostrel {

class ConnectorBuilder;
class OLStatus;
class OLQueueManager;
class OstrelFacadeImpl;

// Obtained from Ostrel::getLoginBuilder. One thread at a time: set what the
// flow needs, then get and start it.
class OSTREL_API OLLoginBuilder : public std::enable_shared_from_this<OLLoginBuilder> {
 public:
  // Runs once per started flow, with its outcome, on the library's network
  // thread, also when the flow ends at once (another flow under way).
  OLLoginBuilder& setOnFlowCompleteCallback(ErrorCallback callback);
  OLLoginBuilder& setCustomData(std::shared_ptr<OLSimpleObject> customData);
  OLLoginBuilder& setCustomID(std::string customId);
  OLLoginBuilder& setAccessToken(std::string token);
  OLLoginBuilder& setOAuthClientID(std::string clientId);
  OLLoginBuilder& setEmail(std::string email);
  OLLoginBuilder& setPassword(std::string password);
  OLLoginBuilder& setProductEmailParams(std::shared_ptr<OLSimpleObject> params);
  OLLoginBuilder& setUserProperties(std::shared_ptr<OLSimpleObject> userProperties);
  OLLoginBuilder& setMSISDN(std::string msisdn);
  OLLoginBuilder& setPIN(std::string pin);
  // The user has no PIN: the service is told with a fixed placeholder.
  OLLoginBuilder& setNOPIN();
  OLLoginBuilder& setExternalID(std::string externalId);
  OLLoginBuilder& setOfferId(std::string offerId);
  OLLoginBuilder& setPony(std::string pony);
  OLLoginBuilder& setBrivolaUser(std::string brivolaUser);
  OLLoginBuilder& setInfoUtente(std::string infoUtente);
  // The SIM's IMSI, sent by the operator recognition flow (absent when never set).
  OLLoginBuilder& setIMSI(std::string imsi);
  // Kept for host code written against an older interface; they only print.
  OLLoginBuilder& setAllowCustomLoginSession();
  OLLoginBuilder& setReturnUrl(const std::string& url);
  OLLoginBuilder& setWaitingUrl(const std::string& url);
  OLLoginBuilder& setErrorUrl(const std::string& url);

  Result<std::shared_ptr<OLAutoLoginFlow>> getAutoLoginFlow();
  Result<std::shared_ptr<OLEmailPasswordLoginFlow>> getEmailLoginFlow();
  Result<std::shared_ptr<OLEmailForgotFlow>> getEmailForgotFlow();
  Result<std::shared_ptr<OLEmailResendFlow>> getEmailResendFlow();
  Result<std::shared_ptr<OLEmailSignupLoginFlow>> getEmailSignupFlow();
  Result<std::shared_ptr<OLMSISDNPINLoginFlow>> getMSISDPINLoginFlow();
  Result<std::shared_ptr<OLMSISDNUserRecognitionLoginFlow>> getMSISDNURLoginFlow();
  Result<std::shared_ptr<OLCustomLoginFlow>> getCustomLoginFlow();
  Result<std::shared_ptr<OLExternalLoginFlow>> getExternalLoginFlow();
  Result<std::shared_ptr<OLPaymentReceiptLoginFlow>> getPaymentReceiptLoginFlow();
  Result<std::shared_ptr<OLMFPLoginFlow>> getMFPLoginFlow();
  Result<std::shared_ptr<OLUO2CredentialsLoginFlow>> getUO2CredentialsLoginFlow();
  // Where the payment-receipt login reads the store receipt.
  OLLoginBuilder& setReceiptUrl(std::string path);

  const std::optional<std::string>& pin() const;

  ~OLLoginBuilder();
  OLLoginBuilder(const OLLoginBuilder&) = delete;
  OLLoginBuilder& operator=(const OLLoginBuilder&) = delete;

 private:
  friend class OstrelFacadeImpl;
  static std::shared_ptr<OLLoginBuilder> make(std::shared_ptr<OLStatus> state,
                                              std::shared_ptr<ConnectorBuilder> connectorBuilder,
                                              std::weak_ptr<OLQueueManager> eventManager);
  OLLoginBuilder();
  Result<void> checkRequirements();
  Result<void> checkEmail(bool needsPassword);
  void autologinCompleted(std::optional<OLError> error, std::optional<std::string> token);
  // The end of a flow this builder hands out (every one but the autologin):
  // the finalize step for `loginType`. It keeps the builder alive until then.
  std::function<void(std::optional<OLError>, std::optional<std::string>)> finalizer(
      LoginType loginType);
  // The finalize step with the custom data the identify event carries.
  void finalizeFlow(std::optional<OLError> error, std::optional<std::string> sessionToken,
                    LoginType loginType, const std::shared_ptr<OLSimpleObject>& customData);

  struct Fields;  // what the builder was told and what it works with
  std::unique_ptr<Fields> d_;
};

}  // namespace ostrel
