// Offers, store receipts and the paying state, against the emulator over HTTPS
// (and a loopback server for replies the service should never give).
#include <gtest/gtest.h>

#include <fstream>
#include <tuple>

#include "ostrel/ol_login_builder.h"
#include "ostrel/ol_payment_manager.h"
#include "ostrel/ostrel.h"
#include "support/emulator_service.h"
#include "support/loopback_server.h"

namespace ostrel {
namespace {

// A user who does not pay and one who pays with every field are the
// emulator's answers in AddingAReceiptMakesTheUserPaying; the refusal's
// message is checked with the replies of the wrong shape.
TEST(PaymentBuilderTest, Shapes) {
  struct Case {
    const char* reply;
    bool valid;
  };
  const Case cases[] = {
      {R"({"is_paying":true,"payment":null})", true},
      {R"([])", false},
      {R"({"is_paying":"yes"})", false},
      {R"({"is_paying":true,"payment":[]})", false},
      {R"({"is_paying":true,"payment":{"product":"p","item":"i","provider":"v","type":"t"}})",
       false},
      {R"({"is_paying":true,"payment":{"product":"p","item":"i","provider":"v","state":"s",)"
       R"("type":"t","type_recurrent_extra":"x"}})",
       false},
  };
  for (const auto& c : cases) {
    auto built = PaymentBuilder::buildPaymentObject(*parseJson(c.reply));
    EXPECT_EQ(static_cast<bool>(built), c.valid) << c.reply;
  }
}

TEST(PaymentBuilderTest, DerivedBillingAndOperatorFields) {
  auto built = PaymentBuilder::buildPaymentObject(*parseJson(
      R"({"is_paying":true,"payment":{"product":"p","item":"i","provider":"carrier","state":"on",)"
      R"("type":"recurrent","type_recurrent_extra":{"next_billing_date":"2026-12-22T10:00:00Z",)"
      R"("last_billing_date":1795341600,"start_billing_date":"someday"},)"
      R"("provider_carrier_extra":{"mno_country":"IT","mno_operator":7}}})"));
  ASSERT_TRUE(built);
  const auto& r = *built->paymentReceipt;
  EXPECT_EQ(r.nextBillingDate(), 1797933600.0);
  EXPECT_EQ(r.lastBillingDate(), 1795341600.0);
  EXPECT_FALSE(r.startBillingDate());
  EXPECT_EQ(r.mnoCountry(), "IT");
  EXPECT_FALSE(r.mnoOperator());
}

// What the service answered to an offer request, and to a paying-state request.
std::tuple<std::optional<OLError>, std::optional<std::string>> offerFor(OLPaymentManager& payments,
                                                                        MarketPlace market) {
  return test::await<std::optional<OLError>, std::optional<std::string>>(
      [&](auto done) { payments.getOfferFor("gold-coins", market, done); });
}
std::tuple<std::optional<OLError>, std::optional<OLPaymentObject>> paying(
    OLPaymentManager& payments) {
  return test::await<std::optional<OLError>, std::optional<OLPaymentObject>>(
      [&](auto done) { payments.isUserPayingForDefault(done); });
}

class PaymentTest : public test::EmulatorTest {
 protected:
  std::optional<OLError> add(const std::string& offer, const std::optional<std::string>& receipt) {
    return test::await<std::optional<OLError>>(
        [&](auto done) { payments_->addPayment(offer, receipt, done); });
  }
  std::string receiptFile() {
    const std::string path = platform_.root() + "/receipt.bin";
    std::ofstream(path) << "store receipt bytes";
    return path;
  }

  std::shared_ptr<Ostrel> facade_ = start();
  std::shared_ptr<OLPaymentManager> payments_ = *facade_->getPaymentManager();
};

TEST_F(PaymentTest, OfferForAStoreItemAndServiceFailuresAsTheServiceSaidThem) {
  for (auto market : {MarketPlace::GooglePlay, MarketPlace::AppleStore}) {
    auto [error, offer] = offerFor(*payments_, market);
    ASSERT_FALSE(error) << error->description();
    EXPECT_EQ(offer, std::string(32, 'a'));
    // The emulator echoes the marketplace it was sent.
    EXPECT_TRUE(platform_.log().contains(rawValue(market)));
  }
  service_.failNext("/payment/offer/get", 503);
  auto offerError = std::get<0>(offerFor(*payments_, MarketPlace::GooglePlay));
  ASSERT_TRUE(offerError);
  EXPECT_EQ(offerError->statusCode(), 503);

  service_.failNext("/payment/is_paying_for", 500);
  auto payingError = std::get<0>(paying(*payments_));
  ASSERT_TRUE(payingError);
  EXPECT_EQ(payingError->statusCode(), 500);
}
TEST_F(PaymentTest, AddingAReceiptMakesTheUserPaying) {
  const std::string offer(32, 'o');
  ASSERT_FALSE(test::EmulatorService::logIn(*facade_));
  EXPECT_FALSE(std::get<1>(paying(*payments_))->isPaying);
  const std::string missing = platform_.root() + "/no-such-receipt";
  auto unreadable = add(offer, missing);
  ASSERT_TRUE(unreadable);
  EXPECT_TRUE(unreadable->is(LocalErrorCodes::PaymentSerializationError,
                             "Unable to retrieve or serialize payment receipt"));

  auto serialized = payments_->serializePayment(offer, receiptFile());
  ASSERT_TRUE(serialized);
  EXPECT_EQ((*parseJson(*serialized))["receipt"], "c3RvcmUgcmVjZWlwdCBieXRlcw==");

  (void)add(offer, receiptFile());  // the paying state that follows proves it
  auto [error, state] = paying(*payments_);
  ASSERT_FALSE(error);
  ASSERT_TRUE(state->isPaying);
  EXPECT_EQ(state->paymentReceipt->item, offer);

  auto again = add(offer, receiptFile());
  ASSERT_TRUE(again);
  EXPECT_EQ(again->code(), "ITEM_ALREADY_PAID");
}

TEST(PaymentRepliesTest, RepliesOfTheWrongShape) {
  test::TestPlatform platform;
  test::LoopbackServer server;
  server.setHandler([](const httplib::Request& req, httplib::Response& res) {
    if (req.path == "/payment/offer/get") {
      res.set_content(R"({"offer":{"native_item_id":"x"}})", "application/json");
    } else if (req.path == "/payment/is_paying_for") {
      res.status = 200;  // no body at all
    } else {
      res.set_content("{}", "application/json");
    }
  });
  auto facade =
      *Ostrel::makeUnshared("demo-secret", nullptr, std::nullopt, server.platformFor(platform));
  auto payments = *facade->getPaymentManager();
  auto [missing, offer] = offerFor(*payments, MarketPlace::AppleStore);
  ASSERT_TRUE(missing);
  EXPECT_EQ(missing->message(), "Missing Offer in response");

  auto [empty, state] = paying(*payments);
  ASSERT_TRUE(empty);
  EXPECT_EQ(empty->message(), "Invalid payment JSON");
  EXPECT_EQ((*empty->extra())["json"], Json::object());
}

}  // namespace
}  // namespace ostrel
