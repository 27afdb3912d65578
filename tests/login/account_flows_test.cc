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
using Getter = std::function<Result<std::shared_ptr<OLLoginFlow>>(OLLoginBuilder&)>;
using test::EmulatorService;

// One of the builder's flow getters, as one type for a table.
template <class Flow>
Getter flowOf(Result<std::shared_ptr<Flow>> (OLLoginBuilder::*get)()) {
  return [get](OLLoginBuilder& b) -> Result<std::shared_ptr<OLLoginFlow>> {
    auto flow = (b.*get)();
    if (!flow) return flow.error();
    return std::shared_ptr<OLLoginFlow>(*flow);
  };
}
Configure email(std::string address, std::string password = "pw") {
  return [=](OLLoginBuilder& b) { b.setEmail(address).setPassword(password); };
}
std::optional<OLError> userDelete(Ostrel& o) {
  return test::await<std::optional<OLError>>([&](auto done) { o.__temporaryUserDelete(done); });
}

TEST(AccountFlowsTest, EachEmailFlowSucceedsOrMapsTheRefusal) {
  struct Case {
    const char* what;
    bool mandatoryConfirm;
    Configure configure;
    Getter get;
    std::optional<LocalErrorCodes> code;  // absent: success
    std::string serviceCode;
    bool loggedAfter;
  };
  const Getter signup = flowOf(&OLLoginBuilder::getEmailSignupFlow);
  const Getter forgot = flowOf(&OLLoginBuilder::getEmailForgotFlow);
  const Getter resend = flowOf(&OLLoginBuilder::getEmailResendFlow);
  const Case cases[] = {
      {"sign-up of a new address", false, email("new@ostrel.test"), signup, std::nullopt, "", true},
      {"sign-up of a taken address", false, email(EmulatorService::kEmail), signup,
       LocalErrorCodes::EMAILSignupLoginIdentityError, "IDENTITY_ALREADY_USED", false},
      {"sign-up that needs confirming", true, email("new@ostrel.test"), signup,
       LocalErrorCodes::EMAILSignupLoginMandatoryConfirmError, "MANDATORY_CONFIRM", false},
      {"forgot for a known address", false, email(EmulatorService::kEmail), forgot, std::nullopt,
       "", false},
      {"forgot for an unknown address", false, email("nobody@ostrel.test"), forgot,
       LocalErrorCodes::EMAILForgotWrongEmailError, "WRONG_IDENTITY", false},
      {"resend for a known address", false, email(EmulatorService::kEmail), resend, std::nullopt,
       "", false},
      {"resend for an unknown address", false, email("nobody@ostrel.test"), resend,
       LocalErrorCodes::EMAILResendError, "WRONG_IDENTITY", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    test::TestPlatform platform;
    EmulatorService service([&](emulator::Options& o) { o.mandatoryConfirm = c.mandatoryConfirm; });
    auto o = service.startFacade(platform);
    auto error = EmulatorService::runFlow(*o, c.configure, c.get);
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
      EXPECT_FALSE(EmulatorService::logIn(*o));
    }
  }
}

TEST(AccountFlowsTest, PinRemindersStopAtTheServiceLimit) {
  test::TestPlatform platform;
  EmulatorService service;  // three reminders allowed
  auto o = service.startFacade(platform);
  std::vector<std::optional<LocalErrorCodes>> outcomes;
  for (int i = 0; i < 4; ++i) {
    auto b = *o->getLoginBuilder();
    b->setMSISDN(EmulatorService::kMsisdn).setNOPIN();
    auto e = test::await<std::optional<OLError>>([&](auto done) {
      b->setOnFlowCompleteCallback(done);
      (*b->getMSISDPINLoginFlow())->startForgotFlow();
    });
    outcomes.push_back(e ? std::optional(e->localCode()) : std::nullopt);
  }
  using O = std::optional<LocalErrorCodes>;
  EXPECT_EQ(outcomes, (std::vector<O>{std::nullopt, std::nullopt, std::nullopt,
                                      LocalErrorCodes::MSISDNForgotMaxPINReachedError}));
  EXPECT_FALSE(*o->isUserLogged());
}

TEST(AccountFlowsTest, ForgotWhileLoggedIsRefusedLocally) {
  test::TestPlatform platform;
  EmulatorService service;
  auto o = service.startFacade(platform);
  ASSERT_FALSE(EmulatorService::logIn(*o));
  auto error = EmulatorService::runFlow(*o, email(EmulatorService::kEmail),
                                        &OLLoginBuilder::getEmailForgotFlow);
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
  EmulatorService service;
  auto o = service.startFacade(platform);
  auto listener = std::make_shared<RecordingListener>();
  ASSERT_TRUE(o->setOnUserStateChangeListener(listener));

  EXPECT_TRUE(EmulatorService::runFlow(*o, email(EmulatorService::kEmail, "wrong"),
                                       &OLLoginBuilder::getEmailLoginFlow));
  ASSERT_FALSE(EmulatorService::logIn(*o));
  ASSERT_TRUE(o->userLogout());

  // Deletion: the account disappears from the service and the user is anonymous again.
  ASSERT_FALSE(
      EmulatorService::runFlow(*o, email("gone@ostrel.test"), &OLLoginBuilder::getEmailSignupFlow));
  ASSERT_TRUE(service.emulator().store().userByEmail("gone@ostrel.test"));
  auto error = userDelete(*o);
  EXPECT_FALSE(error) << error->description();
  EXPECT_FALSE(service.emulator().store().userByEmail("gone@ostrel.test"));
  EXPECT_FALSE(*o->isUserLogged());

  EXPECT_EQ(listener->values(),
            (std::vector<std::string>{"Wrong e-mail or password", "ok", "ok", "ok", "ok"}));
  // Deleting again: nobody is logged.
  auto second = userDelete(*o);
  ASSERT_TRUE(second);
  EXPECT_TRUE(second->is(LocalErrorCodes::UserDeleteError, "User Not Logged"));

  // The library holds the listener weakly: once the host drops it, nothing is called.
  std::weak_ptr<RecordingListener> weak = listener;
  listener.reset();
  EXPECT_TRUE(weak.expired());
  ASSERT_FALSE(EmulatorService::logIn(*o));
}

TEST(AccountFlowsTest, SyncUserStateWaitsForTheRunningLoginHoweverItEnds) {
  test::TestPlatform platform;
  EmulatorService service;
  auto o = service.startFacade(platform);
  // Anonymous: nothing to renew, answered at once without a request.
  auto sync = [&] {
    return test::await<std::optional<OLError>>([&](auto done) { o->syncUserState(done); });
  };
  EXPECT_FALSE(sync());
  EXPECT_EQ(service.requestsTo("/handling/direct/refreshtoken"), 0);

  // A refused login leaves an anonymous user, in sync; a good one a logged user.
  for (const char* password : {"wrong", EmulatorService::kPassword}) {
    SCOPED_TRACE(password);
    service.delayNext("/login/direct/email/login", 500);
    auto b = *o->getLoginBuilder();
    b->setEmail(EmulatorService::kEmail).setPassword(password);
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
  EXPECT_FALSE(sync());
  EXPECT_EQ(service.requestsTo("/handling/direct/refreshtoken"), 1);
  EXPECT_TRUE(*o->isUserLogged());
}

}  // namespace
}  // namespace ostrel
