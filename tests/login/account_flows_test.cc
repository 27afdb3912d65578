// What each login flow ends in, reminders, deletion, state synchronisation and
// the host's listener, driven only through the public headers, against the
// emulator over HTTPS.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <future>

#include "ostrel/ol_identity_manager.h"
#include "ostrel/ol_login_builder.h"
#include "ostrel/ol_login_flow.h"
#include "ostrel/ostrel.h"
#include "ostrel/user_state_change_listener.h"
#include "support/emulator_service.h"
#include "support/recorder.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;
using Configure = std::function<void(OLLoginBuilder&)>;
using FlowRun = std::function<std::optional<OLError>(Ostrel&)>;
using test::EmulatorService;

// Runs the flow `get` of a fresh login builder set up by `configure`.
template <class Flow>
FlowRun flow(Configure configure, Result<std::shared_ptr<Flow>> (OLLoginBuilder::*get)()) {
  return [=](Ostrel& o) { return EmulatorService::runFlow(o, configure, get); };
}
Configure email(std::string address, std::string password = "pw") {
  return [=](OLLoginBuilder& b) { b.setEmail(address).setPassword(password); };
}
FlowRun addEmailIdentity(std::string address) {
  return [=](Ostrel& o) {
    return test::await<std::optional<OLError>>([&](auto done) {
      auto flow = (*o.getIdentityManager())
                      ->getIdentityBuilder()
                      .setEmail(address)
                      .setPassword("pw")
                      .setOnFlowCompleteCallback(done)
                      .getAddEmailIdentityFlow();
      if (!flow) return done(flow.error());
      (*flow)->startLoginFlow();
    });
  };
}

// How a service refusal maps to a local error is tested once per branch in
// login_flows_test; here each flow's own outcome, with one refusal where a flow
// has a path of its own.
TEST(AccountFlowsTest, EachFlowLogsInOrMapsTheRefusal) {
  struct Case {
    const char* what;
    FlowRun run;
    std::optional<LocalErrorCodes> code;  // absent: success
    std::string detail;  // in the error's description: the service's code or the local reason
    std::string token;   // the user's token starts so; empty: anonymous
    bool loggedBefore = false;
  };
  using B = OLLoginBuilder;
  test::TempDir dir;
  const std::string receiptFile = dir.path() + "/receipt.bin";
  std::ofstream(receiptFile, std::ios::binary) << "RECEIPT-BYTES";
  const std::string offer(32, 'o');
  const Case cases[] = {
      {"sign-up of a new address", flow(email("new@ostrel.test"), &B::getEmailSignupFlow),
       std::nullopt, "", "O_"},
      {"forgot while logged: refused locally",
       flow(email(EmulatorService::kEmail), &B::getEmailForgotFlow),
       LocalErrorCodes::LoginBuilderError, "User Already Logged", "O_", true},
      {"resend for an unknown address", flow(email("nobody@ostrel.test"), &B::getEmailResendFlow),
       LocalErrorCodes::EMAILResendError, "WRONG_IDENTITY", ""},
      {"PIN login of a new number",
       flow([](B& b) { b.setMSISDN("393339999999").setPIN("7"); }, &B::getMSISDPINLoginFlow),
       std::nullopt, "", "O_"},
      {"partner credentials",
       flow([](B& b) { b.setBrivolaUser("u").setInfoUtente("i"); }, &B::getUO2CredentialsLoginFlow),
       std::nullopt, "", "O_"},
      {"store receipt",
       flow([&](B& b) { b.setOfferId(offer).setReceiptUrl(receiptFile); },
            &B::getPaymentReceiptLoginFlow),
       std::nullopt, "", "O_"},
      {"store receipt that cannot be read",
       flow([&](B& b) { b.setOfferId(offer); }, &B::getPaymentReceiptLoginFlow),
       LocalErrorCodes::PaymentSerializationError, "Unable to retrieve appStoreReceipt", ""},
      {"external", flow([](B& b) { b.setExternalID("O_external"); }, &B::getExternalLoginFlow),
       std::nullopt, "", "O_external"},
      {"e-mail identity for nobody logged", addEmailIdentity("new@ostrel.test"),
       LocalErrorCodes::IdentityBuilderError, "User Not Logged", ""},
      {"e-mail identity of a new address", addEmailIdentity("new@ostrel.test"), std::nullopt, "",
       "O_", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    test::TestPlatform platform;
    EmulatorService service;
    auto o = service.startFacade(platform);
    if (c.loggedBefore) {
      ASSERT_FALSE(EmulatorService::logIn(*o));
    }
    auto error = c.run(*o);
    if (c.code) {
      ASSERT_TRUE(error);
      EXPECT_EQ(error->localCode(), *c.code) << error->description();
      EXPECT_NE(error->description().find(c.detail), std::string::npos) << error->description();
    } else {
      EXPECT_FALSE(error) << error->description();
    }
    if (!c.token.empty()) {
      EXPECT_TRUE(o->getUserToken()->starts_with(c.token)) << *o->getUserToken();
    } else {
      // Neither reminders nor refusals hold the slot afterwards: a login can follow at once.
      EXPECT_FALSE(EmulatorService::logIn(*o));
    }
  }
}

// One facade on its own emulator.
class AccountTest : public test::EmulatorTest {
 protected:
  std::shared_ptr<Ostrel> facade_ = start();
};

// A custom user exists only here: its meta info is local and the service cannot delete it.
TEST_F(AccountTest, ACustomUserCannotBeDeleted) {
  ASSERT_FALSE(EmulatorService::runFlow(
      *facade_, [](OLLoginBuilder& b) { b.setCustomID("host-42"); },
      &OLLoginBuilder::getCustomLoginFlow));
  EXPECT_EQ(*facade_->getUserToken(), "C_host-42");
  auto info = std::get<1>(test::await<std::optional<OLError>, std::optional<Json>>(
      [&](auto done) { facade_->getUserMetaInfo(done); }));
  EXPECT_EQ((*info)["login"]["flow"], "custom");
  auto error =
      test::await<std::optional<OLError>>([&](auto done) { facade_->__temporaryUserDelete(done); });
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(LocalErrorCodes::UserDeleteError, "User cannot be custom"));
  EXPECT_TRUE(*facade_->isUserLogged());
}

