// Sign-up, reminders, deletion, state synchronisation and the host's listener,
// driven only through the public headers, against the emulator over HTTPS.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>

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

std::optional<OLError> runLogin(Ostrel& o, const Configure& configure,
                                Result<std::shared_ptr<OLLoginFlow>> (*get)(OLLoginBuilder&)) {
  return test::EmulatorService::runFlow(o, configure, get);
}

template <class T>
Result<std::shared_ptr<OLLoginFlow>> asFlow(Result<std::shared_ptr<T>> r) {
  if (!r) return r.error();
  return std::shared_ptr<OLLoginFlow>(*r);
}
Result<std::shared_ptr<OLLoginFlow>> signup(OLLoginBuilder& b) {
  return asFlow(b.getEmailSignupFlow());
}
Result<std::shared_ptr<OLLoginFlow>> emailLogin(OLLoginBuilder& b) {
  return asFlow(b.getEmailLoginFlow());
}
Result<std::shared_ptr<OLLoginFlow>> forgot(OLLoginBuilder& b) {
  return asFlow(b.getEmailForgotFlow());
}
Result<std::shared_ptr<OLLoginFlow>> resend(OLLoginBuilder& b) {
  return asFlow(b.getEmailResendFlow());
}
Configure email(std::string address, std::string password = "pw") {
  return [=](OLLoginBuilder& b) { b.setEmail(address).setPassword(password); };
}

TEST(AccountFlowsTest, EachEmailFlowSucceedsOrMapsTheRefusal) {
  struct Case {
    const char* what;
    bool mandatoryConfirm;
    Configure configure;
    Result<std::shared_ptr<OLLoginFlow>> (*get)(OLLoginBuilder&);
    std::optional<LocalErrorCodes> code;  // absent: success
    std::string serviceCode;
    bool loggedAfter;
  };
  const Case cases[] = {
      {"sign-up of a new address", false, email("new@ostrel.test"), signup, std::nullopt, "", true},
      {"sign-up of a taken address", false, email(test::EmulatorService::kEmail), signup,
       LocalErrorCodes::EMAILSignupLoginIdentityError, "IDENTITY_ALREADY_USED", false},
      {"sign-up that needs confirming", true, email("new@ostrel.test"), signup,
       LocalErrorCodes::EMAILSignupLoginMandatoryConfirmError, "MANDATORY_CONFIRM", false},
      {"forgot for a known address", false, email(test::EmulatorService::kEmail), forgot,
       std::nullopt, "", false},
      {"forgot for an unknown address", false, email("nobody@ostrel.test"), forgot,
       LocalErrorCodes::EMAILForgotWrongEmailError, "WRONG_IDENTITY", false},
      {"resend for a known address", false, email(test::EmulatorService::kEmail), resend,
       std::nullopt, "", false},
      {"resend for an unknown address", false, email("nobody@ostrel.test"), resend,
       LocalErrorCodes::EMAILResendError, "WRONG_IDENTITY", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    test::TestPlatform platform;
    test::EmulatorService service(
        [&](emulator::Options& o) { o.mandatoryConfirm = c.mandatoryConfirm; });
    auto o = service.startFacade(platform);
    auto error = runLogin(*o, c.configure, c.get);
    if (c.code) {
      ASSERT_TRUE(error);
      EXPECT_EQ(error->localCode(), *c.code) << error->description();
      EXPECT_EQ((*error->extra())["code"], c.serviceCode);
    } else {
      EXPECT_FALSE(error) << error->description();
    }
    EXPECT_EQ(*o->isUserLogged(), c.loggedAfter);
    // Reminders never hold the slot afterwards: a login can follow at once.
    if (!c.loggedAfter) {
      EXPECT_FALSE(runLogin(
          *o, email(test::EmulatorService::kEmail, test::EmulatorService::kPassword), emailLogin));
    }
  }
}

TEST(AccountFlowsTest, PinRemindersStopAtTheServiceLimit) {
  test::TestPlatform platform;
  test::EmulatorService service;  // three reminders allowed
  auto o = service.startFacade(platform);
  std::vector<std::optional<LocalErrorCodes>> outcomes;
  for (int i = 0; i < 4; ++i) {
    auto b = *o->getLoginBuilder();
    b->setMSISDN(test::EmulatorService::kMsisdn).setNOPIN();
    std::promise<std::optional<OLError>> done;
    b->setOnFlowCompleteCallback([&](std::optional<OLError> e) { done.set_value(e); });
    (*b->getMSISDPINLoginFlow())->startForgotFlow();
    auto e = done.get_future().get();
    outcomes.push_back(e ? std::optional(e->localCode()) : std::nullopt);
  }
  using O = std::optional<LocalErrorCodes>;
  EXPECT_EQ(outcomes, (std::vector<O>{std::nullopt, std::nullopt, std::nullopt,
                                      LocalErrorCodes::MSISDNForgotMaxPINReachedError}));
  EXPECT_FALSE(*o->isUserLogged());
}

TEST(AccountFlowsTest, ForgotWhileLoggedIsRefusedLocally) {
  test::TestPlatform platform;
  test::EmulatorService service;
  auto o = service.startFacade(platform);
  ASSERT_FALSE(runLogin(*o, email(test::EmulatorService::kEmail, test::EmulatorService::kPassword),
                        emailLogin));
  auto error = runLogin(*o, email(test::EmulatorService::kEmail), forgot);
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(LocalErrorCodes::LoginBuilderError, "User Already Logged"));
  EXPECT_EQ(service.requestsTo("/login/direct/email/forgot"), 0);
  EXPECT_TRUE(*o->isUserLogged());
}

