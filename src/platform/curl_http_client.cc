#include <curl/curl.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <initializer_list>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/defaults.h"
#include "platform/thread_annotations.h"

namespace ostrel::platform {
namespace {

using SteadyClock = std::chrono::steady_clock;

// A platform HTTP stack gives up after about as many.
constexpr int kMaxRedirects = 10;

PlatformError httpError(int64_t code, std::string text) {
  return PlatformError{"ostrel.http", code, std::move(text)};
}
PlatformError cancelled() {
  return httpError(CURLE_ABORTED_BY_CALLBACK, "cancelled");
}

struct Transfer {
  HttpRequest request;
  HttpCompletion completion;
  HttpResponse response;
  curl_slist* headers = nullptr;
  char errorBuffer[CURL_ERROR_SIZE] = {};
  int redirects = 0;
  SteadyClock::time_point deadline;  // of the whole exchange, redirects included
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
    t->response.headers.clear();  // a new response (after an interim one)
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

// A header that would end its line early, or name another header, is never sent.
std::optional<PlatformError> refusedHeader(const HttpRequest& r) {
  constexpr std::string_view kLineBreaks("\r\n\0", 3);
  for (const auto& [name, value] : r.headers) {
    if (name.empty() || name.find_first_of(kLineBreaks) != std::string::npos ||
        name.find_first_of(": \t") != std::string::npos ||
        value.find_first_of(kLineBreaks) != std::string::npos) {
      return httpError(CURLE_BAD_FUNCTION_ARGUMENT,
                       "Header " + name + " refused: it holds a line break");
    }
  }
  return std::nullopt;
}

// The extra CA certificates, read from their file once, when the client is made.
class ExtraCa {
 public:
  explicit ExtraCa(const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "r");
    if (f == nullptr) return;
    while (X509* cert = PEM_read_X509(f, nullptr, nullptr, nullptr)) certs_.push_back(cert);
    std::fclose(f);
  }
  ~ExtraCa() {
    for (X509* cert : certs_) X509_free(cert);
  }
  ExtraCa(const ExtraCa&) = delete;
  ExtraCa& operator=(const ExtraCa&) = delete;

  // Adds them to a new connection's store, beside the system's roots.
  static CURLcode addTo(CURL*, void* sslctx, void* user) {
    const auto* self = static_cast<const ExtraCa*>(user);
    if (self->certs_.empty()) return CURLE_SSL_CACERT_BADFILE;
    X509_STORE* store = SSL_CTX_get_cert_store(static_cast<SSL_CTX*>(sslctx));
    for (X509* cert : self->certs_) X509_STORE_add_cert(store, cert);  // takes its own reference
    return CURLE_OK;
  }

