#include "capi/c_json.h"

namespace ostrel::capi {

Json pushJson(const OLPushBase& push) {
  Json j = {{"class", push.archiveClassName()},
            {"type", rawValue(push.type())},
            {"push_id", push.pushId},
            {"shown", push.shown},
            {"is_local", push.isLocal}};
  if (const auto* standard = dynamic_cast<const OLStandardPush*>(&push)) {
    j["body"] = standard->body;
    if (standard->badge) j["badge"] = *standard->badge;
    if (standard->sound) j["sound"] = *standard->sound;
    if (standard->customFields) j["custom"] = standard->customFields->getDictionary();
  }
  if (const auto* url = dynamic_cast<const OLUrlPush*>(&push)) j["url"] = url->url;
  if (const auto* background = dynamic_cast<const OLBackgroundPush*>(&push)) {
    if (background->customFields) j["custom"] = background->customFields->getDictionary();
  }
  return j;
}

Json payingJson(const OLPaymentObject& state) {
  Json j = {{"is_paying", state.isPaying}};
  if (const auto& receipt = state.paymentReceipt) {
    Json payment = {{"product", receipt->product},
                    {"item", receipt->item},
                    {"provider", receipt->provider},
                    {"state", receipt->state},
                    {"type", receipt->type}};
    if (receipt->typeExtra) payment["type_recurrent_extra"] = receipt->typeExtra->body;
    if (receipt->providerExtra) payment["provider_carrier_extra"] = receipt->providerExtra->body;
    j["payment"] = std::move(payment);
  }
  return j;
}

}  // namespace ostrel::capi
