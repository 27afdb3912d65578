// Offers, receipts and the paying state through the C API.
#include <optional>
#include <string>

#include "capi/c_callbacks.h"
#include "capi/c_error.h"
#include "capi/c_instance.h"
#include "capi/c_json.h"
#include "capi/c_text.h"
#include "ostrel/ol_payment_manager.h"

using namespace ostrel::capi;

extern "C" {

ostrel_code_t ostrel_payment_get_offer(ostrel_t* instance, const char* native_item,
                                       ostrel_marketplace_t marketplace, ostrel_result_fn callback,
                                       void* user_data, ostrel_error_t** error) {
  return guarded(error, [&] {
    std::string item;
    OSTREL_C_CHECK(readText(native_item, "native_item", item, error));
    std::optional<ostrel::MarketPlace> market;
    switch (marketplace) {
      case OSTREL_MARKET_APPLE_STORE:
        market = ostrel::MarketPlace::AppleStore;
        break;
      case OSTREL_MARKET_GOOGLE_PLAY:
        market = ostrel::MarketPlace::GooglePlay;
        break;
      default:
        break;  // refused below
    }
    if (!market) return invalidArgument(error, "marketplace is not an ostrel_marketplace_t");
    std::shared_ptr<ostrel::OLPaymentManager> payments;
    OSTREL_C_CHECK(managerOf(instance, &ostrel::Ostrel::getPaymentManager, payments, error));
    payments->getOfferFor(item, *market, textCallback(callback, user_data));
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_payment_add_receipt(ostrel_t* instance, const char* offer_id,
                                         const char* receipt_path, ostrel_result_fn callback,
                                         void* user_data, ostrel_error_t** error) {
  return guarded(error, [&] {
    std::string offer;
    std::optional<std::string> receipt;
    OSTREL_C_CHECK(readText(offer_id, "offer_id", offer, error));
    OSTREL_C_CHECK(readOptionalText(receipt_path, "receipt_path", receipt, error));
    std::shared_ptr<ostrel::OLPaymentManager> payments;
    OSTREL_C_CHECK(managerOf(instance, &ostrel::Ostrel::getPaymentManager, payments, error));
    payments->addPayment(offer, receipt, errorCallback(callback, user_data));
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_payment_is_paying(ostrel_t* instance, ostrel_result_fn callback,
                                       void* user_data, ostrel_error_t** error) {
  return guarded(error, [&] {
    std::shared_ptr<ostrel::OLPaymentManager> payments;
    OSTREL_C_CHECK(managerOf(instance, &ostrel::Ostrel::getPaymentManager, payments, error));
    auto answer = jsonCallback(callback, user_data);
    payments->isUserPayingForDefault([answer](std::optional<ostrel::OLError> e,
                                              std::optional<ostrel::OLPaymentObject> state) {
      answer(std::move(e), state ? std::optional<ostrel::Json>(payingJson(*state)) : std::nullopt);
    });
    return OSTREL_OK;
  });
}

}  // extern "C"
