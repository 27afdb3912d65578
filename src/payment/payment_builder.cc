#include <chrono>
#include <ctime>
#include <iomanip>
#include <sstream>

#include "ostrel/ol_payment_manager.h"

namespace ostrel {
namespace {

OLError invalidPayment(const Json& dict) {
  return OLError::LocalError(LocalErrorCodes::PaymentError, "Invalid payment JSON", std::nullopt,
                             Json{{"json", dict}});
}

std::optional<double> dateIn(const std::optional<TypeExtra>& extra, const char* key) {
  if (!extra || !extra->body.is_object()) return std::nullopt;
  auto it = extra->body.find(key);
  if (it == extra->body.end()) return std::nullopt;
  if (it->is_number()) return it->get<double>();
  if (!it->is_string()) return std::nullopt;
  std::tm tm{};
  std::istringstream in(it->get<std::string>());
  in >> std::get_time(&tm, "%Y-%m-%dT%H:%M:%SZ");
  if (in.fail()) return std::nullopt;
  using namespace std::chrono;
  const sys_days date{year{tm.tm_year + 1900} / month{static_cast<unsigned>(tm.tm_mon + 1)} /
                      day{static_cast<unsigned>(tm.tm_mday)}};
  return duration<double>(date.time_since_epoch() + hours{tm.tm_hour} + minutes{tm.tm_min} +
                          seconds{tm.tm_sec})
      .count();
}

std::optional<std::string> textIn(const std::optional<ProviderExtra>& extra, const char* key) {
  if (!extra || !extra->body.is_object()) return std::nullopt;
  auto it = extra->body.find(key);
  if (it == extra->body.end() || !it->is_string()) return std::nullopt;
  return it->get<std::string>();
}

}  // namespace

const char* rawValue(MarketPlace marketPlace) {
  return marketPlace == MarketPlace::GooglePlay ? "googlePlay" : "appleStore";
}

std::optional<double> PaymentReceiptObject::nextBillingDate() const {
  return dateIn(typeExtra, "next_billing_date");
}
std::optional<double> PaymentReceiptObject::lastBillingDate() const {
  return dateIn(typeExtra, "last_billing_date");
}
std::optional<double> PaymentReceiptObject::startBillingDate() const {
  return dateIn(typeExtra, "start_billing_date");
}
std::optional<std::string> PaymentReceiptObject::mnoCountry() const {
  return textIn(providerExtra, "mno_country");
}
std::optional<std::string> PaymentReceiptObject::mnoOperator() const {
  return textIn(providerExtra, "mno_operator");
}

std::string PaymentReceiptObject::description() const {
  return "type: " + type + ", provider: " + provider + ", product: " + product + ", item: " + item +
         ", state: " + state +
         ", typeExtra: " + (typeExtra ? dumpJson(typeExtra->body) : std::string("nil")) +
         ", providerExtra: " + (providerExtra ? dumpJson(providerExtra->body) : std::string("nil"));
}

std::string OLPaymentObject::description() const {
  std::string text = std::string("isPaying") + ": " + (isPaying ? "true" : "false");
  if (paymentReceipt) text += ", paymentReceipt: [" + paymentReceipt->description() + "]";
  return text;
}

Result<OLPaymentObject> PaymentBuilder::buildPaymentObject(const Json& dict) {
  if (!dict.is_object()) return invalidPayment(dict);
  auto paying = dict.find("is_paying");
  if (paying == dict.end() || !paying->is_boolean()) return invalidPayment(dict);
  OLPaymentObject object;
  object.isPaying = paying->get<bool>();
  auto payment = dict.find("payment");
  if (payment == dict.end() || payment->is_null()) return object;
  if (!payment->is_object()) return invalidPayment(dict);
  PaymentReceiptObject receipt;
  const std::pair<const char*, std::string*> texts[] = {{"product", &receipt.product},
                                                        {"item", &receipt.item},
                                                        {"provider", &receipt.provider},
                                                        {"state", &receipt.state},
                                                        {"type", &receipt.type}};
  for (const auto& [key, field] : texts) {
    auto it = payment->find(key);
    if (it == payment->end() || !it->is_string()) return invalidPayment(dict);
    *field = it->get<std::string>();
  }
  if (auto it = payment->find("provider_carrier_extra"); it != payment->end()) {
    if (!it->is_object()) return invalidPayment(dict);
    receipt.providerExtra = ProviderExtra{*it};
  }
  if (auto it = payment->find("type_recurrent_extra"); it != payment->end()) {
    if (!it->is_object()) return invalidPayment(dict);
    receipt.typeExtra = TypeExtra{*it};
  }
  object.paymentReceipt = std::move(receipt);
  return object;
}

}  // namespace ostrel
