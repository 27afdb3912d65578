#include "login/msisdn_flows.h"

#include "login/service_error_mapping.h"
#include "status/ol_status.h"

namespace ostrel {

OLMSISDNPINLoginFlowImpl::OLMSISDNPINLoginFlowImpl(std::shared_ptr<OLStatus> state,
                                                   OLConnector connector, std::string msisdn,
                                                   std::optional<std::string> pin)
    : OLLoginFlowBase(std::move(state), std::move(connector)),
      _msisdn(std::move(msisdn)),
      _pin(std::move(pin)) {}

void OLMSISDNPINLoginFlowImpl::startLoginFlow() {
  if (auto ready = checkStartRequirements(); !ready) return failStart(ready.error());
  if (!_pin) {
    return endHoldingSlot(
        OLError::LocalError(LocalErrorCodes::LoginBuilderError, "Missing MSISDN PIN credential"),
        std::nullopt);
  }
  runRequest(OstrelAPIEndpoint::MSISDNLogin, Json{{"msisdn", _msisdn}, {"pin", *_pin}},
             {{OstrelErrorCodes::WRONG_PIN, LocalErrorCodes::MSISDNLoginWrongPINError}},
             LocalErrorCodes::MSISDNLoginError, /*logsIn=*/true, /*holdsSlot=*/true);
}

void OLMSISDNPINLoginFlowImpl::startForgotFlow() {
  if (auto ready = checkForgotRequirements(); !ready) return failStart(ready.error());
  runRequest(
      OstrelAPIEndpoint::MSISDNForgot, Json{{"msisdn", _msisdn}},
      {{OstrelErrorCodes::MAX_PIN_LIMIT_REACHED, LocalErrorCodes::MSISDNForgotMaxPINReachedError}},
      LocalErrorCodes::MSISDNForgotError, /*logsIn=*/false, /*holdsSlot=*/false);
}

OLMSISDNUserRecognitionLoginFlowImpl::OLMSISDNUserRecognitionLoginFlowImpl(
    std::shared_ptr<OLStatus> state, OLConnector connector, std::optional<std::string> imsi,
    int bounces, std::string pattern)
    : OLLoginFlowBase(std::move(state), std::move(connector)),
      _imsi(std::move(imsi)),
      bounces(bounces),
      pattern(std::move(pattern)) {}

void OLMSISDNUserRecognitionLoginFlowImpl::startLoginFlow() {
  if (auto ready = checkStartRequirements(); !ready) return failStart(ready.error());
  Json body = Json::object();
  if (_imsi) body["imsi"] = *_imsi;
  auto self = std::static_pointer_cast<OLMSISDNUserRecognitionLoginFlowImpl>(shared_from_this());
  connector.send(OstrelAPIEndpoint::MSISDNUR, body,
                 [self](std::optional<OLError> error, int64_t status, std::optional<Json> reply) {
                   self->parseOstrelResponse(std::move(error), status, std::move(reply));
                 });
}

void OLMSISDNUserRecognitionLoginFlowImpl::parseOstrelResponse(std::optional<OLError> error,
                                                               int64_t statusCode,
                                                               std::optional<Json> body) {
  if (!error) return parseUserStatus(body);
  if (!error->is(LocalErrorCodes::ConnectionDomainWarning)) {
    return endHoldingSlot(
        mapServiceError(*error, {}, LocalErrorCodes::MSISDNUserRecognitionFailed, body),
        std::nullopt);
  }
  if (bounces > 2) return endHoldingSlot(std::move(error), std::nullopt);
  // The operator's reply goes back to the service as it came, Base64-encoded.
  std::string raw;
  if (const Json* extra = error->extra(); extra && extra->contains("response")) {
    if (const Json& response = (*extra)["response"]; response.is_binary()) {
      raw.assign(response.get_binary().begin(), response.get_binary().end());
    }
  }
  bounces += 1;
  (void)statusCode;
  auto self = std::static_pointer_cast<OLMSISDNUserRecognitionLoginFlowImpl>(shared_from_this());
  connector.send(OstrelAPIEndpoint::MSISDNURBody,
                 Json{{"mno_response", _ostrelState->platform().crypto->base64Encode(raw)}},
                 [self](std::optional<OLError> e, int64_t status, std::optional<Json> reply) {
                   self->parseOstrelResponse(std::move(e), status, std::move(reply));
                 });
}

}  // namespace ostrel