class RecordingListener : public UserStateChangeListener, public test::Recorder<std::string> {
 public:
  void onUserStateChanged(const std::optional<OLError>& error) override {
    add(error ? error->message() : "ok");
  }
};

TEST(AccountFlowsTest, ListenerHearsLoginLogoutAndDeletionAndIsHeldWeakly) {
  test::TestPlatform platform;
  test::EmulatorService service;
  auto o = service.startFacade(platform);
  auto listener = std::make_shared<RecordingListener>();
  ASSERT_TRUE(o->setOnUserStateChangeListener(listener));

  EXPECT_TRUE(runLogin(*o, email(test::EmulatorService::kEmail, "wrong"), emailLogin));
  ASSERT_FALSE(runLogin(*o, email(test::EmulatorService::kEmail, test::EmulatorService::kPassword),
                        emailLogin));
  ASSERT_TRUE(o->userLogout());

  // Deletion: the account disappears from the service and the user is anonymous again.
  ASSERT_FALSE(runLogin(*o, email("gone@ostrel.test"), signup));
  ASSERT_TRUE(service.emulator().store().userByEmail("gone@ostrel.test"));
  std::promise<std::optional<OLError>> deleted;
  o->__temporaryUserDelete([&](std::optional<OLError> e) { deleted.set_value(e); });
  auto error = deleted.get_future().get();
  EXPECT_FALSE(error) << error->description();
  EXPECT_FALSE(service.emulator().store().userByEmail("gone@ostrel.test"));
  EXPECT_FALSE(*o->isUserLogged());

  EXPECT_EQ(listener->values(),
            (std::vector<std::string>{"Wrong e-mail or password", "ok", "ok", "ok", "ok"}));
  // Deleting again: nobody is logged.
  std::promise<std::optional<OLError>> again;
  o->__temporaryUserDelete([&](std::optional<OLError> e) { again.set_value(e); });
  auto second = again.get_future().get();
  ASSERT_TRUE(second);
  EXPECT_TRUE(second->is(LocalErrorCodes::UserDeleteError, "User Not Logged"));

  // The library holds the listener weakly: once the host drops it, nothing is called.
  std::weak_ptr<RecordingListener> weak = listener;
  listener.reset();
  EXPECT_TRUE(weak.expired());
  ASSERT_FALSE(runLogin(*o, email(test::EmulatorService::kEmail, test::EmulatorService::kPassword),
                        emailLogin));
}

TEST(AccountFlowsTest, SyncUserStateWaitsForTheRunningLoginHoweverItEnds) {
  test::TestPlatform platform;
  test::EmulatorService service;
  auto o = service.startFacade(platform);
  // Anonymous: nothing to renew, answered at once without a request.
  std::promise<std::optional<OLError>> anonymous;
  o->syncUserState([&](std::optional<OLError> e) { anonymous.set_value(e); });
  EXPECT_FALSE(anonymous.get_future().get());
  EXPECT_EQ(service.requestsTo("/handling/direct/refreshtoken"), 0);

  // A refused login leaves an anonymous user, in sync; a good one a logged user.
  for (const char* password : {"wrong", test::EmulatorService::kPassword}) {
    SCOPED_TRACE(password);
    service.delayNext("/login/direct/email/login", 500);
    auto b = *o->getLoginBuilder();
    b->setEmail(test::EmulatorService::kEmail).setPassword(password);
    std::atomic<bool> loginDone{false};
    std::promise<void> loginFinished;
    b->setOnFlowCompleteCallback([&](std::optional<OLError>) {
      loginDone = true;
      loginFinished.set_value();
    });
    (*b->getEmailLoginFlow())->startLoginFlow();

    std::promise<bool> synced;
    o->syncUserState([&](std::optional<OLError> e) {
      EXPECT_FALSE(e);
      synced.set_value(loginDone.load() || *o->isUserLogged());
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
  std::promise<std::optional<OLError>> renewed;
  o->syncUserState([&](std::optional<OLError> e) { renewed.set_value(e); });
  EXPECT_FALSE(renewed.get_future().get());
  EXPECT_EQ(service.requestsTo("/handling/direct/refreshtoken"), 1);
  EXPECT_TRUE(*o->isUserLogged());
}

}  // namespace
}  // namespace ostrel
