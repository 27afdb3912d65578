#pragma once
// The emulator's control API under /_emulator/ and its page at "/": loopback
// only, unsigned, JSON in and out. One small handler per route, each a thin
// HTTP face of the emulator's in-process calls.
namespace httplib {
struct Request;
struct Response;
}  // namespace httplib

namespace ostrel::emulator {

class Emulator;

class ControlApi {
 public:
  explicit ControlApi(Emulator& emulator) : emulator_(emulator) {}

  // Called on the server's threads, any number at once.
  void answer(const httplib::Request& req, httplib::Response& res);

 private:
  using Handler = void (ControlApi::*)(const httplib::Request& req, httplib::Response& res);
  struct Route {
    const char* method;
    const char* path;
    Handler handle;
  };

  void page(const httplib::Request& req, httplib::Response& res);
  void live(const httplib::Request& req, httplib::Response& res);
  void events(const httplib::Request& req, httplib::Response& res);
  void users(const httplib::Request& req, httplib::Response& res);
  void push(const httplib::Request& req, httplib::Response& res);
  void requests(const httplib::Request& req, httplib::Response& res);
  void faults(const httplib::Request& req, httplib::Response& res);
  void addFault(const httplib::Request& req, httplib::Response& res);
  void reset(const httplib::Request& req, httplib::Response& res);

  Emulator& emulator_;
};

}  // namespace ostrel::emulator
