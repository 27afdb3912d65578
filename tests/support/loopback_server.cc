#include "support/loopback_server.h"

#include <chrono>

#include "platform/defaults.h"

namespace ostrel::test {

std::string ReceivedRequest::header(const std::string& name) const {
  auto it = headers.find(name);
  return it == headers.end() ? "" : it->second;
}

LoopbackServer::LoopbackServer(bool https, std::vector<std::string> hosts) {
  if (https) {
    certs_ = emulator::makeCertificates(dir_.path(), hosts);
    server_ = std::make_unique<httplib::SSLServer>(certs_.certFile.c_str(), certs_.keyFile.c_str());
  } else {
    server_ = std::make_unique<httplib::Server>();
  }
  handler_ = [](const httplib::Request&, httplib::Response& res) {
    res.set_content("{\"ok\":true}", "application/json");
  };
  auto record = [this](const httplib::Request& req, httplib::Response& res) {
    Handler handler;
    {
      std::lock_guard lock(mutex_);
      received_.push_back(ReceivedRequest{req.method, req.get_header_value("Host"), req.path,
                                          req.body, req.headers});
      handler = handler_;
    }
    handler(req, res);
  };
  server_->Post(".*", record);
  server_->Get(".*", record);
  // Short keep-alive, so that stopping never waits long for an idle client connection.
  server_->set_keep_alive_timeout(1);
  port_ = server_->bind_to_any_port("127.0.0.1");
  thread_ = std::thread([this] { server_->listen_after_bind(); });
  // stop() only takes effect once the server runs.
  while (!server_->is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

LoopbackServer::~LoopbackServer() {
  server_->stop();
  if (thread_.joinable()) thread_.join();
}

void LoopbackServer::setHandler(Handler handler) {
  std::lock_guard lock(mutex_);
  handler_ = std::move(handler);
}

std::vector<ReceivedRequest> LoopbackServer::received() const {
  std::lock_guard lock(mutex_);
  return received_;
}

Platform LoopbackServer::platformFor(const TestPlatform& base) const {
  Platform p = base.platform();
  p.deployment.domain = "ostrel.test";
  p.deployment.scheme = certs_.caFile.empty() ? "http" : "https";
  NetworkOverrides overrides;
  overrides.connectTo = connectTo();
  if (!certs_.caFile.empty()) overrides.caFile = certs_.caFile;
  p.http = platform::makeCurlHttpClient(overrides);
  return p;
}

}  // namespace ostrel::test
