#include "push_and_payments.h"

#include <cstdio>
#include <fstream>
#include <future>
#include <thread>

#include <unistd.h>

#include "ostrel/ol_payment_manager.h"
#include "ostrel/ol_push_manager.h"

namespace {

void pushes(ostrel::Ostrel& ostrel, ostrel::emulator::Emulator& emulator) {
  auto push = *ostrel.getPushManager();
  push->setPushCallback([](std::shared_ptr<ostrel::OLPushBase> p) {
    std::printf("push received: %s\n", p->description().c_str());
  });
  // The token a phone's push service would hand the app.
  (void)push->setDeviceToken(std::string("\xde\xad\xbe\xef\x01\x02", 6));
  for (int i = 0; i < 200 && !push->isRegistered(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  auto registrations = emulator.store().pushRegistrations();
  std::printf("device token registered: %s\n",
              registrations.empty() ? "no" : ostrel::dumpJson(registrations[0]).c_str());

  (void)push->processRemoteNotification(
      *ostrel::parseJson(
          R"({"aps":{"t":"N","alert":"Welcome back","badge":1},"push_id":"demo-1"})"),
      false);
  (void)push->processRemoteNotification(
      *ostrel::parseJson(R"({"aps":{"t":"U","alert":"New article"},"push_id":"demo-2",)"
                         R"("url":"https://ostrel.test/articles/7"})"),
      true);
  (void)push->showInterstitialContent(nullptr, nullptr);
  auto refused = push->processRemoteNotification(*ostrel::parseJson(R"({"aps":{"t":"X"}})"), false);
  std::printf("a payload of unknown type: %s\n",
              refused ? "accepted" : refused.error().message().c_str());
}

void payments(ostrel::Ostrel& ostrel) {
  auto payments = *ostrel.getPaymentManager();
  std::promise<std::optional<std::string>> offered;
  payments->getOfferFor("gold-coins", ostrel::MarketPlace::AppleStore,
                        [&](std::optional<ostrel::OLError> e, std::optional<std::string> offer) {
                          if (e) std::printf("offer: %s\n", e->description().c_str());
                          offered.set_value(offer);
                        });
  auto offer = offered.get_future().get();
  if (!offer) return;
  std::printf("offer for gold-coins: %s\n", offer->c_str());

  const std::string receipt = "/tmp/ostrel-demo-receipt-" + std::to_string(::getpid()) + ".bin";
  std::ofstream(receipt) << "store receipt of the demo";
  std::promise<std::optional<ostrel::OLError>> added;
  payments->addPayment(*offer, receipt,
                       [&](std::optional<ostrel::OLError> e) { added.set_value(e); });
  auto addError = added.get_future().get();
  std::printf("receipt added: %s\n", addError ? addError->description().c_str() : "ok");

  std::promise<void> asked;
  payments->isUserPayingForDefault([&](std::optional<ostrel::OLError> e,
                                       std::optional<ostrel::OLPaymentObject> state) {
    std::printf("paying state: %s\n", e ? e->description().c_str() : state->description().c_str());
    asked.set_value();
  });
  asked.get_future().wait();
  std::remove(receipt.c_str());
}

}  // namespace

void demoPushAndPayments(ostrel::Ostrel& ostrel, ostrel::emulator::Emulator& emulator) {
  pushes(ostrel, emulator);
  payments(ostrel);
}
