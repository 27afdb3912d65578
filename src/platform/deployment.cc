#include "ostrel/platform/deployment.h"

#include <arpa/inet.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cstdio>
#include <string_view>

#include "platform/defaults.h"

namespace ostrel {
namespace {

OLError refused(std::string message, const std::string& value) {
  return OLError::LocalError(LocalErrorCodes::OstrelInitializationError, std::move(message),
                             std::nullopt, Json{{"value", value}});
}

bool isDigits(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

bool isHostName(std::string_view host) {
  if (host.empty() || host.size() > 253) return false;
  std::size_t start = 0;
  while (start <= host.size()) {
    std::size_t dot = host.find('.', start);
    if (dot == std::string_view::npos) dot = host.size();
    std::string_view label = host.substr(start, dot - start);
    if (label.empty() || label.size() > 63 || label.front() == '-' || label.back() == '-')
      return false;
    for (char c : label) {
      const bool alnum = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
      if (!alnum && c != '-') return false;
    }
    start = dot + 1;
  }
  return true;
}

bool isConnectTarget(std::string_view target) {
  const auto colon = target.rfind(':');
  if (colon == std::string_view::npos) return false;
  const std::string_view address = target.substr(0, colon);
  const std::string_view port = target.substr(colon + 1);
  if (!isDigits(port) || port.size() > 5 || std::stoi(std::string(port)) < 1 ||
      std::stoi(std::string(port)) > 65535)
    return false;
  unsigned char buf[16];
  if (address.size() > 2 && address.front() == '[' && address.back() == ']') {
    const std::string inner(address.substr(1, address.size() - 2));
    return ::inet_pton(AF_INET6, inner.c_str(), buf) == 1;
  }
  const std::string plain(address);
  return ::inet_pton(AF_INET, plain.c_str(), buf) == 1 || isHostName(address);
}

int countPemCertificates(const std::string& path) {
  // Often the process's first use of OpenSSL: it must come after the
  // library's own initialisation, or OpenSSL's exit handler comes back.
  platform::initTlsLibrary();
  FILE* f = std::fopen(path.c_str(), "r");
  if (f == nullptr) return -1;
  int count = 0;
  while (X509* cert = PEM_read_X509(f, nullptr, nullptr, nullptr)) {
    X509_free(cert);
    ++count;
  }
  std::fclose(f);
  return count;
}

}  // namespace

Result<void> Deployment::validate() const {
  if (scheme != "https" && scheme != "http") {
    return refused("The service's scheme must be https or http", scheme);
  }
  if (!isHostName(domain)) {
    return refused("The service's domain is not a host name", domain);
  }
  for (const auto& label : {clientApiLabel, authApiLabel}) {
    for (const auto& host :
         {label, label + sandboxMarker, label + devMarker, label + sandboxMarker + devMarker}) {
      if (!isHostName(host + "." + domain)) {
        return refused("The service's host labels do not form a host name", host + "." + domain);
      }
    }
  }
  return {};
}

Result<void> NetworkOverrides::validate() const {
  if (connectTo && !isConnectTarget(*connectTo)) {
    return refused("The connect-to override is not ADDRESS:PORT", *connectTo);
  }
  if (caFile) {
    const int certificates = countPemCertificates(*caFile);
    if (certificates < 0) return refused("The CA file cannot be read", *caFile);
    if (certificates == 0) return refused("The CA file holds no PEM certificate", *caFile);
  }
  return {};
}

}  // namespace ostrel
