#pragma once
// Store purchases and the user's paying state, told to and asked of the service.
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "ostrel/export.h"
#include "ostrel/json.h"
#include "ostrel/ol_error.h"
#include "ostrel/result.h"

namespace ostrel {

class OLStatus;
class OLConnector;
class OstrelFacadeImpl;

enum class MarketPlace { GooglePlay, AppleStore };
// "googlePlay", "appleStore".
OSTREL_API const char* rawValue(MarketPlace marketPlace);

struct TypeExtra {
  Json body = Json::object();
};
struct ProviderExtra {
  Json body = Json::object();
};

struct OSTREL_API PaymentReceiptObject {
  std::string product, item, provider, state, type;
  std::optional<TypeExtra> typeExtra;
  std::optional<ProviderExtra> providerExtra;

  // Billing dates (seconds since 1970) from the recurrence extra: "next_billing_date",
  // "last_billing_date", "start_billing_date", each as seconds or as UTC text
  // "YYYY-MM-DDTHH:MM:SSZ".
  std::optional<double> nextBillingDate() const;
  std::optional<double> lastBillingDate() const;
  std::optional<double> startBillingDate() const;
  // The mobile operator of a carrier purchase: "mno_country", "mno_operator".
  std::optional<std::string> mnoCountry() const;
  std::optional<std::string> mnoOperator() const;
  std::string description() const;
};

struct OSTREL_API OLPaymentObject {
  bool isPaying = false;
  std::optional<PaymentReceiptObject> paymentReceipt;
  std::string description() const;
};

class OSTREL_API PaymentBuilder {
 public:
  // Needs "is_paying" (boolean); "payment", when present, needs the texts
  // "product", "item", "provider", "state" and "type".
  static Result<OLPaymentObject> buildPaymentObject(const Json& fromDict);
};

// Obtained from Ostrel::getPaymentManager.
// Any thread. Each callback runs once on the library's network thread, never
// on the calling thread (a refusal such as a missing login included).
class OSTREL_API OLPaymentManager {
 public:
  using OfferCallback = std::function<void(std::optional<OLError>, std::optional<std::string>)>;
  using ErrorCallback = std::function<void(std::optional<OLError>)>;
  using PayingCallback =
      std::function<void(std::optional<OLError>, std::optional<OLPaymentObject>)>;

  void getOfferFor(const std::string& nativeItem, MarketPlace marketplace, OfferCallback callback);
  // `receiptUrl`: the store receipt file; absent, the platform's own receipt.
  void addPayment(const std::string& withOffer, const std::optional<std::string>& receiptUrl,
                  ErrorCallback callback);
  Result<std::string> serializePayment(const std::string& withOffer,
                                       const std::optional<std::string>& receiptUrl);
  void isUserPayingForDefault(PayingCallback callback);

 private:
  friend class OstrelFacadeImpl;
  OLPaymentManager(std::shared_ptr<OLStatus> ostrelState, std::shared_ptr<OLConnector> connector);
  std::string currentToken() const;

  std::shared_ptr<OLStatus> _ostrelState;
  std::shared_ptr<OLConnector> connector;
};

}  // namespace ostrel
