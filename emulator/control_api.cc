#include "emulator/control_api.h"

#include <httplib.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string_view>

#include "core/ostrel_api_endpoint.h"
#include "emulator/emulator.h"
#include "emulator/emulator_page.h"
#include "emulator/reply.h"

namespace ostrel::emulator {
namespace {

// How long the page's request may wait for something new: long enough to be
// cheap, short enough that a page left open notices a stopped emulator.
constexpr std::uint64_t kMaxWaitMs = 30000;
constexpr std::uint64_t kPageEvents = 200;
constexpr std::size_t kPageFaults = 100;
constexpr int kFilterChoices = 100;
constexpr int kMaxFaultCount = 1000000;

// A whole-number query parameter no larger than `max`; `fallback` when absent or not one.
std::uint64_t numberParam(const httplib::Request& req, const char* name, std::uint64_t fallback,
                          std::uint64_t max) {
  if (!req.has_param(name)) return fallback;
  const std::string text = req.get_param_value(name);
  if (text.empty() || text.size() > 18 ||
      !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }))
    return fallback;
  return std::min<std::uint64_t>(std::stoull(text), max);
}

EventFilter filterOf(const httplib::Request& req) {
  return EventFilter{req.get_param_value("event_type"), req.get_param_value("session_id"),
                     req.get_param_value("user_id")};
}

std::string pathOf(const std::string& endpoint) {
  if (auto e = endpointFromName(endpoint)) return std::string(endpointPath(*e));
  return endpoint;
}

}  // namespace

void ControlApi::answer(const httplib::Request& req, httplib::Response& res) {
  static constexpr Route kRoutes[] = {
      {"GET", "/", &ControlApi::page},
      {"GET", "/_emulator/live", &ControlApi::live},
      {"GET", "/_emulator/events", &ControlApi::events},
      {"GET", "/_emulator/users", &ControlApi::users},
      {"GET", "/_emulator/push", &ControlApi::push},
      {"GET", "/_emulator/requests", &ControlApi::requests},
      {"GET", "/_emulator/faults", &ControlApi::faults},
      {"POST", "/_emulator/faults", &ControlApi::addFault},
      {"POST", "/_emulator/reset", &ControlApi::reset},
  };
  if (req.remote_addr != "127.0.0.1" && req.remote_addr != "::1") {
    refuse(res, 403, "FORBIDDEN", "The control API answers on loopback only");
    return;
  }
  auto route = std::find_if(std::begin(kRoutes), std::end(kRoutes), [&](const Route& r) {
    return req.method == r.method && req.path == r.path;
  });
  if (route == std::end(kRoutes)) {
    refuse(res, 404, "NOT_FOUND", "Unknown control path");
    return;
  }
  (this->*route->handle)(req, res);
}

void ControlApi::page(const httplib::Request& req, httplib::Response& res) {
  const EventFilter filter = filterOf(req);
  res.set_content(emulatorPage(emulator_.store().events(kPageEvents, filter), filter),
                  "text/html; charset=utf-8");
}

// Everything the page shows. With "after" (the "change" the page last showed),
// waits up to "wait_ms" for something new first.
void ControlApi::live(const httplib::Request& req, httplib::Response& res) {
  if (req.has_param("after")) {
    emulator_.waitForChange(numberParam(req, "after", 0, UINT64_MAX),
                            std::chrono::milliseconds(numberParam(req, "wait_ms", 0, kMaxWaitMs)));
  }
  // Read first: a change while the rest is gathered is shown by the next call.
  const std::uint64_t change = emulator_.changeCount();
  const EventFilter filter = filterOf(req);
  const double now = nowSecs();
  const auto served = emulator_.servedFaults();
  Json faults = Json::array();
  for (auto it = served.rbegin(); it != served.rend() && faults.size() < kPageFaults; ++it) {
    Json fault = *it;
    fault["request_bytes"] = fault["request"].get<std::string>().size();
    fault.erase("request");
    faults.push_back(std::move(fault));
  }
  const EmulatorStore& store = emulator_.store();
  reply(res, 200,
        Json{{"change", change},
             {"now", now},
             {"received", store.eventCount()},
             {"matching", store.matchingCount(filter)},
             {"events",
              store.events(static_cast<int>(numberParam(req, "limit", kPageEvents, 1000)), filter)},
             {"choices", store.recentValues(kFilterChoices)},
             {"users", store.users()},
             {"faults_served", served.size()},
             {"faults", std::move(faults)},
             {"per_second", emulator_.eventRate().lastSeconds(now)}});
}

void ControlApi::events(const httplib::Request& req, httplib::Response& res) {
  reply(res, 200,
        Json{{"count", emulator_.store().eventCount()},
             {"events", emulator_.store().events(1000, filterOf(req))}});
}

void ControlApi::users(const httplib::Request&, httplib::Response& res) {
  reply(res, 200, Json{{"users", emulator_.store().users()}});
}

void ControlApi::push(const httplib::Request&, httplib::Response& res) {
  reply(res, 200, Json{{"registrations", emulator_.store().pushRegistrations()}});
}

// Newest first, as many as asked (all that are kept by default).
void ControlApi::requests(const httplib::Request& req, httplib::Response& res) {
  const std::uint64_t limit = numberParam(req, "limit", UINT64_MAX, 999999);
  const auto kept = emulator_.requests();
  Json list = Json::array();
  for (auto it = kept.rbegin(); it != kept.rend() && list.size() < limit; ++it) list.push_back(*it);
  reply(res, 200, Json{{"requests", std::move(list)}});
}

void ControlApi::faults(const httplib::Request&, httplib::Response& res) {
  reply(res, 200, Json{{"served", emulator_.servedFaults()}});
}

void ControlApi::addFault(const httplib::Request& req, httplib::Response& res) {
  auto body = parseJson(req.body);
  if (!body || !body->is_object() || !body->contains("endpoint")) {
    refuse(res, 400, "BAD_REQUEST", "A fault needs an endpoint");
    return;
  }
  std::string target;
  Emulator::Fault fault;
  int count = 1;
  try {
    target = pathOf(body->value("endpoint", ""));
    fault = Emulator::Fault{
        body->value("status", 0), body->value("delay_ms", 0), body->value("drop", false),
        body->contains("body") && (*body)["body"].is_string() ? (*body)["body"].get<std::string>()
                                                              : ""};
    count = body->value("count", 1);
  } catch (const Json::exception&) {
    refuse(res, 400, "BAD_REQUEST", "A fault's fields have the wrong types");
    return;
  }
  // A bound, so that a typo in a count cannot exhaust the memory.
  emulator_.injectFault(target, fault, std::clamp(count, 0, kMaxFaultCount));
  reply(res, 200, Json{{"path", target}, {"queued", emulator_.queuedFaults(target)}});
}

void ControlApi::reset(const httplib::Request&, httplib::Response& res) {
  emulator_.reset();
  reply(res, 200, Json{{"reset", true}});
}

}  // namespace ostrel::emulator
