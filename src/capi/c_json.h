#pragma once
// The library's objects as the JSON the C API hands out.
#include "ostrel/json.h"
#include "ostrel/ol_payment_manager.h"
#include "ostrel/ol_push.h"

namespace ostrel::capi {

// {"class", "type", "push_id", "shown", "is_local"} and, as the type has
// them, "body", "badge", "sound", "url", "custom".
Json pushJson(const OLPushBase& push);
// The service's own shape: {"is_paying", "payment": {"product", "item",
// "provider", "state", "type", "type_recurrent_extra", "provider_carrier_extra"}}.
Json payingJson(const OLPaymentObject& state);

}  // namespace ostrel::capi
