#include <curl/curl.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "platform/defaults.h"

namespace ostrel::platform {
namespace {

struct Transfer {
  HttpRequest request;
  HttpCompletion completion;
  HttpResponse response;
  curl_slist* headers = nullptr;
  char errorBuffer[CURL_ERROR_SIZE] = {};
  ~Transfer() {
    if (headers) curl_slist_free_all(headers);
  }
};

size_t onBody(char* data, size_t size, size_t count, void* user) {
  static_cast<Transfer*>(user)->response.body.append(data, size * count);
  return size * count;
}

size_t onHeader(char* data, size_t size, size_t count, void* user) {
  auto* t = static_cast<Transfer*>(user);
  std::string_view line(data, size * count);
  if (line.starts_with("HTTP/")) {
    t->response.headers.clear();  // a new response after a redirect
  } else if (auto colon = line.find(':'); colon != std::string_view::npos) {
    auto trim = [](std::string_view s) {
      while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
      while (!s.empty() && (s.back() == '\r' || s.back() == '\n' || s.back() == ' '))
        s.remove_suffix(1);
      return std::string(s);
    };
    t->response.headers.emplace_back(trim(line.substr(0, colon)), trim(line.substr(colon + 1)));
  }
  return size * count;
}

// Adds the extra CA bundle to OpenSSL's store, beside the system's roots.
CURLcode addExtraCa(CURL*, void* sslctx, void* user) {
  const auto* path = static_cast<const std::string*>(user);
  X509_STORE* store = SSL_CTX_get_cert_store(static_cast<SSL_CTX*>(sslctx));
  FILE* f = std::fopen(path->c_str(), "r");
  if (f == nullptr) return CURLE_SSL_CACERT_BADFILE;
  while (X509* cert = PEM_read_X509(f, nullptr, nullptr, nullptr)) {
    X509_STORE_add_cert(store, cert);
    X509_free(cert);
  }
  std::fclose(f);
  return CURLE_OK;
}

class CurlHttpClient;

// Live clients, stopped when the process exits: their network threads must be
// gone before the TLS library's own exit handlers free what they use.
std::mutex& liveMutex() {
  static auto* m = new std::mutex();
  return *m;
}
std::set<CurlHttpClient*>& liveClients() {
  static auto* clients = new std::set<CurlHttpClient*>();
  return *clients;
}
void stopLiveClients();

class CurlHttpClient final : public HttpClient {
 public:
  explicit CurlHttpClient(NetworkOverrides overrides) : overrides_(std::move(overrides)) {
    static std::once_flag once;
    std::call_once(once, [] {
      curl_global_init(CURL_GLOBAL_DEFAULT);
      // Registered after the TLS library initialised, so it runs before its cleanup.
      std::atexit(stopLiveClients);
    });
    {
      std::lock_guard lock(liveMutex());
      liveClients().insert(this);
    }
    multi_ = curl_multi_init();
    share_ = curl_share_init();
    curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
    curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, 16L);
    if (overrides_.connectTo)
      connectTo_ = curl_slist_append(nullptr, ("::" + *overrides_.connectTo).c_str());
    thread_ = std::thread([this] { run(); });
  }

  ~CurlHttpClient() override {
    {
      std::lock_guard lock(liveMutex());
      liveClients().erase(this);
    }
    stopThread();
    curl_multi_cleanup(multi_);
    curl_share_cleanup(share_);
    if (connectTo_) curl_slist_free_all(connectTo_);
  }

  void send(HttpRequest request, HttpCompletion completion) override {
    auto t = std::make_unique<Transfer>();
    t->request = std::move(request);
    t->completion = std::move(completion);
    {
      std::lock_guard lock(mutex_);
      if (stopping_) {
        t->completion(PlatformError{"ostrel.http", CURLE_ABORTED_BY_CALLBACK, "cancelled"}, {});
        return;
      }
      incoming_.push_back(std::move(t));
    }
    curl_multi_wakeup(multi_);
  }

  const NetworkOverrides& overrides() const { return overrides_; }

  // Ends the network thread; requests in flight complete as cancelled.
  void stopThread() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    curl_multi_wakeup(multi_);
    std::lock_guard join(joinMutex_);
    if (thread_.joinable()) thread_.join();
  }

