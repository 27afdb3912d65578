#pragma once
// The one way to reach the service: builds, signs and sends a request, decodes
// the answer and checks that it came from the service's domain.
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "core/ostrel_api_endpoint.h"
#include "ostrel/json.h"
#include "ostrel/ol_error.h"
#include "ostrel/platform/deployment.h"
#include "ostrel/platform/http_client.h"
#include "platform/platform_ref.h"

namespace ostrel {

// (error, HTTP status (0 without an answer), decoded reply). Runs on the HTTP
// client's network thread, also when the body was refused before sending.
using ConnectorCallback = std::function<void(std::optional<OLError>, int64_t, std::optional<Json>)>;

class OLConnector {
 public:
  OLConnector(std::string identifier, std::string secret, bool isDebug, bool isSandbox, bool isDev,
              std::function<std::optional<std::string>()> getDistributionGroup,
              double timeoutInterval, PlatformRef platform);

  void send(OstrelAPIEndpoint endpoint, const std::optional<Json>& object,
            ConnectorCallback callback) const;

  // Sets the body, Content-Length and the signed Authorization header; false
  // when the request cannot be signed (the process is exiting).
  [[nodiscard]] bool addHeadersToRequest(platform::HttpRequest& request,
                                         const std::optional<std::string>& query,
                                         const std::optional<std::string>& body) const;

  // The request signature: HMAC-SHA1 over endpoint|method|body|query|timestamp, in hex.
  static std::string getImeldStr(const platform::Crypto& crypto, std::string_view secret,
                                 std::string_view endpoint, std::string_view httpMethod,
                                 std::string_view bodyString, std::string_view queryString,
                                 std::string_view timestamp);

  // The Authorization header value for these parts.
  static std::string authorizationHeader(std::string_view applicationId,
                                         const std::optional<std::string>& group,
                                         std::string_view signature, std::string_view timestamp);

  // Whole seconds since 1970, rounded, as the header carries them.
  static std::string timestampText(double secondsSince1970);

  void performRequest(platform::HttpRequest request, ConnectorCallback callback) const;

  // Decodes a finished exchange: transport error, JSON or text or hex body, domain check.
  static void parseResponse(const std::optional<PlatformError>& error,
                            const platform::HttpResponse& response, const std::string& domain,
                            platform::LogSink& log, const ConnectorCallback& callback);

  // The reply body as the library sees it: a JSON dictionary, else
  // {"__parsed_string__": text}, else {"__parsed_hex__": hex}; nothing when empty.
  static std::optional<Json> decodeBody(const std::string& bytes);

  const std::string& identifier() const { return identifier_; }
  double timeoutInterval() const { return timeoutInterval_; }
  const Platform& platform() const { return *platform_; }

 private:
  std::string identifier_;
  std::string secret_;
  bool isDebug_;
  bool isSandbox_;
  bool isDev_;
  std::function<std::optional<std::string>()> getDistributionGroup_;
  double timeoutInterval_;
  PlatformRef platform_;
};

// The host of a URL ("" when it has none).
std::string urlHost(std::string_view url);
// The path of a URL, without query ("/" when empty).
std::string urlPath(std::string_view url);
bool isValidUtf8(std::string_view bytes);

}  // namespace ostrel
