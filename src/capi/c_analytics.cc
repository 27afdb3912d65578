// The analytics calls of the C API.
#include <optional>
#include <string>

#include "capi/c_callbacks.h"
#include "capi/c_error.h"
#include "capi/c_instance.h"
#include "capi/c_text.h"
#include "ostrel/event_types.h"

using namespace ostrel::capi;

namespace {

using NamedCall = ostrel::Result<void> (ostrel::Ostrel::*)(const std::string&,
                                                           std::shared_ptr<ostrel::OLSimpleObject>);

// Every event call that takes a name (or reason) and optional custom data.
ostrel_code_t namedEvent(ostrel_t* instance, const char* name, const char* what,
                         const char* customDataJson, NamedCall call, ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needInstance(instance, error));
    std::string text;
    OSTREL_C_CHECK(readText(name, what, text, error));
    std::shared_ptr<ostrel::OLSimpleObject> data;
    OSTREL_C_CHECK(readCustomData(customDataJson, "custom_data_json", data, error));
    if (auto done = ((*instance->facade).*call)(text, std::move(data)); !done) {
      return fail(error, done.error());
    }
    return OSTREL_OK;
  });
}

ostrel_code_t answerFlag(const ostrel::Result<bool>& answer, int* out, ostrel_error_t** error) {
  if (!answer) return fail(error, answer.error());
  *out = *answer ? 1 : 0;
  return OSTREL_OK;
}

}  // namespace

extern "C" {

ostrel_code_t ostrel_send_event(ostrel_t* instance, const char* name, const char* custom_data_json,
                                ostrel_error_t** error) {
  return namedEvent(instance, name, "name", custom_data_json, &ostrel::Ostrel::sendEvent, error);
}

ostrel_code_t ostrel_timed_event_start(ostrel_t* instance, const char* name,
                                       const char* custom_data_json, ostrel_error_t** error) {
  return namedEvent(instance, name, "name", custom_data_json, &ostrel::Ostrel::timedEventStart,
                    error);
}

ostrel_code_t ostrel_timed_event_stop(ostrel_t* instance, const char* name,
                                      const char* custom_data_json, ostrel_error_t** error) {
  return namedEvent(instance, name, "name", custom_data_json, &ostrel::Ostrel::timedEventStop,
                    error);
}

ostrel_code_t ostrel_is_timed_event_running(ostrel_t* instance, const char* name, int* running,
                                            ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needInstance(instance, error));
    OSTREL_C_CHECK(needOut(running, "running", error));
    std::string text;
    OSTREL_C_CHECK(readText(name, "name", text, error));
    return answerFlag(instance->facade->isTimedEventRunning(text), running, error);
  });
}

ostrel_code_t ostrel_flow_begin(ostrel_t* instance, const char* name, const char* custom_data_json,
                                ostrel_error_t** error) {
  return namedEvent(instance, name, "name", custom_data_json, &ostrel::Ostrel::flowBegin, error);
}

ostrel_code_t ostrel_flow_step(ostrel_t* instance, const char* name, const char* custom_data_json,
                               ostrel_error_t** error) {
  return namedEvent(instance, name, "name", custom_data_json, &ostrel::Ostrel::flowStep, error);
}

ostrel_code_t ostrel_flow_succeed(ostrel_t* instance, const char* reason,
                                  const char* custom_data_json, ostrel_error_t** error) {
  return namedEvent(instance, reason, "reason", custom_data_json, &ostrel::Ostrel::flowSucceed,
                    error);
}

ostrel_code_t ostrel_flow_fail(ostrel_t* instance, const char* reason, const char* custom_data_json,
                               ostrel_error_t** error) {
  return namedEvent(instance, reason, "reason", custom_data_json, &ostrel::Ostrel::flowFail, error);
}

ostrel_code_t ostrel_flow_cancel(ostrel_t* instance, const char* reason,
                                 const char* custom_data_json, ostrel_error_t** error) {
  return namedEvent(instance, reason, "reason", custom_data_json, &ostrel::Ostrel::flowCancel,
                    error);
}

