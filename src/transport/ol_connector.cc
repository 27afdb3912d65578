#include "transport/ol_connector.h"

#include <utf8proc.h>

#include <cstdio>

#include "platform/fatal.h"
#include "transport/hash.h"

namespace ostrel {

OLConnector::OLConnector(std::string identifier, std::string secret, bool isDebug, bool isSandbox,
                         bool isDev,
                         std::function<std::optional<std::string>()> getDistributionGroup,
                         double timeoutInterval, PlatformRef platform)
    : identifier_(std::move(identifier)),
      secret_(std::move(secret)),
      isDebug_(isDebug),
      isSandbox_(isSandbox),
      isDev_(isDev),
      getDistributionGroup_(std::move(getDistributionGroup)),
      timeoutInterval_(timeoutInterval),
      platform_(std::move(platform)) {}

void OLConnector::send(OstrelAPIEndpoint endpoint, const std::optional<Json>& object,
                       ConnectorCallback callback) const {
  platform::HttpRequest request;
  request.url = getEndpoint(endpoint, isDebug_, isSandbox_, isDev_, platform_->deployment);
  request.method = "POST";
  request.timeoutSecs = timeoutInterval_;
  // No session or cache is kept between requests; every request says what it accepts.
  request.headers = {{"Accept", "application/json"}, {"Content-Type", "application/json"}};

  // A body goes again, after a redirect, only to the service's own hosts; the
  // operator recognition is answered from outside the domain by design.
  request.bodyDomain = platform_->deployment.domain;
  request.bodyMayLeaveDomain = endpoint == OstrelAPIEndpoint::MSISDNUR;

  auto body = getValidatedInputBody(endpoint, object);
  if (!body) {
    // Answered where every other answer comes, so the caller is never re-entered.
    platform_->http->dispatch([callback = std::move(callback), error = body.error()] {
      callback(error, 0, std::nullopt);
    });
    return;
  }
  if (!addHeadersToRequest(request, std::nullopt, dumpJson(*body))) {
    // Not sent: an unsigned request would be refused for good, and its
    // events dropped with it.
    platform_->http->dispatch([callback = std::move(callback)] {
      callback(OLError::LocalError(LocalErrorCodes::ConnectionError, "Cannot sign the request"), 0,
               std::nullopt);
    });
    return;
  }
  performRequest(std::move(request),
                 [callback = std::move(callback)](std::optional<OLError> error, int64_t status,
                                                  std::optional<Json> reply) {
                   if (error) {
                     callback(std::move(error), status, std::move(reply));
                     return;
                   }
                   auto [parsedError, result] = parseUnified(status, reply);
                   if (parsedError) {
                     callback(std::move(parsedError), status, std::move(reply));
                     return;
                   }
                   callback(std::nullopt, status, std::move(result));
                 });
}

std::string OLConnector::timestampText(double secondsSince1970) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.0lf", secondsSince1970);
  return buf;
}

bool OLConnector::addHeadersToRequest(platform::HttpRequest& request,
                                      const std::optional<std::string>& query,
                                      const std::optional<std::string>& body) const {
  const std::string timestamp = timestampText(platform_->clock->now());
  std::string bodyString;
  if (body) {
    request.body = *body;
    if (isValidUtf8(*body)) bodyString = *body;
  } else {
    request.body.clear();
  }
  request.headers.emplace_back("Content-Length", std::to_string(body ? body->size() : 0));

  const std::string host = urlHost(request.url);
  if (request.url.empty() || host.empty() || request.method.empty()) {
    fatal("A request needs a URL, a host and a method");
  }
  const std::string endpoint = host + urlPath(request.url);
  const std::string signature = getImeldStr(*platform_->crypto, secret_, endpoint, request.method,
                                            bodyString, query.value_or(""), timestamp);
  if (signature.empty()) return false;
  const auto group = getDistributionGroup_ ? getDistributionGroup_() : std::nullopt;
  request.headers.emplace_back("Authorization",
                               authorizationHeader(identifier_, group, signature, timestamp));
  return true;
}

std::string OLConnector::getImeldStr(const platform::Crypto& crypto, std::string_view secret,
                                     std::string_view endpoint, std::string_view httpMethod,
                                     std::string_view bodyString, std::string_view queryString,
                                     std::string_view timestamp) {
  std::string message;
  message.reserve(endpoint.size() + httpMethod.size() + bodyString.size() + queryString.size() +
                  timestamp.size() + 4);
  message.append(endpoint).append("|").append(httpMethod).append("|").append(bodyString);
  message.append("|").append(queryString).append("|").append(timestamp);
  return hmacHex(crypto, CryptoAlgorithm::SHA1, secret, message);
}

