#pragma once
// What the service answers, endpoint by endpoint: one small handler for each
// row of the library's endpoint table. Requests reach it signed and with
// bodies that passed the endpoint's checks.
#include <atomic>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "core/ostrel_api_endpoint.h"
#include "emulator/emulator_store.h"
#include "emulator/event_rate.h"
#include "ostrel/json.h"

namespace httplib {
struct Response;
}  // namespace httplib

namespace ostrel::emulator {

class Service {
 public:
  // What may change while the service runs (through the emulator's setters).
  struct Settings {
    int operatorBounces = 1;  // operator replies before the user is recognised
    std::string operatorPage;
    double autologinLifetime = 0;
    bool mandatoryConfirm = false;
    int maxPinReminders = 3;
  };
  // The operator's host is reached with `scheme`; received events are counted in `rate`.
  Service(EmulatorStore& store, EventRate& rate, Settings settings, std::string scheme);

  // Called on the server's threads, any number at once.
  void answer(OstrelAPIEndpoint endpoint, const Json& body, httplib::Response& res);

  void setOperatorBounces(int bounces);
  void setOperatorPage(std::string bytes);
  void setAutologinLifetime(double secs);
  // Forgets the PIN reminders counted so far.
  void reset();

 private:
  using Handler = void (Service::*)(const Json& body, httplib::Response& res);
  struct Route {
    OstrelAPIEndpoint endpoint;
    Handler handle;
  };
  static const Route& route(OstrelAPIEndpoint endpoint);

  void trackBulk(const Json& body, httplib::Response& res);
  void emailSignup(const Json& body, httplib::Response& res);
  void emailLogin(const Json& body, httplib::Response& res);
  void emailReminder(const Json& body, httplib::Response& res);
  void pinLogin(const Json& body, httplib::Response& res);
  void pinReminder(const Json& body, httplib::Response& res);
  void operatorRecognition(const Json& body, httplib::Response& res);
  void forwardedRecognition(const Json& body, httplib::Response& res);
  void refreshToken(const Json& body, httplib::Response& res);
  void userInfo(const Json& body, httplib::Response& res);
  void userDelete(const Json& body, httplib::Response& res);
  void transientToken(const Json& body, httplib::Response& res);
  void addEmailIdentity(const Json& body, httplib::Response& res);
  void pushRegistration(const Json& body, httplib::Response& res);
  void richPush(const Json& body, httplib::Response& res);
  void offer(const Json& body, httplib::Response& res);
  void addReceipt(const Json& body, httplib::Response& res);
  void payingState(const Json& body, httplib::Response& res);
  void newUserLogin(const Json& body, httplib::Response& res);

  // The operator's answer to the `seen`-th step of a recognition.
  void recognitionStep(int seen, int bounces, httplib::Response& res);
  Json issueTokens(const std::string& userId);
  std::optional<std::string> userOfToken(const std::string& token) const;

  EmulatorStore& store_;
  EventRate& rate_;
  const std::string scheme_;
  std::mutex mutex_;
  Settings settings_;
  std::map<std::string, int> pinReminders_;
  int bounces_ = 0;
  std::atomic<int> counter_{0};
};

}  // namespace ostrel::emulator