ostrel_code_t ostrel_is_flow_begun(ostrel_t* instance, int* begun, ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needInstance(instance, error));
    OSTREL_C_CHECK(needOut(begun, "begun", error));
    return answerFlag(instance->facade->isAnalyticFlowBegun(), begun, error);
  });
}

ostrel_code_t ostrel_get_current_flow_name(ostrel_t* instance, char** name,
                                           ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needInstance(instance, error));
    OSTREL_C_CHECK(needOut(name, "name", error));
    auto current = instance->facade->getCurrentAnalyticFlowName();
    if (!current) return fail(error, current.error());
    *name = copyOut(*current);
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_rank_content(ostrel_t* instance, const char* content_id,
                                  ostrel_ranking_scope_t scope, float multiplier,
                                  ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needInstance(instance, error));
    std::string id;
    OSTREL_C_CHECK(readText(content_id, "content_id", id, error));
    std::optional<ostrel::_RankingScope> s;
    switch (scope) {
      case OSTREL_RANKING_CONSUMPTION:
        s = ostrel::_RankingScope::consumption;
        break;
      case OSTREL_RANKING_SOCIAL:
        s = ostrel::_RankingScope::social;
        break;
      case OSTREL_RANKING_EDITORIAL:
        s = ostrel::_RankingScope::editorial;
        break;
      case OSTREL_RANKING_UNKNOWN:
        s = ostrel::_RankingScope::unknown;
        break;
      default:
        break;  // refused below
    }
    if (!s) return invalidArgument(error, "scope is not an ostrel_ranking_scope_t");
    auto ranked = instance->facade->rankContent(id, ostrel::RankingScope(*s), multiplier);
    if (!ranked) return fail(error, ranked.error());
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_attach_session(ostrel_t* instance, const char* attached_session_id,
                                    const char* attached_user_id, ostrel_attach_type_t attach_type,
                                    const char* custom_data_json, ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needInstance(instance, error));
    std::string session;
    std::optional<std::string> user;
    std::shared_ptr<ostrel::OLSimpleObject> data;
    OSTREL_C_CHECK(readText(attached_session_id, "attached_session_id", session, error));
    OSTREL_C_CHECK(readOptionalText(attached_user_id, "attached_user_id", user, error));
    OSTREL_C_CHECK(readCustomData(custom_data_json, "custom_data_json", data, error));
    std::optional<ostrel::AttachType> type;
    switch (attach_type) {
      case OSTREL_ATTACH_MASTER:
        type = ostrel::AttachType::master;
        break;
      case OSTREL_ATTACH_PEER:
        type = ostrel::AttachType::peer;
        break;
      case OSTREL_ATTACH_UNKNOWN:
        type = ostrel::AttachType::unknown;
        break;
      default:
        break;  // refused below
    }
    if (!type) return invalidArgument(error, "attach_type is not an ostrel_attach_type_t");
    auto attached = instance->facade->attachSession(session, user, *type, std::move(data));
    if (!attached) return fail(error, attached.error());
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_attach_master_session(ostrel_t* instance, const char* master_session_id,
                                           const char* master_user_id, const char* custom_data_json,
                                           ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needInstance(instance, error));
    std::string session, user;
    std::shared_ptr<ostrel::OLSimpleObject> data;
    OSTREL_C_CHECK(readText(master_session_id, "master_session_id", session, error));
    OSTREL_C_CHECK(readText(master_user_id, "master_user_id", user, error));
    OSTREL_C_CHECK(readCustomData(custom_data_json, "custom_data_json", data, error));
    auto attached = instance->facade->attachMasterSession(session, user, std::move(data));
    if (!attached) return fail(error, attached.error());
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_flush(ostrel_t* instance, ostrel_result_fn callback, void* user_data,
                           ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needInstance(instance, error));
    instance->facade->flushEvents(jsonCallback(callback, user_data));
    return OSTREL_OK;
  });
}

}  // extern "C"
