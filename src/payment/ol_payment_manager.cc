#include "ostrel/ol_payment_manager.h"

#include "core/answer_off_caller.h"
#include "login/ol_user_status.h"
#include "status/ol_status.h"
#include "transport/ol_connector.h"

namespace ostrel {
namespace {

std::string replyText(const std::optional<Json>& reply) {
  return reply ? describeValue(*reply) : std::string("nil");
}

}  // namespace

OLPaymentManager::OLPaymentManager(std::shared_ptr<OLStatus> ostrelState,
                                   std::shared_ptr<OLConnector> connector)
    : _ostrelState(std::move(ostrelState)), connector(std::move(connector)) {}

std::string OLPaymentManager::currentToken() const {
  return _ostrelState->userState()->currentUserToken();
}

void OLPaymentManager::getOfferFor(const std::string& nativeItem, MarketPlace marketplace,
                                   OfferCallback callback) {
  const Json body = {{"user_id", currentToken()},
                     {"native_item_id", nativeItem},
                     {"marketplace", rawValue(marketplace)}};
  connector->send(
      OstrelAPIEndpoint::PaymentGetOfferFor, body,
      [nativeItem, callback, platform = _ostrelState->platformRef()](
          std::optional<OLError> error, int64_t status, std::optional<Json> reply) {
        if (error) return callback(std::move(error), std::nullopt);
        const Json* offer = nullptr;
        if (reply && reply->is_object()) {
          auto it = reply->find("offer");
          if (it != reply->end() && it->is_object()) offer = &*it;
        }
        if (offer) {
          auto id = offer->find("offer_id");
          if (id != offer->end() && id->is_string()) {
            logLine(*platform,
                    "Retrieved Offer " + describeValue(*offer) + " for nativeItem " + nativeItem);
            return callback(std::nullopt, id->get<std::string>());
          }
        }
        callback(OLError::LocalError(LocalErrorCodes::PaymentError, "Missing Offer in response",
                                     std::nullopt,
                                     Json{{"body", replyText(reply)}, {"statusCode", status}}),
                 std::nullopt);
      });
}

void OLPaymentManager::addPayment(const std::string& withOffer,
                                  const std::optional<std::string>& receiptUrl,
                                  ErrorCallback hostCallback) {
  AnswerOffCaller<std::optional<OLError>> answer(_ostrelState->platformRef(),
                                                 std::move(hostCallback));
  auto callback = answer.callback();
  const std::string token = currentToken();
  if (token == _ostrelState->userState()->anonymousToken()) {
    return callback(OLError::LocalError(LocalErrorCodes::PaymentError,
                                        "User must be logged in to add a Payment", std::nullopt,
                                        Json{{"userToken", token}}));
  }
  auto receipt = _ostrelState->getSerializedReceipt(withOffer, receiptUrl);
  if (!receipt) {
    return callback(OLError::LocalError(
        LocalErrorCodes::PaymentSerializationError,
        "Unable to retrieve or serialize payment receipt", std::nullopt,
        Json{{"offerId", withOffer},
             {"receiptUrl", _ostrelState->platform().receipts->describe(receiptUrl)}}));
  }
  connector->send(OstrelAPIEndpoint::PaymentReceiptAdd,
                  Json{{"user_id", token}, {"serialized_receipt", *receipt}},
                  [callback](std::optional<OLError> error, int64_t, std::optional<Json>) {
                    callback(std::move(error));
                  });
}

Result<std::string> OLPaymentManager::serializePayment(
    const std::string& withOffer, const std::optional<std::string>& receiptUrl) {
  auto receipt = _ostrelState->getSerializedReceipt(withOffer, receiptUrl);
  if (!receipt) {
    return OLError::LocalError(LocalErrorCodes::PaymentSerializationError,
                               "Unable to serialize payment receipt", std::nullopt,
                               Json{{"offerId", withOffer}});
  }
  return dumpJson(*receipt);
}

void OLPaymentManager::isUserPayingForDefault(PayingCallback callback) {
  const Json body = {{"user_id", currentToken()}};
  connector->send(OstrelAPIEndpoint::PaymentIsPayingForDefault, body,
                  [callback](std::optional<OLError> error, int64_t, std::optional<Json> reply) {
                    if (error) return callback(std::move(error), std::nullopt);
                    auto object = PaymentBuilder::buildPaymentObject(
                        reply && !reply->is_null() ? *reply : Json::object());
                    if (!object) return callback(object.error(), std::nullopt);
                    callback(std::nullopt, *object);
                  });
}

}  // namespace ostrel
