#pragma once
// A certificate authority made at start and a server certificate it signs for
// the chosen host names, so that clients verify TLS against a CA they trust.
#include <string>
#include <vector>

namespace ostrel::emulator {

struct Certificates {
  std::string caFile;    // PEM of the CA, for clients to trust
  std::string certFile;  // PEM of the server certificate
  std::string keyFile;   // PEM of the server key
};

// Writes the three files into `dir`. Host names may be wildcards ("*.ostrel.test").
Certificates makeCertificates(const std::string& dir, const std::vector<std::string>& hosts);

}  // namespace ostrel::emulator
