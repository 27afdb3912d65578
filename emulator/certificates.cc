#include "emulator/certificates.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <stdexcept>

namespace ostrel::emulator {
namespace {

EVP_PKEY* makeKey() {
  return EVP_EC_gen("P-256");
}

void addExtension(X509* cert, X509* issuer, int nid, const std::string& value) {
  X509V3_CTX ctx;
  X509V3_set_ctx_nodb(&ctx);
  X509V3_set_ctx(&ctx, issuer, cert, nullptr, nullptr, 0);
  X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value.c_str());
  if (ext == nullptr) throw std::runtime_error("bad certificate extension");
  X509_add_ext(cert, ext, -1);
  X509_EXTENSION_free(ext);
}

X509* makeCert(EVP_PKEY* key, const std::string& cn, X509* issuer, EVP_PKEY* issuerKey,
               long serial) {
  X509* cert = X509_new();
  X509_set_version(cert, 2);
  ASN1_INTEGER_set(X509_get_serialNumber(cert), serial);
  X509_gmtime_adj(X509_getm_notBefore(cert), -3600);
  X509_gmtime_adj(X509_getm_notAfter(cert), 7L * 24 * 3600);
  X509_set_pubkey(cert, key);
  X509_NAME* name = X509_get_subject_name(cert);
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>(cn.c_str()), -1, -1, 0);
  X509_set_issuer_name(cert, issuer ? X509_get_subject_name(issuer) : name);
  (void)issuerKey;
  return cert;
}

void writePem(const std::string& path, X509* cert, EVP_PKEY* key) {
  FILE* f = std::fopen(path.c_str(), "w");
  if (f == nullptr) throw std::runtime_error("cannot write " + path);
  if (cert) PEM_write_X509(f, cert);
  if (key) PEM_write_PrivateKey(f, key, nullptr, nullptr, 0, nullptr, nullptr);
  std::fclose(f);
}

}  // namespace

Certificates makeCertificates(const std::string& dir, const std::vector<std::string>& hosts) {
  EVP_PKEY* caKey = makeKey();
  X509* ca = makeCert(caKey, "Ostrel Emulator CA", nullptr, nullptr, 1);
  addExtension(ca, ca, NID_basic_constraints, "critical,CA:TRUE");
  addExtension(ca, ca, NID_key_usage, "critical,keyCertSign,cRLSign");
  addExtension(ca, ca, NID_subject_key_identifier, "hash");
  X509_sign(ca, caKey, EVP_sha256());

  EVP_PKEY* key = makeKey();
  X509* cert = makeCert(key, hosts.empty() ? "localhost" : hosts.front(), ca, caKey, 2);
  std::string san;
  for (const auto& h : hosts) san += (san.empty() ? "DNS:" : ",DNS:") + h;
  san += ",IP:127.0.0.1";
  addExtension(cert, ca, NID_subject_alt_name, san);
  addExtension(cert, ca, NID_basic_constraints, "CA:FALSE");
  addExtension(cert, ca, NID_ext_key_usage, "serverAuth");
  addExtension(cert, ca, NID_authority_key_identifier, "keyid:always");
  X509_sign(cert, caKey, EVP_sha256());

  Certificates out{dir + "/ca.pem", dir + "/server.pem", dir + "/server-key.pem"};
  writePem(out.caFile, ca, nullptr);
  writePem(out.certFile, cert, nullptr);
  writePem(out.keyFile, nullptr, key);
  X509_free(cert);
  X509_free(ca);
  EVP_PKEY_free(key);
  EVP_PKEY_free(caKey);
  return out;
}

}  // namespace ostrel::emulator
