#include "support/emulator_client.h"

#include <httplib.h>

#include <chrono>

#include "platform/defaults.h"
#include "transport/ol_connector.h"

namespace ostrel::test {
namespace {

// Loopback by address: the certificate names the service's hosts, not 127.0.0.1.
httplib::Client clientFor(const emulator::Info& info) {
  httplib::Client client(info.scheme + "://127.0.0.1:" + std::to_string(info.port));
  client.enable_server_certificate_verification(false);
  client.set_read_timeout(60);
  return client;
}

RawReply replyOf(const httplib::Result& res) {
  return res ? RawReply{res->status, res->body} : RawReply{};
}

}  // namespace

RawReply sendSigned(const emulator::Info& info, const std::string& path, const std::string& body,
                    const std::string& version) {
  const std::string host = "client." + info.domain;
  const std::string ts = OLConnector::timestampText(
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count());
  const std::string signature = OLConnector::getImeldStr(
      *platform::makeOpenSslCrypto(), "demo-secret", host + path, "POST", body, "", ts);
  std::string auth = OLConnector::authorizationHeader("demo", std::nullopt, signature, ts);
  const std::string current = "version=\"2.1\"";
  if (auto at = auth.find(current); at != std::string::npos)
    auth.replace(at, current.size(), "version=\"" + version + "\"");
  return replyOf(clientFor(info).Post(path, {{"Host", host}, {"Authorization", auth}}, body,
                                      "application/json"));
}

Json control(const emulator::Info& info, const std::string& path, const std::optional<Json>& post) {
  auto client = clientFor(info);
  auto reply =
      replyOf(post ? client.Post(path, dumpJson(*post), "application/json") : client.Get(path));
  if (reply.status == 0) return Json();
  return parseJson(reply.body).value_or(Json(reply.body));
}

}  // namespace ostrel::test