 private:
  std::vector<X509*> certs_;
};

struct UrlParts {
  std::string scheme, host;
};

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

std::optional<UrlParts> urlParts(const std::string& url) {
  CURLU* u = curl_url();
  std::optional<UrlParts> out;
  char* scheme = nullptr;
  char* host = nullptr;
  if (curl_url_set(u, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK &&
      curl_url_get(u, CURLUPART_SCHEME, &scheme, 0) == CURLUE_OK &&
      curl_url_get(u, CURLUPART_HOST, &host, 0) == CURLUE_OK) {
    out = UrlParts{lower(scheme), lower(host)};
  }
  curl_free(scheme);
  curl_free(host);
  curl_url_cleanup(u);
  return out;
}

// Whether a redirect from `from` to `to` may carry the request's body and credentials.
bool credentialsMayGo(const HttpRequest& r, const UrlParts& from, const UrlParts& to) {
  if (from.scheme == "https" && to.scheme != "https") return false;
  if (r.bodyMayLeaveDomain) return true;
  if (r.bodyDomain.empty()) return to.host == from.host;
  const std::string suffix = "." + lower(r.bodyDomain);
  return to.host.size() > suffix.size() && to.host.ends_with(suffix);
}

void eraseHeaders(HttpRequest& r, std::initializer_list<std::string_view> names) {
  std::erase_if(r.headers, [&](const auto& header) {
    return std::any_of(names.begin(), names.end(), [&](std::string_view name) {
      return lower(header.first) == lower(std::string(name));
    });
  });
}

// Turns the request into the next hop of a redirect, as a platform HTTP stack
// does; an error when that hop would carry the body where it may not go.
std::optional<PlatformError> followRedirect(Transfer& t, long status, const std::string& from,
                                            const std::string& to) {
  if (++t.redirects > kMaxRedirects) {
    return httpError(CURLE_TOO_MANY_REDIRECTS, "Too many redirects");
  }
  auto a = urlParts(from);
  auto b = urlParts(to);
  if (!a || !b || (b->scheme != "https" && b->scheme != "http")) {
    return httpError(CURLE_UNSUPPORTED_PROTOCOL, "Redirect to an unsupported URL " + to);
  }
  HttpRequest& r = t.request;
  const bool becomesGet =
      status == 303 ? r.method != "HEAD" : (status == 301 || status == 302) && r.method == "POST";
  const bool mayGo = credentialsMayGo(r, *a, *b);
  if (becomesGet) {
    r.method = "GET";
    r.body.clear();
    eraseHeaders(r, {"Content-Length", "Content-Type"});
  } else if (!mayGo && r.method != "GET" && r.method != "HEAD") {
    return PlatformError{
        "ostrel.http.redirect", status,
        "Redirect to " + to + " refused: it would carry the request's body to " + b->host};
  }
  if (!mayGo) eraseHeaders(r, {"Authorization"});
  r.url = to;
  t.response = HttpResponse{};
  return std::nullopt;
}

bool isRedirect(long status) {
  return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

class Engine;

// Live engines, stopped when the process exits: their network threads must be
// gone before the TLS library's own exit handlers free what they use.
Mutex& liveMutex() {
  static auto* m = new Mutex();
  return *m;
}
std::vector<std::weak_ptr<Engine>>& liveEngines() {
  static auto* engines = new std::vector<std::weak_ptr<Engine>>();
  return *engines;
}
void stopLiveEngines();

// The network thread and what it owns. The thread holds the engine alive, so a
// client released from one of its own completions lets the thread finish alone.
class Engine {
 public:
  static std::shared_ptr<Engine> make(NetworkOverrides overrides) {
    static std::once_flag once;
    std::call_once(once, [] {
      initTlsLibrary();
      curl_global_init(CURL_GLOBAL_DEFAULT);
      // Registered after the TLS library initialised, so it runs before its cleanup.
      std::atexit(stopLiveEngines);
    });
    auto engine = std::shared_ptr<Engine>(new Engine(std::move(overrides)));
    engine->thread_ = std::thread([self = engine] { self->run(); });
    engine->threadId_ = engine->thread_.get_id();
    MutexLock lock(liveMutex());
    std::erase_if(liveEngines(), [](const auto& e) { return e.expired(); });
    liveEngines().push_back(engine);
    return engine;
  }

  ~Engine() {
    curl_multi_cleanup(multi_);
    curl_share_cleanup(share_);
    if (connectTo_) curl_slist_free_all(connectTo_);
  }

  void send(std::unique_ptr<Transfer> t) {
    MutexLock lock(mutex_);
    if (stopping_) {
      // No thread will take it. Outside the lock, so that a completion that
      // sends again cannot deadlock.
      lock.unlock();
      t->completion(cancelled(), {});
      return;
    }
    incoming_.push_back(std::move(t));
    lock.unlock();
    curl_multi_wakeup(multi_);
  }

  void dispatch(std::function<void()> work) {
    MutexLock lock(mutex_);
    if (stopping_) {
      lock.unlock();
      work();
      return;
    }
    work_.push_back(std::move(work));
    lock.unlock();
    curl_multi_wakeup(multi_);
  }

  // Ends the network thread; whatever is queued or in flight completes as
  // cancelled. From another thread it returns once the thread is gone; from the
  // network thread itself (a client released in its own completion, or exit()
  // called there) the thread ends by itself once the completion returns.
  void stop() {
    {
      MutexLock lock(mutex_);
      stopping_ = true;
    }
    curl_multi_wakeup(multi_);
    if (std::this_thread::get_id() == threadId_) {
      // Another thread may be joining this one at this moment (exit()'s handler
      // stopping every engine while a completion releases its client): that
      // join ends when this thread does, so the thread is left to it.
      if (joinMutex_.try_lock()) {
        if (thread_.joinable()) thread_.detach();
        joinMutex_.unlock();
      }
      return;
    }
    MutexLock join(joinMutex_);
    if (thread_.joinable()) {
      thread_.join();
      return;
    }
    join.unlock();
    MutexLock lock(mutex_);
    while (!ended_) lock.wait(endedChanged_);
  }

 private:
  explicit Engine(NetworkOverrides overrides) : overrides_(std::move(overrides)) {
    if (overrides_.caFile) extraCa_ = std::make_unique<ExtraCa>(*overrides_.caFile);
    multi_ = curl_multi_init();
    share_ = curl_share_init();
    curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
    curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, 16L);
    if (overrides_.connectTo)
      connectTo_ = curl_slist_append(nullptr, ("::" + *overrides_.connectTo).c_str());
  }

  void start(std::unique_ptr<Transfer> t) {
    const HttpRequest& r = t->request;
    if (auto refused = refusedHeader(r)) {
      t->completion(*refused, {});
      return;
    }
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(t->deadline - SteadyClock::now());
    if (left.count() <= 0) {
      t->completion(httpError(CURLE_OPERATION_TIMEDOUT, "Timed out"), {});
      return;
    }
    CURL* easy = curl_easy_init();
    curl_easy_setopt(easy, CURLOPT_URL, r.url.c_str());
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    if (r.method == "POST") {
      curl_easy_setopt(easy, CURLOPT_POST, 1L);
      curl_easy_setopt(easy, CURLOPT_POSTFIELDS, r.body.data());
      curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(r.body.size()));
    } else if (r.method == "HEAD") {
      curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
    } else if (r.method != "GET") {
      curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, r.method.c_str());
    }
    if (t->headers) curl_slist_free_all(t->headers);
    t->headers = nullptr;
    // "Name;" is libcurl's way to send a header with an empty value.
    for (const auto& [k, v] : r.headers)
      t->headers = curl_slist_append(t->headers, (v.empty() ? k + ";" : k + ": " + v).c_str());
    // libcurl would add "Expect: 100-continue" to large POSTs; the service never asks for it.
    t->headers = curl_slist_append(t->headers, "Expect:");
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, t->headers);
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, static_cast<long>(left.count()));
    // Redirects are followed here, hop by hop, so that each hop is checked.
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    if (extraCa_) {
      curl_easy_setopt(easy, CURLOPT_SSL_CTX_FUNCTION, ExtraCa::addTo);
      curl_easy_setopt(easy, CURLOPT_SSL_CTX_DATA, extraCa_.get());
    }
    if (connectTo_) curl_easy_setopt(easy, CURLOPT_CONNECT_TO, connectTo_);
    curl_easy_setopt(easy, CURLOPT_SHARE, share_);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, onBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, t.get());
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, onHeader);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, t.get());
    t->errorBuffer[0] = '\0';
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, t->errorBuffer);
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
      t->completion(httpError(code, text), {});
      return;
    }
    long status = 0;
    char* url = nullptr;
    char* location = nullptr;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_getinfo(easy, CURLINFO_EFFECTIVE_URL, &url);
    curl_easy_getinfo(easy, CURLINFO_REDIRECT_URL, &location);
    const std::string current = url ? url : t->request.url;
    const std::string next = location ? location : "";
    curl_easy_cleanup(easy);
    if (isRedirect(status) && !next.empty()) {
      if (auto refused = followRedirect(*t, status, current, next)) {
        t->completion(*refused, {});
        return;
      }
      start(std::move(t));
      return;
    }
    t->response.status = status;
    t->response.finalUrl = current;
    t->completion(std::nullopt, std::move(t->response));
  }

  void run() {
    for (;;) {
      std::deque<std::unique_ptr<Transfer>> incoming;
      std::deque<std::function<void()>> work;
      bool stopping;
      {
        MutexLock lock(mutex_);
        incoming.swap(incoming_);
        work.swap(work_);
        stopping = stopping_;
      }
      if (stopping) {
        for (auto& w : work) w();
        for (auto& t : incoming) t->completion(cancelled(), {});
        auto active = std::move(active_);
        active_.clear();
        for (auto& [easy, t] : active) {
          curl_multi_remove_handle(multi_, easy);
          curl_easy_cleanup(easy);
          t->completion(cancelled(), {});
        }
        break;
      }
      for (auto& t : incoming) start(std::move(t));
      for (auto& w : work) w();
      int running = 0;
      curl_multi_perform(multi_, &running);
      int left = 0;
      while (CURLMsg* msg = curl_multi_info_read(multi_, &left)) {
        if (msg->msg == CURLMSG_DONE) finish(msg->easy_handle, msg->data.result);
      }
      curl_multi_poll(multi_, nullptr, 0, 1000, nullptr);
    }
    MutexLock lock(mutex_);
    ended_ = true;
    endedChanged_.notify_all();
  }

  NetworkOverrides overrides_;
  std::unique_ptr<ExtraCa> extraCa_;
  CURLM* multi_ = nullptr;
  CURLSH* share_ = nullptr;
  curl_slist* connectTo_ = nullptr;
  Mutex mutex_;
  std::condition_variable endedChanged_;
  std::deque<std::unique_ptr<Transfer>> incoming_ OSTREL_GUARDED_BY(mutex_);
  std::deque<std::function<void()>> work_ OSTREL_GUARDED_BY(mutex_);
  // Touched by the network thread only.
  std::map<CURL*, std::unique_ptr<Transfer>> active_;
  bool stopping_ OSTREL_GUARDED_BY(mutex_) = false;
  bool ended_ OSTREL_GUARDED_BY(mutex_) = false;
  // Serialises joining or detaching thread_ between concurrent stop() calls.
  Mutex joinMutex_;
  std::thread thread_;
  std::thread::id threadId_;
};

