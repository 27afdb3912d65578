// The C API as a C host sees it: codes, error objects, texts it owns, and
// callbacks, against the in-process emulator. One process starts the library
// once, as a host does: the suites that need no instance come first.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "ostrel/json.h"
#include "ostrel/ostrel_c.h"
#include "support/emulator_service.h"
#include "support/eventually.h"
#include "support/recorder.h"
#include "support/test_platform.h"

namespace {

using ostrel::Json;
using ostrel::test::EmulatorService;

// What a synchronous call answered, with its error object read and freed.
struct Answer {
  ostrel_code_t code;
  ostrel_error_kind_t kind;
  std::string errorCode, message;
  std::optional<Json> extra;
};

template <class Call>
Answer answer(Call call) {
  ostrel_error_t* error = reinterpret_cast<ostrel_error_t*>(1);  // must be overwritten
  const ostrel_code_t code = call(&error);
  if (code == OSTREL_OK) {
    EXPECT_EQ(error, nullptr);
    return {code, OSTREL_ERROR_KIND_C_API, "", "", std::nullopt};
  }
  Answer a{code, ostrel_error_kind(error), ostrel_error_code(error), ostrel_error_message(error),
           std::nullopt};
  if (const char* extra = ostrel_error_extra_json(error)) a.extra = ostrel::parseJson(extra);
  ostrel_error_free(error);
  return a;
}

// The outcome of an asynchronous call, as its C callback reported it.
struct Outcome {
  bool ok = false;
  std::string errorCode;
  std::optional<std::string> result;
  std::thread::id thread;
};

class Waiter {
 public:
  static void callback(const ostrel_error_t* error, const char* result, void* userData) {
    auto* self = static_cast<Waiter*>(userData);
    Outcome o{error == nullptr, error ? ostrel_error_code(error) : "", std::nullopt,
              std::this_thread::get_id()};
    if (result) o.result = result;
    self->promise_.set_value(std::move(o));  // a second call would throw: exactly once
  }
  Outcome get() {
    auto future = promise_.get_future();
    EXPECT_EQ(future.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    return future.get();
  }

 private:
  std::promise<Outcome> promise_;
};

std::string take(char* text) {
  std::string copy = text ? text : "";
  ostrel_string_free(text);
  return copy;
}

// A value in code is checked by the facade (tests/core); this is the opt-in's wiring.
TEST(CApiUnstartedTest, ARefusedDeploymentLeavesTheOneStartForLater) {
  ostrel_config_t* config = ostrel_config_new();
  ASSERT_EQ(ostrel_config_set_secret(config, "demo-secret", nullptr), OSTREL_OK);
  setenv("OSTREL_CONNECT_TO", "127.0.0.1:99999", 1);
  ASSERT_EQ(ostrel_config_use_environment_deployment(config, 1, nullptr), OSTREL_OK);
  ostrel_t* instance = nullptr;
  auto a = answer([&](auto e) { return ostrel_start(config, &instance, e); });
  unsetenv("OSTREL_CONNECT_TO");
  ostrel_config_free(config);
  EXPECT_EQ(a.errorCode, "OstrelInitializationError");
  ASSERT_TRUE(a.extra);
  EXPECT_EQ((*a.extra)["variable"], "OSTREL_CONNECT_TO");
  EXPECT_EQ(instance, nullptr);
}

TEST(CApiUnstartedTest, PushPayloadsBecomePushObjectsOrTheParsersError) {
  struct Case {
    const char* payload;
    const char* expected;  // the fields that must be there
  };
  // One payload per branch of the push object's JSON; the parser's refusal is
  // the ctypes test's (examples/python).
  const Case cases[] = {
      {R"({"aps":{"t":"N","alert":"Hello","badge":3,"sound":"ding"},"push_id":"p1","custom":{"k":"v"}})",
       R"({"type":"Standard","push_id":"p1","body":"Hello","badge":3,"sound":"ding",)"
       R"("custom":{"k":"v"}})"},
      {R"({"aps":{"t":"U","alert":"Look"},"push_id":"p2","url":"https://example.com/a"})",
       R"({"type":"Url","body":"Look","url":"https://example.com/a"})"},
      {R"({"aps":{"t":"B","content-available":1},"push_id":"p3","custom":{"n":1}})",
       R"({"type":"Background","custom":{"n":1}})"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.payload);
    char* push = nullptr;
    ASSERT_EQ(ostrel_push_parse(c.payload, &push, nullptr), OSTREL_OK);
    auto parsed = ostrel::parseJson(take(push));
    ASSERT_TRUE(parsed);
    const Json expected = *ostrel::parseJson(c.expected);
    for (const auto& [key, value] : expected.items()) EXPECT_EQ((*parsed)[key], value) << key;
  }
}

TEST(CApiUnstartedTest, ErrorObjectsAreCopiedAndNullIsHarmless) {
  ostrel_error_t* error = nullptr;
  ostrel_config_t* config = ostrel_config_new();
  ASSERT_EQ(ostrel_config_set_custom_data_json(config, "{", &error), OSTREL_INVALID_ARGUMENT);
  ostrel_config_free(config);
  ostrel_error_t* copy = ostrel_error_copy(error);
  ostrel_error_free(error);
  EXPECT_STREQ(ostrel_error_code(copy), "InvalidArgument");
  EXPECT_NE(std::string(ostrel_error_description(copy)).find("json"), std::string::npos);
  int64_t status = 0;
  EXPECT_EQ(ostrel_error_status(copy, &status), 0);
  EXPECT_EQ(ostrel_error_extra_json(copy), nullptr);
  ostrel_error_free(copy);
  EXPECT_STREQ(ostrel_error_code(nullptr), "");
  EXPECT_EQ(ostrel_error_copy(nullptr), nullptr);
  ostrel_error_free(nullptr);
  ostrel_config_free(nullptr);
  ostrel_login_free(nullptr);
  ostrel_free(nullptr);
  ostrel_string_free(nullptr);
}

// The log callback, the analytics calls and a user's events are the ctypes
// test's (examples/python, run by ctest); here what only C callers reach.
class CApiTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    service_ = new EmulatorService();
    storage_ = new ostrel::test::TempDir();
    const auto& info = service_->emulator().info();
    setenv("OSTREL_SERVICE_DOMAIN", info.domain.c_str(), 1);
    setenv("OSTREL_CONNECT_TO", ("127.0.0.1:" + std::to_string(info.port)).c_str(), 1);
    setenv("OSTREL_CA_FILE", info.caFile.c_str(), 1);
    ostrel_config_t* config = ostrel_config_new();
    const std::string root = storage_->path() + "/Ostrel";
    ASSERT_EQ(ostrel_config_set_secret(config, "demo-secret", nullptr), OSTREL_OK);
    ASSERT_EQ(ostrel_config_use_environment_deployment(config, 1, nullptr), OSTREL_OK);
    ASSERT_EQ(ostrel_config_set_storage_dir(config, root.c_str(), nullptr), OSTREL_OK);
    ASSERT_EQ(
        ostrel_config_set_app_identity(config, "io.ostrel.capi.test", "2.5", nullptr, nullptr),
        OSTREL_OK);
    // A null is the one JSON value the ctypes test hands no custom data.
    ASSERT_EQ(ostrel_config_set_custom_data_json(config, R"({"from":"C","x":null})", nullptr),
              OSTREL_OK);
    auto a = answer([&](auto e) { return ostrel_start(config, &ostrel_, e); });
    ostrel_config_free(config);
    ASSERT_EQ(a.code, OSTREL_OK) << a.errorCode << " " << a.message;
  }
  static void TearDownTestSuite() {
    ostrel_free(ostrel_);
    delete storage_;
    delete service_;
  }
  // Runs one flow from a fresh builder; answers the synchronous refusal or the outcome.
  static Outcome login(ostrel_login_flow_t flow,
                       const std::function<void(ostrel_login_t*)>& configure) {
    ostrel_login_t* login = nullptr;
    EXPECT_EQ(ostrel_login_new(ostrel_, &login, nullptr), OSTREL_OK);
    configure(login);
    Waiter w;
    const Answer started =
        answer([&](auto e) { return ostrel_login_start(login, flow, &Waiter::callback, &w, e); });
    ostrel_login_free(login);  // the flow keeps its builder
    if (started.code != OSTREL_OK)
      return {false, started.errorCode, {}, std::this_thread::get_id()};
    return w.get();
  }
  // Sets an address, and a password unless it is NULL.
  static std::function<void(ostrel_login_t*)> email(const char* password) {
    return [=](ostrel_login_t* l) {
      ASSERT_EQ(ostrel_login_set_email(l, EmulatorService::kEmail, nullptr), OSTREL_OK);
      if (password) {
        ASSERT_EQ(ostrel_login_set_password(l, password, nullptr), OSTREL_OK);
      }
    };
  }

