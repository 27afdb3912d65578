#include "ostrel/diagnostics.h"

#include <algorithm>
#include <charconv>
#include <memory>

#include "core/ostrel_api_endpoint.h"
#include "events/event_archive.h"
#include "platform/defaults.h"
#include "queue/event_intake.h"
#include "transport/connector_builder.h"
#include "transport/ol_connector.h"

namespace ostrel::diagnostics {

Result<std::string> authorizationHeader(const std::string& secret, const std::string& applicationId,
                                        const std::optional<std::string>& group,
                                        const std::string& url, const std::string& timestamp,
                                        const std::string& body) {
  if (group) {
    if (auto checked = ConnectorBuilder::checkDistributionGroup(*group); !checked) {
      return checked.error();
    }
  }
  const std::string host = urlHost(url);
  if (host.empty()) {
    return OLError::LocalError(LocalErrorCodes::ConnectionValidationError, "Invalid URL",
                               std::nullopt, Json{{"url", url}});
  }
  // A body that is not UTF-8 cannot be sent as text, and the connector signs it as empty.
  const std::string signedBody = isValidUtf8(body) ? body : "";
  // A pure computation: the default crypto signs as any platform's would.
  const auto crypto = platform::makeOpenSslCrypto();
  const std::string signature = OLConnector::getImeldStr(*crypto, secret, host + urlPath(url),
                                                         "POST", signedBody, "", timestamp);
  return OLConnector::authorizationHeader(applicationId, group, signature, timestamp);
}

std::vector<std::string> endpointNames() {
  std::vector<std::string> names;
  for (int i = 0; i < kEndpointCount; ++i) {
    names.emplace_back(endpointName(static_cast<OstrelAPIEndpoint>(i)));
  }
  return names;
}

Result<void> send(const Platform& platform, Request request, ReplyCallback reply) {
  auto endpoint = endpointFromName(request.endpoint);
  if (!endpoint) {
    return OLError::LocalError(LocalErrorCodes::ConnectionValidationError, "Unknown endpoint",
                               std::nullopt, Json{{"endpoint", request.endpoint}});
  }
  if (request.group) {
    if (auto checked = ConnectorBuilder::checkDistributionGroup(*request.group); !checked) {
      return checked.error();
    }
  }
  // The connector lives until its answer: the HTTP client holds the callback.
  auto connector = std::make_shared<OLConnector>(
      request.applicationId, request.secret, false, request.sandbox, request.dev,
      [group = request.group] { return group; }, request.timeoutSecs,
      std::make_shared<const Platform>(platform.completed()));
  connector->send(*endpoint, request.body,
                  [connector, reply = std::move(reply)](std::optional<OLError> error,
                                                        int64_t status, std::optional<Json> body) {
                    reply(std::move(error), status, std::move(body));
                  });
  return {};
}

namespace {

Json describeArchive(const std::string& file, const Result<std::string>& bytes,
                     const platform::Clock& zone) {
  auto event = bytes ? decodeEvent(*bytes) : Result<std::shared_ptr<OLBaseEvent>>(bytes.error());
  return event ? Json{{"file", file}, {"event", (*event)->getEventDictionary(zone)}}
               : Json{{"file", file}, {"error", event.error().description()}};
}

}  // namespace

Json describeQueue(const Platform& given, const std::string& storageRoot) {
  const Platform platform = given.completed();
  const platform::FileSystem& files = *platform.files;
  const std::string root = storageRoot.empty() ? files.storageRoot() : storageRoot;
  const std::string chunks = root + "/EventQueue/Chunks";
  Json out = {{"root", root}, {"chunks", Json::array()}, {"intake", Json::array()}};
  std::vector<int> keys;
  if (auto names = files.listDirectory(chunks)) {
    for (const auto& n : *names) {
      int key = 0;
      auto [end, ec] = std::from_chars(n.data(), n.data() + n.size(), key);
      if (ec == std::errc() && end == n.data() + n.size()) keys.push_back(key);
    }
  }
  std::sort(keys.begin(), keys.end());
  for (int key : keys) {
    const std::string folder = chunks + "/" + std::to_string(key);
    Json events = Json::array();
    auto names = files.listDirectory(folder);
    if (names) std::sort(names->begin(), names->end());
    for (const auto& f : names ? *names : std::vector<std::string>{}) {
      events.push_back(describeArchive(f, files.readFile(folder + "/" + f), *platform.clock));
    }
    out["chunks"].push_back(Json{{"key", key}, {"events", events}});
  }
  // Accepted, on disk, and not yet in a chunk.
  for (const auto& record : EventIntake::pendingRecords(files, root + "/" + EventIntake::kFolder)) {
    out["intake"].push_back(
        describeArchive(record.fileName, Result<std::string>(record.archive), *platform.clock));
  }
  return out;
}

}  // namespace ostrel::diagnostics