void stopLiveEngines() {
  std::vector<std::shared_ptr<Engine>> live;
  {
    MutexLock lock(liveMutex());
    for (const auto& weak : liveEngines()) {
      if (auto engine = weak.lock()) live.push_back(std::move(engine));
    }
  }
  for (const auto& engine : live) engine->stop();
}

class CurlHttpClient final : public HttpClient {
 public:
  explicit CurlHttpClient(NetworkOverrides overrides)
      : engine_(Engine::make(std::move(overrides))) {}
  ~CurlHttpClient() override { engine_->stop(); }

  void send(HttpRequest request, HttpCompletion completion) override {
    auto t = std::make_unique<Transfer>();
    t->deadline = SteadyClock::now() +
                  std::chrono::milliseconds(static_cast<int64_t>(request.timeoutSecs * 1000));
    t->request = std::move(request);
    t->completion = std::move(completion);
    engine_->send(std::move(t));
  }

  void dispatch(std::function<void()> work) override { engine_->dispatch(std::move(work)); }

 private:
  std::shared_ptr<Engine> engine_;
};

}  // namespace

std::shared_ptr<HttpClient> makeCurlHttpClient(NetworkOverrides overrides) {
  return std::make_shared<CurlHttpClient>(std::move(overrides));
}

}  // namespace ostrel::platform
