#pragma once
// A throw-away certificate authority and a server certificate for chosen host
// names, made with OpenSSL when a test starts (nothing is committed).
#include <string>
#include <vector>

namespace ostrel::test {

struct TestCertificates {
  std::string caFile;    // PEM of the CA, for clients to trust
  std::string certFile;  // PEM of the server certificate
  std::string keyFile;   // PEM of the server key
};

// Writes the three files into `dir`. Host names may be wildcards ("*.ostrel.test").
TestCertificates makeTestCertificates(const std::string& dir,
                                      const std::vector<std::string>& hosts);

}  // namespace ostrel::test