  static inline EmulatorService* service_ = nullptr;
  static inline ostrel::test::TempDir* storage_ = nullptr;
  static inline ostrel_t* ostrel_ = nullptr;
};

// The message of a second start is the facade's (tests/core).
TEST_F(CApiTest, StartsOnceWithTheStorageAndIdentityItWasGiven) {
  ostrel_config_t* config = ostrel_config_new();
  ASSERT_EQ(ostrel_config_set_secret(config, "demo-secret", nullptr), OSTREL_OK);
  ostrel_t* second = nullptr;
  auto again = answer([&](auto e) { return ostrel_start(config, &second, e); });
  ostrel_config_free(config);
  EXPECT_EQ(again.errorCode, "OstrelInitializationError");

  char* text = nullptr;
  ASSERT_EQ(ostrel_get_environment(ostrel_, &text, nullptr), OSTREL_OK);
  EXPECT_EQ(take(text), "PROD-RELEASE");
  EXPECT_TRUE(std::filesystem::exists(storage_->path() + "/Ostrel/settings.json"));

  Waiter flushed;
  ASSERT_EQ(ostrel_flush(ostrel_, &Waiter::callback, &flushed, nullptr), OSTREL_OK);
  const Outcome flush = flushed.get();
  ASSERT_TRUE(flush.ok) << flush.errorCode;
  EXPECT_NE(flush.thread, std::this_thread::get_id());  // a network thread of the library
  const auto starts = service_->events("start session");
  ASSERT_EQ(starts.size(), 1u);
  EXPECT_EQ(starts[0]["app_identifier"], "io.ostrel.capi.test");
  EXPECT_EQ(starts[0]["custom_data"], (Json{{"from", "C"}, {"x", nullptr}})) << starts[0].dump();

  auto badGroup = answer([](auto e) { return ostrel_set_distribution_group(ostrel_, "a\"b", e); });
  EXPECT_EQ(badGroup.errorCode, "ConnectionValidationError");
  EXPECT_EQ(answer([](auto e) { return ostrel_unset_distribution_group(ostrel_, e); }).code,
            OSTREL_OK);
}

// Checked in the C layer before anything reaches the facade; the library's own
// refusals reach the host as the ctypes test shows.
TEST_F(CApiTest, ArgumentsAreRefusedBeforeTheyReachTheLibrary) {
  ostrel_config_t* config = ostrel_config_new();
  ASSERT_NE(config, nullptr);
  ostrel_t* none = nullptr;
  struct Case {
    const char* what;
    std::function<ostrel_code_t(ostrel_error_t**)> call;
  };
  const Case cases[] = {
      {"start without a config", [&](auto e) { return ostrel_start(nullptr, &none, e); }},
      {"start without a secret", [&](auto e) { return ostrel_start(config, &none, e); }},
      {"a secret that is not UTF-8",
       [&](auto e) { return ostrel_config_set_secret(config, "s\xff", e); }},
      {"a relative storage folder",
       [&](auto e) { return ostrel_config_set_storage_dir(config, "data/ostrel", e); }},
      {"custom data that is not a JSON object",
       [&](auto e) { return ostrel_config_set_custom_data_json(config, "[1,2]", e); }},
      {"a NULL config", [&](auto e) { return ostrel_config_set_secret(nullptr, "s", e); }},
      {"an event without an instance",
       [&](auto e) { return ostrel_send_event(nullptr, "name", nullptr, e); }},
      {"a flag without its out-parameter",
       [](auto e) { return ostrel_is_flow_begun(ostrel_, nullptr, e); }},
      {"a token pointer without bytes",
       [](auto e) { return ostrel_push_set_device_token(ostrel_, nullptr, 4, e); }},
      {"a ranking scope outside the enumeration",
       [](auto e) {
         return ostrel_rank_content(ostrel_, "a", static_cast<ostrel_ranking_scope_t>(9), 1, e);
       }},
      {"an attach type outside the enumeration",
       [](auto e) {
         return ostrel_attach_session(ostrel_, "s", nullptr, static_cast<ostrel_attach_type_t>(9),
                                      nullptr, e);
       }},
      {"a marketplace outside the enumeration",
       [](auto e) {
         return ostrel_payment_get_offer(ostrel_, "gold-coins",
                                         static_cast<ostrel_marketplace_t>(7), nullptr, nullptr, e);
       }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    auto a = answer(c.call);
    EXPECT_EQ(a.code, OSTREL_INVALID_ARGUMENT);
    EXPECT_EQ(a.kind, OSTREL_ERROR_KIND_C_API);
    EXPECT_FALSE(a.message.empty());
  }
  EXPECT_EQ(none, nullptr);
  ostrel_config_free(config);
}

// Flow steps and the texts and flags the analytics hand out.
TEST_F(CApiTest, TheCurrentFlowIsReadBack) {
  ASSERT_EQ(ostrel_flow_begin(ostrel_, "c_checkout", nullptr, nullptr), OSTREL_OK);
  ASSERT_EQ(ostrel_flow_step(ostrel_, "c_pay", nullptr, nullptr), OSTREL_OK);
  int flag = -1;
  ASSERT_EQ(ostrel_is_flow_begun(ostrel_, &flag, nullptr), OSTREL_OK);
  EXPECT_EQ(flag, 1);
  char* text = nullptr;
  ASSERT_EQ(ostrel_get_current_flow_name(ostrel_, &text, nullptr), OSTREL_OK);
  EXPECT_EQ(take(text), "c_pay");
}

// Each flow's outcomes are tested in tests/login; here the C flow enumeration,
// one success with the user's JSON, a builder started twice, and the listener.
TEST_F(CApiTest, LoginFlowsEndAsTheServiceSaysAndTheListenerHears) {
  ostrel::test::Recorder<std::string> heard;
  auto listener = [](const ostrel_error_t* error, const char*, void* userData) {
    static_cast<decltype(heard)*>(userData)->add(error ? ostrel_error_code(error) : "ok");
  };
  ASSERT_EQ(ostrel_set_user_state_listener(ostrel_, listener, &heard, nullptr), OSTREL_OK);
  const auto* password = EmulatorService::kPassword;
  EXPECT_EQ(login(static_cast<ostrel_login_flow_t>(42), email(password)).errorCode,
            "InvalidArgument");
  // Without a password only the forgot branch of the enumeration succeeds.
  EXPECT_TRUE(login(OSTREL_LOGIN_EMAIL_FORGOT, email(nullptr)).ok);
  ASSERT_TRUE(login(OSTREL_LOGIN_EMAIL, email(password)).ok);
  Waiter synced, meta;
  ASSERT_EQ(ostrel_sync_user_state(ostrel_, &Waiter::callback, &synced, nullptr), OSTREL_OK);
  EXPECT_TRUE(synced.get().ok);
  ASSERT_EQ(ostrel_get_user_meta_info(ostrel_, &Waiter::callback, &meta, nullptr), OSTREL_OK);
  const Outcome info = meta.get();
  ASSERT_TRUE(info.ok) << info.errorCode;
  EXPECT_TRUE(ostrel::parseJson(info.result.value_or("")).value_or(Json()).is_object());
  ASSERT_EQ(ostrel_user_logout(ostrel_, nullptr), OSTREL_OK);

  // One flow per builder: a second start would take over the first one's callback.
  ostrel_login_t* builder = nullptr;
  ASSERT_EQ(ostrel_login_new(ostrel_, &builder, nullptr), OSTREL_OK);
  email(nullptr)(builder);
  Waiter first;
  auto resend = [&](auto e) {
    return ostrel_login_start(builder, OSTREL_LOGIN_EMAIL_RESEND, &Waiter::callback, &first, e);
  };
  ASSERT_EQ(answer(resend).code, OSTREL_OK);
  EXPECT_EQ(answer(resend).errorCode, "InvalidArgument");
  ostrel_login_free(builder);
  EXPECT_TRUE(first.get().ok);

  ASSERT_EQ(ostrel_set_user_state_listener(ostrel_, nullptr, nullptr, nullptr), OSTREL_OK);
  const auto outcomes = heard.values();
  EXPECT_NE(std::find(outcomes.begin(), outcomes.end(), "ok"), outcomes.end());
}

// The callback of received pushes is the ctypes test's; waiting pushes and the
// manager's refusals are tested in tests/push.
TEST_F(CApiTest, PushesThatAreNotJsonAreRefusedAndTokenBytesRegister) {
  // Not JSON: refused in the C layer with the parser's own error.
  EXPECT_EQ(answer([](auto e) { return ostrel_push_process_remote(ostrel_, "[", 0, e); }).errorCode,
            "PushNotificationError");
  const unsigned char token[] = {0x00, 0xab, 0xff, 0x10};
  ASSERT_EQ(ostrel_push_set_device_token(ostrel_, token, sizeof token, nullptr), OSTREL_OK);
  EXPECT_TRUE(ostrel::test::eventually([] {
    int registered = 0;
    return ostrel_push_is_registered(ostrel_, &registered, nullptr) == OSTREL_OK && registered;
  }));
  EXPECT_NE(ostrel::dumpJson(service_->emulator().store().pushRegistrations()).find("00abff10"),
            std::string::npos);
}

// The payment rules (a receipt paid twice, ...) are tested in tests/payment,
// an anonymous paying state in the ctypes test.
TEST_F(CApiTest, PaymentsAddReceiptsAndTellThePayingState) {
  Waiter offered, added, paying;
  ASSERT_EQ(ostrel_payment_get_offer(ostrel_, "gold-coins", OSTREL_MARKET_GOOGLE_PLAY,
                                     &Waiter::callback, &offered, nullptr),
            OSTREL_OK);
  const Outcome offer = offered.get();
  ASSERT_TRUE(offer.result) << offer.errorCode;
  const std::string receipt = storage_->path() + "/receipt.bin";
  std::ofstream(receipt) << "store receipt bytes";
  ASSERT_TRUE(login(OSTREL_LOGIN_EMAIL, email(EmulatorService::kPassword)).ok);
  ASSERT_EQ(ostrel_payment_add_receipt(ostrel_, offer.result->c_str(), receipt.c_str(),
                                       &Waiter::callback, &added, nullptr),
            OSTREL_OK);
  const Outcome add = added.get();
  ASSERT_TRUE(add.ok) << add.errorCode;
  ASSERT_EQ(ostrel_payment_is_paying(ostrel_, &Waiter::callback, &paying, nullptr), OSTREL_OK);
  const Json state = ostrel::parseJson(paying.get().result.value_or("")).value_or(Json());
  EXPECT_EQ(state["payment"]["item"], *offer.result);
  EXPECT_TRUE(state["payment"]["type_recurrent_extra"].is_object()) << ostrel::dumpJson(state);
}

}  // namespace