class RecordingListener : public UserStateChangeListener, public test::Recorder<std::string> {
 public:
  void onUserStateChanged(const std::optional<OLError>& error) override {
    add(error ? error->message() : "ok");
  }
};

TEST_F(AccountTest, ListenerHearsLoginLogoutAndDeletionAndIsHeldWeakly) {
  auto listener = std::make_shared<RecordingListener>();
  ASSERT_TRUE(facade_->setOnUserStateChangeListener(listener));

  EXPECT_TRUE(EmulatorService::runFlow(*facade_, email(EmulatorService::kEmail, "wrong"),
                                       &OLLoginBuilder::getEmailLoginFlow));
  ASSERT_FALSE(EmulatorService::logIn(*facade_));
  const std::string user = *facade_->getUserToken();
  ASSERT_TRUE(facade_->userLogout());

  // Deletion: the account disappears from the service and the user is anonymous again.
  ASSERT_FALSE(EmulatorService::runFlow(*facade_, email("gone@ostrel.test"),
                                        &OLLoginBuilder::getEmailSignupFlow));
  auto error =
      test::await<std::optional<OLError>>([&](auto done) { facade_->__temporaryUserDelete(done); });
  EXPECT_FALSE(error) << error->description();
  EXPECT_FALSE(service_.emulator().store().userByEmail("gone@ostrel.test"));
  EXPECT_FALSE(*facade_->isUserLogged());

  EXPECT_EQ(listener->values(),
            (std::vector<std::string>{"Wrong e-mail or password", "ok", "ok", "ok", "ok"}));
  // The logout and the deletion each queue a logout event naming its kind.
  (void)EmulatorService::flush(*facade_);
  std::vector<std::string> logouts;
  for (const auto& e : service_.events("logout")) logouts.push_back(e["login_type"]);
  EXPECT_EQ(logouts, (std::vector<std::string>{"explicit", "delete"}));
  EXPECT_EQ(service_.events("logout")[0]["user_id"], user);
  // The library holds the listener weakly: once the host drops it, nothing is called.
  std::weak_ptr<RecordingListener> weak = listener;
  listener.reset();
  EXPECT_TRUE(weak.expired());
  ASSERT_FALSE(EmulatorService::logIn(*facade_));
}

TEST_F(AccountTest, SyncUserStateWaitsForTheRunningLoginHoweverItEnds) {
  // Anonymous: nothing to renew, answered at once without a request.
  auto sync = [&] {
    return test::await<std::optional<OLError>>([&](auto done) { facade_->syncUserState(done); });
  };
  EXPECT_FALSE(sync());
  EXPECT_EQ(service_.requestsTo("/handling/direct/refreshtoken"), 0);

  // A refused login leaves an anonymous user, in sync; a good one a logged user.
  for (const char* password : {"wrong", EmulatorService::kPassword}) {
    SCOPED_TRACE(password);
    service_.delayNext("/login/direct/email/login", 500);
    auto b = *facade_->getLoginBuilder();
    b->setEmail(EmulatorService::kEmail).setPassword(password);
    std::atomic<bool> loginDone{false};
    std::promise<void> loginFinished;
    b->setOnFlowCompleteCallback([&](std::optional<OLError>) {
      loginDone = true;
      loginFinished.set_value();
    });
    (*b->getEmailLoginFlow())->startLoginFlow();

    std::promise<bool> synced;
    facade_->syncUserState([&](std::optional<OLError> e) {
      EXPECT_FALSE(e);
      synced.set_value(loginDone.load() || *facade_->isUserLogged());
    });
    auto f = synced.get_future();
    ASSERT_EQ(f.wait_for(30s), std::future_status::ready);
    const bool answeredAfter = f.get();
    // A refused login may be heard by the sync before its own callback runs.
    if (std::string_view(password) != "wrong") {
      EXPECT_TRUE(answeredAfter) << "answered before the running login had ended";
    }
    loginFinished.get_future().wait();
  }

  // Logged now: a sync renews the session through the stored autologin token.
  EXPECT_FALSE(sync());
  EXPECT_EQ(service_.requestsTo("/handling/direct/refreshtoken"), 1);
}

}  // namespace
}  // namespace ostrel
