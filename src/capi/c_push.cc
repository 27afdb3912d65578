// Push tokens, payloads and received pushes through the C API.
#include <string>

#include "capi/c_error.h"
#include "capi/c_instance.h"
#include "capi/c_json.h"
#include "capi/c_text.h"
#include "ostrel/ol_push_builder.h"
#include "ostrel/ol_push_manager.h"

using namespace ostrel::capi;

extern "C" {

ostrel_code_t ostrel_push_set_device_token(ostrel_t* instance, const void* token,
                                           size_t token_length, ostrel_error_t** error) {
  return guarded(error, [&] {
    if (!token && token_length > 0) return invalidArgument(error, "token is NULL");
    std::shared_ptr<ostrel::OLPushManager> manager;
    OSTREL_C_CHECK(managerOf(instance, &ostrel::Ostrel::getPushManager, manager, error));
    const std::string bytes =
        token_length > 0 ? std::string(static_cast<const char*>(token), token_length) : "";
    if (auto set = manager->setDeviceToken(bytes); !set) return fail(error, set.error());
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_push_is_registered(ostrel_t* instance, int* registered,
                                        ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needOut(registered, "registered", error));
    std::shared_ptr<ostrel::OLPushManager> manager;
    OSTREL_C_CHECK(managerOf(instance, &ostrel::Ostrel::getPushManager, manager, error));
    *registered = manager->isRegistered() ? 1 : 0;
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_push_parse(const char* payload_json, char** push_json,
                                ostrel_error_t** error) {
  return guarded(error, [&] {
    if (push_json) *push_json = nullptr;
    OSTREL_C_CHECK(needOut(push_json, "push_json", error));
    std::string payload;
    OSTREL_C_CHECK(readText(payload_json, "payload_json", payload, error));
    auto push = ostrel::OLPushBuilder::buildPushObject(std::string_view(payload), false);
    if (!push) return fail(error, push.error());
    *push_json = copyOut(ostrel::dumpJson(pushJson(**push)));
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_push_process_remote(ostrel_t* instance, const char* payload_json,
                                         int app_is_background, ostrel_error_t** error) {
  return guarded(error, [&] {
    std::shared_ptr<ostrel::OLPushManager> manager;
    OSTREL_C_CHECK(managerOf(instance, &ostrel::Ostrel::getPushManager, manager, error));
    std::string payload;
    OSTREL_C_CHECK(readText(payload_json, "payload_json", payload, error));
    auto parsed = ostrel::parseJson(payload);
    if (!parsed) {
      // Not JSON at all: the library's own refusal of such a payload.
      auto refused = ostrel::OLPushBuilder::buildPushObject(std::string_view(payload), false);
      if (!refused) return fail(error, refused.error());
      return invalidArgument(error, "payload_json is not JSON");
    }
    if (auto done = manager->processRemoteNotification(*parsed, app_is_background != 0); !done) {
      return fail(error, done.error());
    }
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_push_set_callback(ostrel_t* instance, ostrel_push_fn callback, void* user_data,
                                       ostrel_error_t** error) {
  return guarded(error, [&] {
    std::shared_ptr<ostrel::OLPushManager> manager;
    OSTREL_C_CHECK(managerOf(instance, &ostrel::Ostrel::getPushManager, manager, error));
    if (!callback) {
      manager->setPushCallback(nullptr);
      return OSTREL_OK;
    }
    manager->setPushCallback([callback, user_data](std::shared_ptr<ostrel::OLPushBase> push) {
      if (!push) return;
      std::string text;
      try {
        text = ostrel::dumpJson(pushJson(*push));
      } catch (...) {
        return;  // memory ran out: nothing sensible to hand over
      }
      callback(text.c_str(), user_data);
    });
    return OSTREL_OK;
  });
}

}  // extern "C"
