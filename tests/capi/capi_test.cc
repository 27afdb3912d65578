// The C API as a C host sees it: codes, error objects, texts it owns, and
// callbacks, against the in-process emulator. One process starts the library
// once, as a host does: the suites that need no instance come first.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <mutex>
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

TEST(CApiUnstartedTest, ArgumentsAreRefusedBeforeTheyReachTheLibrary) {
  ostrel_config_t* config = ostrel_config_new();
  ASSERT_NE(config, nullptr);
  ostrel_t* none = nullptr;
  int flag = 0;
  struct Case {
    const char* what;
    std::function<ostrel_code_t(ostrel_error_t**)> call;
    const char* errorCode = "InvalidArgument";  // else a library error
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
      {"custom data the simple object refuses",
       [&](auto e) { return ostrel_config_set_custom_data_json(config, R"({"a":{"b":1}})", e); },
       "SimpleObjectCreationError"},
      {"a NULL config", [&](auto e) { return ostrel_config_set_secret(nullptr, "s", e); }},
      {"an event without an instance",
       [&](auto e) { return ostrel_send_event(nullptr, "name", nullptr, e); }},
      {"a flag without its out-parameter",
       [&](auto e) {
         return ostrel_is_flow_begun(reinterpret_cast<ostrel_t*>(&flag), nullptr, e);
       }},
      {"a token pointer without bytes",
       [&](auto e) { return ostrel_push_set_device_token(nullptr, nullptr, 4, e); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const bool ours = std::string(c.errorCode) == "InvalidArgument";
    auto a = answer(c.call);
    EXPECT_EQ(a.code, ours ? OSTREL_INVALID_ARGUMENT : OSTREL_ERROR);
    EXPECT_EQ(a.kind, ours ? OSTREL_ERROR_KIND_C_API : OSTREL_ERROR_KIND_LOCAL);
    EXPECT_EQ(a.errorCode, c.errorCode);
    EXPECT_FALSE(a.message.empty());
  }
  EXPECT_EQ(none, nullptr);
  ostrel_config_free(config);
}

TEST(CApiUnstartedTest, ARefusedDeploymentLeavesTheOneStartForLater) {
  struct Case {
    const char* what;
    const char* connectTo;      // through ostrel_config_set_network
    const char* environmentTo;  // through OSTREL_CONNECT_TO and the opt-in
  };
  for (const auto& c : {Case{"set in code", "no port here", nullptr},
                        Case{"from the environment", nullptr, "127.0.0.1:99999"}}) {
    SCOPED_TRACE(c.what);
    ostrel_config_t* config = ostrel_config_new();
    ASSERT_EQ(ostrel_config_set_secret(config, "demo-secret", nullptr), OSTREL_OK);
    ASSERT_EQ(ostrel_config_set_network(config, c.connectTo, nullptr, nullptr), OSTREL_OK);
    if (c.environmentTo) {
      setenv("OSTREL_CONNECT_TO", c.environmentTo, 1);
      ASSERT_EQ(ostrel_config_use_environment_deployment(config, 1, nullptr), OSTREL_OK);
    }
    ostrel_t* instance = nullptr;
    auto a = answer([&](auto e) { return ostrel_start(config, &instance, e); });
    unsetenv("OSTREL_CONNECT_TO");
    EXPECT_EQ(a.code, OSTREL_ERROR);
    EXPECT_EQ(a.errorCode, "OstrelInitializationError");
    if (c.environmentTo) {
      ASSERT_TRUE(a.extra);
      EXPECT_EQ((*a.extra)["variable"], "OSTREL_CONNECT_TO");
    }
    EXPECT_EQ(instance, nullptr);
    ostrel_config_free(config);
  }
}

TEST(CApiUnstartedTest, PushPayloadsBecomePushObjectsOrTheParsersError) {
  struct Case {
    const char* payload;
    const char* error;          // empty: parsed
    const char* expected = "";  // the fields that must be there
  };
  const Case cases[] = {
      {R"({"aps":{"t":"N","alert":"Hello","badge":3,"sound":"ding"},"push_id":"p1","custom":{"k":"v"}})",
       "",
       R"({"type":"Standard","push_id":"p1","body":"Hello","badge":3,"sound":"ding",)"
       R"("custom":{"k":"v"}})"},
      {R"({"aps":{"t":"U","alert":"Look"},"push_id":"p2","url":"https://example.com/a"})", "",
       R"({"type":"Url","body":"Look","url":"https://example.com/a"})"},
      {R"({"aps":{"t":"B","content-available":1},"push_id":"p3","custom":{"n":1}})", "",
       R"({"type":"Background","custom":{"n":1}})"},
      {"not json", "PushNotificationError"},
      {R"({"aps":{"t":"N","sound":"ding"},"push_id":"p4"})", "PushNotificationError"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.payload);
    char* push = nullptr;
    auto a = answer([&](auto e) { return ostrel_push_parse(c.payload, &push, e); });
    EXPECT_EQ(a.errorCode, c.error);
    if (*c.error) {
      EXPECT_EQ(push, nullptr);
      continue;
    }
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
    ASSERT_EQ(ostrel_config_set_custom_data_json(config, R"({"from":"C"})", nullptr), OSTREL_OK);
    ASSERT_EQ(ostrel_config_set_log_callback(config, &CApiTest::log, nullptr, nullptr), OSTREL_OK);
    auto a = answer([&](auto e) { return ostrel_start(config, &ostrel_, e); });
    ostrel_config_free(config);
    ASSERT_EQ(a.code, OSTREL_OK) << a.errorCode << " " << a.message;
  }
  static void TearDownTestSuite() {
    ostrel_free(ostrel_);
    delete storage_;
    delete service_;
  }
  static void log(const char* line, void*) {
    std::lock_guard lock(logMutex_);
    logLines_.emplace_back(line);
  }
  static bool logged(const std::string& fragment) {
    std::lock_guard lock(logMutex_);
    for (const auto& l : logLines_)
      if (l.find(fragment) != std::string::npos) return true;
    return false;
  }
  static Outcome flush() {
    Waiter w;
    EXPECT_EQ(ostrel_flush(ostrel_, &Waiter::callback, &w, nullptr), OSTREL_OK);
    return w.get();
  }
  static const Json* eventNamed(const std::vector<Json>& events, const std::string& name) {
    for (const auto& e : events)
      if (e.value("name", "") == name) return &e;
    return nullptr;
  }
  static bool isLogged() {
    int logged = -1;
    EXPECT_EQ(ostrel_is_user_logged(ostrel_, &logged, nullptr), OSTREL_OK);
    return logged == 1;
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
  static std::function<void(ostrel_login_t*)> email(const char* address, const char* password) {
    return [=](ostrel_login_t* l) {
      ASSERT_EQ(ostrel_login_set_email(l, address, nullptr), OSTREL_OK);
      if (password) {
        ASSERT_EQ(ostrel_login_set_password(l, password, nullptr), OSTREL_OK);
      }
    };
  }
  static void logOut() {
    ASSERT_EQ(ostrel_user_logout(ostrel_, nullptr), OSTREL_OK);
    ASSERT_FALSE(isLogged());
  }

  static inline EmulatorService* service_ = nullptr;
  static inline ostrel::test::TempDir* storage_ = nullptr;
  static inline ostrel_t* ostrel_ = nullptr;
  static inline std::mutex logMutex_;
  static inline std::vector<std::string> logLines_;
};

TEST_F(CApiTest, StartsOnceWithTheStorageLogAndIdentityItWasGiven) {
  ostrel_config_t* config = ostrel_config_new();
  ASSERT_EQ(ostrel_config_set_secret(config, "demo-secret", nullptr), OSTREL_OK);
  ostrel_t* second = nullptr;
  auto again = answer([&](auto e) { return ostrel_start(config, &second, e); });
  ostrel_config_free(config);
  EXPECT_EQ(again.errorCode, "OstrelInitializationError");
  EXPECT_EQ(again.message, "Ostrel Already Initialized. Must call getSharedInstance");

  char* text = nullptr;
  ASSERT_EQ(ostrel_get_environment(ostrel_, &text, nullptr), OSTREL_OK);
  EXPECT_EQ(take(text), "PROD-RELEASE");
  ASSERT_EQ(ostrel_get_session_id(ostrel_, &text, nullptr), OSTREL_OK);
  const std::string session = take(text);
  EXPECT_FALSE(session.empty());
  EXPECT_TRUE(logged("Initialized Ostrel with Session: " + session));
  EXPECT_TRUE(std::filesystem::exists(storage_->path() + "/Ostrel/settings.json"));

  ASSERT_TRUE(flush().ok);
  bool identified = false, startData = false;
  for (const auto& request : service_->emulator().requests()) {
    const std::string body = request.value("body", "");
    identified |= body.find("io.ostrel.capi.test") != std::string::npos &&
                  body.find("\"2.5\"") != std::string::npos;
    startData |= body.find(R"("custom_data":{"from":"C"})") != std::string::npos;
  }
  EXPECT_TRUE(identified);
  EXPECT_TRUE(startData);

  auto badGroup = answer([](auto e) { return ostrel_set_distribution_group(ostrel_, "a\"b", e); });
  EXPECT_EQ(badGroup.errorCode, "ConnectionValidationError");
  EXPECT_EQ(answer([](auto e) { return ostrel_set_distribution_group(ostrel_, "beta", e); }).code,
            OSTREL_OK);
  EXPECT_EQ(answer([](auto e) { return ostrel_unset_distribution_group(ostrel_, e); }).code,
            OSTREL_OK);
}

TEST_F(CApiTest, AnalyticsReachTheServiceWithTheirCustomData) {
  int flag = -1;
  char* text = nullptr;
  ASSERT_EQ(
      ostrel_send_event(ostrel_, "c_tap", R"({"screen":"home","n":7,"ok":true,"x":null})", nullptr),
      OSTREL_OK);
  ASSERT_EQ(ostrel_timed_event_start(ostrel_, "c_load", nullptr, nullptr), OSTREL_OK);
  ASSERT_EQ(ostrel_is_timed_event_running(ostrel_, "c_load", &flag, nullptr), OSTREL_OK);
  EXPECT_EQ(flag, 1);
  ASSERT_EQ(ostrel_timed_event_stop(ostrel_, "c_load", nullptr, nullptr), OSTREL_OK);
  ASSERT_EQ(ostrel_flow_begin(ostrel_, "c_checkout", R"({"cart":3})", nullptr), OSTREL_OK);
  ASSERT_EQ(ostrel_flow_step(ostrel_, "c_pay", nullptr, nullptr), OSTREL_OK);
  ASSERT_EQ(ostrel_is_flow_begun(ostrel_, &flag, nullptr), OSTREL_OK);
  EXPECT_EQ(flag, 1);
  ASSERT_EQ(ostrel_get_current_flow_name(ostrel_, &text, nullptr), OSTREL_OK);
  EXPECT_EQ(take(text), "c_pay");  // the flow's latest step
  ASSERT_EQ(ostrel_flow_succeed(ostrel_, "paid", nullptr, nullptr), OSTREL_OK);
  ASSERT_EQ(ostrel_rank_content(ostrel_, "article-7", OSTREL_RANKING_EDITORIAL, 1.5f, nullptr),
            OSTREL_OK);
  ASSERT_EQ(ostrel_attach_session(ostrel_, "other-session", nullptr, OSTREL_ATTACH_PEER, nullptr,
                                  nullptr),
            OSTREL_OK);
  ASSERT_EQ(ostrel_attach_master_session(ostrel_, "master-session", "U_42", nullptr, nullptr),
            OSTREL_OK);
  EXPECT_EQ(ostrel_wait_until_persisted(ostrel_, 5000), 1);

  struct Refusal {
    const char* what;
    std::function<ostrel_code_t(ostrel_error_t**)> call;
    ostrel_code_t code;
    const char* errorCode;
  };
  const Refusal refusals[] = {
      {"a name outside the rule",
       [](auto e) { return ostrel_send_event(ostrel_, "no spaces", nullptr, e); }, OSTREL_ERROR,
       "EventCreationError"},
      {"nested custom data",
       [](auto e) { return ostrel_send_event(ostrel_, "c_nested", R"({"a":[1]})", e); },
       OSTREL_ERROR, "SimpleObjectCreationError"},
      {"a flow step without a flow",
       [](auto e) { return ostrel_flow_step(ostrel_, "c_orphan", nullptr, e); }, OSTREL_ERROR,
       "EventFlowInconsistance"},
      {"a scope outside the enumeration",
       [](auto e) {
         return ostrel_rank_content(ostrel_, "a", static_cast<ostrel_ranking_scope_t>(9), 1, e);
       },
       OSTREL_INVALID_ARGUMENT, "InvalidArgument"},
  };
  for (const auto& r : refusals) {
    SCOPED_TRACE(r.what);
    auto a = answer(r.call);
    EXPECT_EQ(a.code, r.code);
    EXPECT_EQ(a.errorCode, r.errorCode) << a.message;
  }

  const Outcome flushed = flush();
  EXPECT_TRUE(flushed.ok) << flushed.errorCode;
  EXPECT_NE(flushed.thread, std::this_thread::get_id());  // a network thread of the library
  const auto events = service_->events();
  const Json* tap = eventNamed(events, "c_tap");
  ASSERT_NE(tap, nullptr);
  EXPECT_EQ((*tap)["custom_data"],
            *ostrel::parseJson(R"({"screen":"home","n":7,"ok":true,"x":null})"));
  const Json* flow = eventNamed(events, "c_checkout");
  ASSERT_NE(flow, nullptr);
  EXPECT_EQ((*flow)["custom_data"]["cart"], 3);
  for (const char* name : {"c_load", "c_pay"}) EXPECT_NE(eventNamed(events, name), nullptr) << name;
  EXPECT_EQ(eventNamed(events, "c_nested"), nullptr);
}

TEST_F(CApiTest, LoginFlowsEndAsTheServiceSaysAndTheListenerHears) {
  ostrel::test::Recorder<std::string> heard;
  auto listener = [](const ostrel_error_t* error, const char*, void* userData) {
    static_cast<decltype(heard)*>(userData)->add(error ? ostrel_error_code(error) : "ok");
  };
  ASSERT_EQ(ostrel_set_user_state_listener(ostrel_, listener, &heard, nullptr), OSTREL_OK);

  auto msisdn = [](const char* pin) {
    return [=](ostrel_login_t* l) {
      ASSERT_EQ(ostrel_login_set_msisdn(l, EmulatorService::kMsisdn, nullptr), OSTREL_OK);
      ASSERT_EQ(pin ? ostrel_login_set_pin(l, pin, nullptr) : ostrel_login_set_no_pin(l, nullptr),
                OSTREL_OK);
    };
  };
  struct Case {
    const char* what;
    ostrel_login_flow_t flow;
    std::function<void(ostrel_login_t*)> configure;
    const char* errorCode;  // empty: success
    bool loggedAfter;
  };
  const Case cases[] = {
      {"a builder without a password", OSTREL_LOGIN_EMAIL, email(EmulatorService::kEmail, nullptr),
       "LoginBuilderError", false},
      {"a wrong password", OSTREL_LOGIN_EMAIL, email(EmulatorService::kEmail, "nope"),
       "EMAILLoginWrongPasswordError", false},
      {"e-mail login", OSTREL_LOGIN_EMAIL,
       email(EmulatorService::kEmail, EmulatorService::kPassword), "", true},
      {"a reminder", OSTREL_LOGIN_EMAIL_FORGOT, email(EmulatorService::kEmail, nullptr), "", false},
      {"sign-up", OSTREL_LOGIN_EMAIL_SIGNUP, email("c-api@ostrel.test", "pw"), "", true},
      {"a wrong PIN", OSTREL_LOGIN_MSISDN_PIN, msisdn("0000"), "MSISDNLoginWrongPINError", false},
      {"PIN login", OSTREL_LOGIN_MSISDN_PIN, msisdn(EmulatorService::kPin), "", true},
      {"a new PIN", OSTREL_LOGIN_MSISDN_PIN_FORGOT, msisdn(nullptr), "", false},
      {"operator recognition", OSTREL_LOGIN_MSISDN_RECOGNITION,
       [](ostrel_login_t* l) { ASSERT_EQ(ostrel_login_set_imsi(l, "222015550001", nullptr), 0); },
       "", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    char* text = nullptr;
    ASSERT_EQ(ostrel_get_user_token(ostrel_, &text, nullptr), OSTREL_OK);
    const std::string before = take(text);
    const Outcome o = login(c.flow, c.configure);
    EXPECT_EQ(o.errorCode, c.errorCode);
    EXPECT_EQ(isLogged(), c.loggedAfter);
    if (!c.loggedAfter) continue;
    ASSERT_EQ(ostrel_get_user_token(ostrel_, &text, nullptr), OSTREL_OK);
    EXPECT_NE(take(text), before);
    Waiter synced, meta;
    ASSERT_EQ(ostrel_sync_user_state(ostrel_, &Waiter::callback, &synced, nullptr), OSTREL_OK);
    EXPECT_TRUE(synced.get().ok);
    ASSERT_EQ(ostrel_get_user_meta_info(ostrel_, &Waiter::callback, &meta, nullptr), OSTREL_OK);
    const Outcome info = meta.get();
    ASSERT_TRUE(info.ok) << info.errorCode;
    ASSERT_TRUE(info.result);
    EXPECT_TRUE(ostrel::parseJson(*info.result).value_or(Json()).is_object()) << *info.result;
    logOut();
  }
  // One flow per builder: a second start would take over the first one's callback.
  // (The resend flow is one the table above does not run.)
  ostrel_login_t* builder = nullptr;
  ASSERT_EQ(ostrel_login_new(ostrel_, &builder, nullptr), OSTREL_OK);
  ASSERT_EQ(ostrel_login_set_email(builder, EmulatorService::kEmail, nullptr), OSTREL_OK);
  Waiter first;
  ASSERT_EQ(
      ostrel_login_start(builder, OSTREL_LOGIN_EMAIL_RESEND, &Waiter::callback, &first, nullptr),
      OSTREL_OK);
  EXPECT_EQ(answer([&](auto e) {
              return ostrel_login_start(builder, OSTREL_LOGIN_EMAIL_RESEND, &Waiter::callback,
                                        &first, e);
            }).errorCode,
            "InvalidArgument");
  ostrel_login_free(builder);
  EXPECT_TRUE(first.get().ok);

  ASSERT_EQ(ostrel_set_user_state_listener(ostrel_, nullptr, nullptr, nullptr), OSTREL_OK);
  // Logins, logouts and the service's refusals alike.
  const auto outcomes = heard.values();
  for (const char* outcome : {"ok", "EMAILLoginWrongPasswordError", "MSISDNLoginWrongPINError"}) {
    EXPECT_NE(std::find(outcomes.begin(), outcomes.end(), outcome), outcomes.end()) << outcome;
  }
}

TEST_F(CApiTest, PushesReachTheCallbackOnceAndTokensRegister) {
  ostrel::test::Recorder<Json> received;
  auto onPush = [](const char* json, void* userData) {
    static_cast<decltype(received)*>(userData)->add(ostrel::parseJson(json).value_or(Json()));
  };
  // Received before any callback: it waits and reaches the callback once set.
  ASSERT_EQ(ostrel_push_process_remote(
                ostrel_, R"({"aps":{"t":"N","alert":"early"},"push_id":"e1"})", 1, nullptr),
            OSTREL_OK);
  ASSERT_EQ(ostrel_push_set_callback(ostrel_, onPush, &received, nullptr), OSTREL_OK);
  EXPECT_EQ(received.values().size(), 1u);
  ASSERT_EQ(ostrel_push_process_remote(ostrel_, R"({"aps":{"t":"N","alert":"now"},"push_id":"n1"})",
                                       0, nullptr),
            OSTREL_OK);
  for (const char* refused : {R"({"aps":{}})", "["}) {
    EXPECT_EQ(answer([&](auto e) {
                return ostrel_push_process_remote(ostrel_, refused, 0, e);
              }).errorCode,
              "PushNotificationError")
        << refused;
  }
  const auto pushes = received.values();
  ASSERT_EQ(pushes.size(), 2u);
  EXPECT_EQ(pushes[0]["body"], "early");
  EXPECT_EQ(pushes[1]["push_id"], "n1");
  ASSERT_EQ(ostrel_push_set_callback(ostrel_, nullptr, nullptr, nullptr), OSTREL_OK);

  EXPECT_EQ(answer([](auto e) { return ostrel_push_set_device_token(ostrel_, "", 0, e); }).code,
            OSTREL_ERROR);
  const unsigned char token[] = {0x00, 0xab, 0xff, 0x10};
  ASSERT_EQ(ostrel_push_set_device_token(ostrel_, token, sizeof token, nullptr), OSTREL_OK);
  EXPECT_TRUE(ostrel::test::eventually([] {
    int registered = 0;
    return ostrel_push_is_registered(ostrel_, &registered, nullptr) == OSTREL_OK && registered;
  }));
  EXPECT_NE(ostrel::dumpJson(service_->emulator().store().pushRegistrations()).find("00abff10"),
            std::string::npos);
}

TEST_F(CApiTest, PaymentsAskOffersAddReceiptsAndTellThePayingState) {
  Waiter offered;
  ASSERT_EQ(ostrel_payment_get_offer(ostrel_, "gold-coins", OSTREL_MARKET_GOOGLE_PLAY,
                                     &Waiter::callback, &offered, nullptr),
            OSTREL_OK);
  const Outcome offer = offered.get();
  ASSERT_TRUE(offer.ok) << offer.errorCode;
  ASSERT_TRUE(offer.result);

  const std::string receipt = storage_->path() + "/receipt.bin";
  std::ofstream(receipt) << "store receipt bytes";
  auto add = [&] {
    Waiter added;
    EXPECT_EQ(ostrel_payment_add_receipt(ostrel_, offer.result->c_str(), receipt.c_str(),
                                         &Waiter::callback, &added, nullptr),
              OSTREL_OK);
    return added.get();
  };
  auto paying = [] {
    Waiter w;
    EXPECT_EQ(ostrel_payment_is_paying(ostrel_, &Waiter::callback, &w, nullptr), OSTREL_OK);
    const Outcome o = w.get();
    EXPECT_TRUE(o.ok) << o.errorCode;
    return ostrel::parseJson(o.result.value_or("")).value_or(Json());
  };
  const Outcome anonymous = add();
  EXPECT_EQ(anonymous.errorCode, "PaymentError");
  EXPECT_NE(anonymous.thread, std::this_thread::get_id());  // refused without the network

  ASSERT_TRUE(
      login(OSTREL_LOGIN_EMAIL, email(EmulatorService::kEmail, EmulatorService::kPassword)).ok);
  EXPECT_EQ(paying(), (Json{{"is_paying", false}}));
  const Outcome added = add();
  EXPECT_TRUE(added.ok) << added.errorCode;
  const Json state = paying();
  EXPECT_EQ(state["is_paying"], true);
  EXPECT_EQ(state["payment"]["item"], *offer.result);
  EXPECT_TRUE(state["payment"]["type_recurrent_extra"].is_object()) << ostrel::dumpJson(state);
  EXPECT_EQ(add().errorCode, "ITEM_ALREADY_PAID");
  logOut();
}

}  // namespace