std::string OLConnector::authorizationHeader(std::string_view applicationId,
                                             const std::optional<std::string>& group,
                                             std::string_view signature,
                                             std::string_view timestamp) {
  std::string header = "iMeld application_id=\"";
  header.append(applicationId).append("\", platform=\"iOS\", ");
  // The service expects " , " after the group: keep the blank before the comma.
  if (group) header.append("group=\"").append(*group).append("\" , ");
  header.append("signature=\"").append(signature).append("\", version=\"2.1\", timestamp=\"");
  header.append(timestamp).append("\"");
  return header;
}

void OLConnector::performRequest(platform::HttpRequest request, ConnectorCallback callback) const {
  logLine(*platform_, "Contacting " + request.url);
  // The platform travels with the reply: the connector may be gone by then.
  platform_->http->send(
      std::move(request), [platform = platform_, callback = std::move(callback)](
                              std::optional<PlatformError> error, platform::HttpResponse response) {
        logLine(*platform, "Parsing response from " + urlHost(response.finalUrl));
        parseResponse(error, response, platform->deployment.domain, *platform->log, callback);
      });
}

std::optional<Json> OLConnector::decodeBody(const std::string& bytes) {
  if (bytes.empty()) return std::nullopt;
  if (auto parsed = parseJson(bytes); parsed && parsed->is_object()) return std::move(*parsed);
  if (isValidUtf8(bytes)) return Json{{"__parsed_string__", bytes}};
  return Json{{"__parsed_hex__", hexString(bytes)}};
}

void OLConnector::parseResponse(const std::optional<PlatformError>& error,
                                const platform::HttpResponse& response, const std::string& domain,
                                platform::LogSink& log, const ConnectorCallback& callback) {
  if (error) {
    callback(OLError::LocalError(LocalErrorCodes::ConnectionError,
                                 "Error on Ostrel Server Response", *error),
             0, std::nullopt);
    return;
  }
  const auto status = static_cast<int64_t>(response.status);
  std::optional<Json> dictionary = decodeBody(response.body);
  const std::string host = urlHost(response.finalUrl);
  const std::string suffix = "." + domain;
  if (host.empty() || (host.size() > suffix.size() && host.ends_with(suffix))) {
    callback(std::nullopt, status, std::move(dictionary));
    return;
  }
  log.write("Connection came from URL " + response.finalUrl);
  // The reply of somebody else (the mobile operator) is kept as it came, byte
  // for byte: the login flow forwards it to the service unchanged.
  Json details = {{"response", Json::binary(Json::binary_t::container_type(response.body.begin(),
                                                                           response.body.end()))},
                  {"statusCode", status}};
  callback(OLError::LocalError(LocalErrorCodes::ConnectionDomainWarning,
                               "Response is not coming from " + domain + " domain", std::nullopt,
                               std::move(details)),
           status, std::move(dictionary));
}

std::string urlHost(std::string_view url) {
  auto scheme = url.find("://");
  if (scheme == std::string_view::npos) return "";
  std::string_view rest = url.substr(scheme + 3);
  rest = rest.substr(0, rest.find_first_of("/?#"));
  if (auto at = rest.rfind('@'); at != std::string_view::npos) rest = rest.substr(at + 1);
  if (!rest.empty() && rest.front() == '[') {
    auto close = rest.find(']');
    return std::string(rest.substr(1, close == std::string_view::npos ? rest.npos : close - 1));
  }
  return std::string(rest.substr(0, rest.find(':')));
}

std::string urlPath(std::string_view url) {
  auto scheme = url.find("://");
  std::string_view rest = scheme == std::string_view::npos ? url : url.substr(scheme + 3);
  auto slash = rest.find('/');
  if (slash == std::string_view::npos) return "/";
  std::string_view path = rest.substr(slash);
  path = path.substr(0, path.find_first_of("?#"));
  return std::string(path);
}

bool isValidUtf8(std::string_view bytes) {
  auto* p = reinterpret_cast<const utf8proc_uint8_t*>(bytes.data());
  auto left = static_cast<utf8proc_ssize_t>(bytes.size());
  while (left > 0) {
    utf8proc_int32_t cp;
    utf8proc_ssize_t n = utf8proc_iterate(p, left, &cp);
    if (n <= 0) return false;
    p += n;
    left -= n;
  }
  return true;
}

}  // namespace ostrel