 private:
  void start(std::unique_ptr<Transfer> t) {
    CURL* easy = curl_easy_init();
    const HttpRequest& r = t->request;
    curl_easy_setopt(easy, CURLOPT_URL, r.url.c_str());
    curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, r.method.c_str());
    if (r.method == "POST") {
      curl_easy_setopt(easy, CURLOPT_POST, 1L);
      curl_easy_setopt(easy, CURLOPT_POSTFIELDS, r.body.data());
      curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(r.body.size()));
    }
    for (const auto& [k, v] : r.headers)
      t->headers = curl_slist_append(t->headers, (k + ": " + v).c_str());
    // libcurl would add "Expect: 100-continue" to large POSTs; the service never asks for it.
    t->headers = curl_slist_append(t->headers, "Expect:");
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, t->headers);
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, static_cast<long>(r.timeoutSecs * 1000));
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(easy, CURLOPT_MAXREDIRS, 10L);
    // A redirected POST stays a POST with its body.
    curl_easy_setopt(easy, CURLOPT_POSTREDIR, static_cast<long>(CURL_REDIR_POST_ALL));
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    if (overrides_.caFile) {
      curl_easy_setopt(easy, CURLOPT_SSL_CTX_FUNCTION, addExtraCa);
      curl_easy_setopt(easy, CURLOPT_SSL_CTX_DATA, const_cast<std::string*>(&*overrides_.caFile));
    }
    if (connectTo_) curl_easy_setopt(easy, CURLOPT_CONNECT_TO, connectTo_);
    curl_easy_setopt(easy, CURLOPT_SHARE, share_);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, onBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, t.get());
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, onHeader);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, t.get());
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, t->errorBuffer);
    curl_easy_setopt(easy, CURLOPT_PRIVATE, t.get());
    active_[easy] = std::move(t);
    curl_multi_add_handle(multi_, easy);
  }

  void finish(CURL* easy, CURLcode code) {
    auto it = active_.find(easy);
    std::unique_ptr<Transfer> t = std::move(it->second);
    active_.erase(it);
    curl_multi_remove_handle(multi_, easy);
    if (code != CURLE_OK) {
      std::string text = curl_easy_strerror(code);
      if (t->errorBuffer[0]) text += ": " + std::string(t->errorBuffer);
      curl_easy_cleanup(easy);
      t->completion(PlatformError{"ostrel.http", code, text}, {});
      return;
    }
    long status = 0;
    char* url = nullptr;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_getinfo(easy, CURLINFO_EFFECTIVE_URL, &url);
    t->response.status = status;
    t->response.finalUrl = url ? url : t->request.url;
    curl_easy_cleanup(easy);
    t->completion(std::nullopt, std::move(t->response));
  }

  void run() {
    for (;;) {
      std::deque<std::unique_ptr<Transfer>> incoming;
      bool stopping;
      {
        std::lock_guard lock(mutex_);
        incoming.swap(incoming_);
        stopping = stopping_;
      }
      if (stopping) {
        for (auto& t : incoming)
          t->completion(PlatformError{"ostrel.http", CURLE_ABORTED_BY_CALLBACK, "cancelled"}, {});
        for (auto& [easy, t] : active_) {
          curl_multi_remove_handle(multi_, easy);
          curl_easy_cleanup(easy);
          t->completion(PlatformError{"ostrel.http", CURLE_ABORTED_BY_CALLBACK, "cancelled"}, {});
        }
        active_.clear();
        return;
      }
      for (auto& t : incoming) start(std::move(t));
      int running = 0;
      curl_multi_perform(multi_, &running);
      int left = 0;
      while (CURLMsg* msg = curl_multi_info_read(multi_, &left)) {
        if (msg->msg == CURLMSG_DONE) finish(msg->easy_handle, msg->data.result);
      }
      curl_multi_poll(multi_, nullptr, 0, 1000, nullptr);
    }
  }

  NetworkOverrides overrides_;
  CURLM* multi_ = nullptr;
  CURLSH* share_ = nullptr;
  curl_slist* connectTo_ = nullptr;
  std::mutex mutex_;
  std::mutex joinMutex_;
  std::deque<std::unique_ptr<Transfer>> incoming_;
  std::map<CURL*, std::unique_ptr<Transfer>> active_;
  bool stopping_ = false;
  std::thread thread_;
};

void stopLiveClients() {
  std::lock_guard lock(liveMutex());
  for (auto* client : liveClients()) client->stopThread();
}

}  // namespace

std::shared_ptr<HttpClient> makeCurlHttpClient(NetworkOverrides overrides) {
  return std::make_shared<CurlHttpClient>(std::move(overrides));
}

}  // namespace ostrel::platform
