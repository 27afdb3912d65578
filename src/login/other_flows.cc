#include "login/other_flows.h"

#include "login/ol_user_status.h"
#include "login/service_error_mapping.h"
#include "ostrel/ol_simple_object.h"
#include "status/ol_status.h"

namespace ostrel {

void OLCustomLoginFlowImpl::startLoginFlow() {
  if (auto ready = checkStartRequirements(); !ready) return failStart(ready.error());
  const std::string token = "C_" + _customId;
  user().loginUser(token, std::nullopt);
  endHoldingSlot(std::nullopt, token);
}

void OLExternalLoginFlowImpl::startLoginFlow() {
  if (auto ready = checkStartRequirements(); !ready) return failStart(ready.error());
  user().loginUser(_externalId, std::nullopt);
  endHoldingSlot(std::nullopt, _externalId);
}

void OLPaymentReceiptLoginFlowImpl::startLoginFlow() {
  if (auto ready = checkStartRequirements(); !ready) return failStart(ready.error());
  auto receipt = _ostrelState->getSerializedReceipt(_offerId, _receiptUrl);
  if (!receipt) {
    return endHoldingSlot(OLError::LocalError(LocalErrorCodes::PaymentSerializationError,
                                              "Unable to retrieve appStoreReceipt", std::nullopt,
                                              Json{{"offerId", _offerId}}),
                          std::nullopt);
  }
  Json body = {{"serialized_receipt", *receipt}, {"offerId", _offerId}};
  if (_emailParams) body["productmail_parameters"] = _emailParams->getDictionary();
  runRequest(OstrelAPIEndpoint::PaymentReceiptLogin, std::move(body), {},
             LocalErrorCodes::PaymentError, /*logsIn=*/true, /*holdsSlot=*/true);
}

void OLMFPLoginFlowImpl::startLoginFlow() {
  if (auto ready = checkStartRequirements(); !ready) return failStart(ready.error());
  if (_userId.empty()) {
    return endHoldingSlot(OLError::LocalError(LocalErrorCodes::MFPLoginWrongFingerprint,
                                              "Unable to retrieve Mobile Fingerprint"),
                          std::nullopt);
  }
  // The fingerprint names a user the service already knows: its token is taken over.
  user().loginUser(_userId, std::nullopt);
  endHoldingSlot(std::nullopt, _userId);
}

void OLUO2CredentialsLoginFlowImpl::startLoginFlow() {
  if (auto ready = checkStartRequirements(); !ready) return failStart(ready.error());
  runRequest(OstrelAPIEndpoint::UO2CredentialsTo3,
             Json{{"brivolauser", _brivolaUser}, {"info_utente", _infoUtente}}, {},
             LocalErrorCodes::UO2CredentialsLoginError, /*logsIn=*/true, /*holdsSlot=*/true);
}

}  // namespace ostrel
