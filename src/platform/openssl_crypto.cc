#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <limits>
#include <random>
#include <thread>

#include "platform/defaults.h"
#include "platform/fatal.h"
#include "platform/process_exit.h"

namespace ostrel {

std::size_t digestLength(CryptoAlgorithm algorithm) {
  switch (algorithm) {
    case CryptoAlgorithm::MD5:
      return 16;
    case CryptoAlgorithm::SHA1:
      return 20;
    case CryptoAlgorithm::SHA224:
      return 28;
    case CryptoAlgorithm::SHA256:
      return 32;
    case CryptoAlgorithm::SHA384:
      return 48;
    case CryptoAlgorithm::SHA512:
      return 64;
  }
  return 0;
}

std::string hexString(std::string_view bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string out;
  out.resize(bytes.size() * 2);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    auto b = static_cast<unsigned char>(bytes[i]);
    out[2 * i] = kDigits[b >> 4];
    out[2 * i + 1] = kDigits[b & 0xF];
  }
  return out;
}

namespace platform {
namespace {

const EVP_MD* evpFor(CryptoAlgorithm algorithm) {
  switch (algorithm) {
    case CryptoAlgorithm::MD5:
      return EVP_md5();
    case CryptoAlgorithm::SHA1:
      return EVP_sha1();
    case CryptoAlgorithm::SHA224:
      return EVP_sha224();
    case CryptoAlgorithm::SHA256:
      return EVP_sha256();
    case CryptoAlgorithm::SHA384:
      return EVP_sha384();
    case CryptoAlgorithm::SHA512:
      return EVP_sha512();
  }
  return EVP_sha1();
}

// A host that used OpenSSL (or libcurl) before the library made OpenSSL
// register its exit handler, which frees OpenSSL's state while the library's
// threads may still sign a request. The library's own exit hook runs before
// that handler and closes this gate: the calls under way end, later ones are
// not made.
struct ExitGate {
  std::atomic<int> inside{0};
  std::atomic<bool> closed{false};
};

ExitGate& exitGate() {
  static auto* gate = new ExitGate();  // used by threads still running at exit
  return *gate;
}

class GatePass {
 public:
  GatePass() : gate_(exitGate()) {
    gate_.inside.fetch_add(1);
    admitted_ = !gate_.closed.load();
  }
  ~GatePass() { gate_.inside.fetch_sub(1); }
  GatePass(const GatePass&) = delete;
  GatePass& operator=(const GatePass&) = delete;
  bool admitted() const { return admitted_; }

 private:
  ExitGate& gate_;
  bool admitted_;
};

void closeExitGate() {
  auto& gate = exitGate();
  gate.closed.store(true);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
  while (gate.inside.load() > 0 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
}

class OpenSslCrypto final : public Crypto {
 public:
  std::string hmac(CryptoAlgorithm algorithm, std::string_view key,
                   std::string_view message) const override {
    GatePass pass;
    if (!pass.admitted()) return {};  // the process is exiting: nothing is signed any more
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    // HMAC() wants a non-null key pointer even for an empty key.
    static const unsigned char kEmpty = 0;
    const void* keyData = key.empty() ? &kEmpty : static_cast<const void*>(key.data());
    if (HMAC(evpFor(algorithm), keyData, static_cast<int>(key.size()),
             reinterpret_cast<const unsigned char*>(message.data()), message.size(), out,
             &len) == nullptr) {
      fatal("HMAC computation failed");
    }
    return std::string(reinterpret_cast<char*>(out), len);
  }

  std::string sha1(std::string_view data) const override {
    unsigned char out[SHA_DIGEST_LENGTH];
    SHA1(reinterpret_cast<const unsigned char*>(data.data()), data.size(), out);
    return std::string(reinterpret_cast<char*>(out), sizeof out);
  }

  std::string base64Encode(std::string_view data) const override {
    std::string out(4 * ((data.size() + 2) / 3) + 1, '\0');
    int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                            reinterpret_cast<const unsigned char*>(data.data()),
                            static_cast<int>(data.size()));
    out.resize(static_cast<std::size_t>(n));
    return out;
  }

  std::optional<std::string> base64Decode(std::string_view text) const override {
    if (text.size() % 4 != 0) return std::nullopt;
    if (text.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
      return std::nullopt;
    std::string out(3 * text.size() / 4 + 1, '\0');
    int n = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                            reinterpret_cast<const unsigned char*>(text.data()),
                            static_cast<int>(text.size()));
    if (n < 0) return std::nullopt;
    // EVP_DecodeBlock counts padding as zero bytes; drop them.
    std::size_t len = static_cast<std::size_t>(n);
    if (!text.empty() && text.back() == '=') --len;
    if (text.size() > 1 && text[text.size() - 2] == '=') --len;
    out.resize(len);
    return out;
  }

  std::string randomBytes(std::size_t count) const override {
    std::string out(count, '\0');
    if (count == 0) return out;
    GatePass pass;
    if (!pass.admitted()) {
      // The process is exiting: the kernel's source, without OpenSSL.
      std::random_device device;
      for (auto& c : out) c = static_cast<char>(device());
      return out;
    }
    if (RAND_bytes(reinterpret_cast<unsigned char*>(out.data()), static_cast<int>(count)) != 1) {
      fatal("secure random source failed");
    }
    return out;
  }

  uint32_t randomUniform(uint32_t upperBound) const override {
    if (upperBound < 2) return 0;
    // Rejection sampling: drop the values of the last incomplete range.
    const uint32_t limit = static_cast<uint32_t>(-upperBound) % upperBound;
    for (;;) {
      uint32_t r;
      std::string b = randomBytes(sizeof r);
      std::memcpy(&r, b.data(), sizeof r);
      if (r >= limit) return r % upperBound;
    }
  }
};

}  // namespace

void initTlsLibrary() {
  // OpenSSL frees its state from an exit handler of its own; a library thread
  // still signing a request or drawing random bytes while the process exits
  // would then fail (and abort). Its state lives until the process is gone.
  static const bool done = [] {
    const bool ok = OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr) == 1;
    addExitHook(closeExitGate);
    return ok;
  }();
  (void)done;
}

std::shared_ptr<Crypto> makeOpenSslCrypto() {
  initTlsLibrary();
  return std::make_shared<OpenSslCrypto>();
}

}  // namespace platform
}  // namespace ostrel
