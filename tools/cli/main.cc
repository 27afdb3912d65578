// ostrel-cli: a developer's companion to the library.
#include <cstdio>
#include <string>
#include <vector>

#include "args.h"
#include "commands.h"

namespace {

void printHelp() {
  std::printf(
      "usage: ostrel-cli <command> [options]\n"
      "  sign --secret S --app-id A [--group G] --url URL --timestamp T [--body-file F]\n"
      "      prints the Authorization header of a POST of that body to that URL\n"
      "  send --secret S --app-id A [--group G] --endpoint NAME [--body JSON | --body-file F]\n"
      "       [--sandbox] [--dev]\n"
      "      sends one request to the deployment and prints the status and reply\n"
      "  event --secret S --name NAME [--data JSON]\n"
      "      starts the library, queues one custom event, flushes and prints the outcome\n"
      "  queue [--dir DIR]\n"
      "      prints the pending chunks and their events as JSON, changing nothing\n"
      "  login email|signup|pin|logout|info --secret S [--email E --password P] [--msisdn M --pin "
      "P]\n"
      "      runs a login flow (or logs out, or prints the user) and prints the outcome\n"
      "  push parse FILE\n"
      "      prints the push object that the JSON payload in FILE becomes, or the exact error\n"
      "  pay offer|add|paying --secret S [--item ID --market appleStore|googlePlay]\n"
      "       [--offer OFFER --receipt FILE]\n"
      "      asks for the offer of a store item, adds a store receipt (the logged user's),\n"
      "      or prints whether the user is paying\n"
      "The library's folder follows OSTREL_STORAGE_DIR.\n"
      "The deployment follows OSTREL_SERVICE_DOMAIN, OSTREL_SERVICE_SCHEME, OSTREL_CONNECT_TO\n"
      "and OSTREL_CA_FILE; a value that is not valid stops the command (exit status 2).\n");
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> rest(argv + 1, argv + argc);
  if (rest.empty()) return ostrel::cli::usageError("missing command");
  const std::string command = rest.front();
  rest.erase(rest.begin());
  if (command == "help" || command == "--help") {
    printHelp();
    return 0;
  }
  // Console lines of the library go to stderr, so stdout carries only the answer.
  class StderrSink : public ostrel::platform::LogSink {
   public:
    void write(std::string_view line) override {
      std::fprintf(stderr, "%.*s\n", static_cast<int>(line.size()), line.data());
    }
  };
  auto platform = ostrel::Platform::fromEnvironment();
  if (!platform) {
    std::fprintf(stderr, "ostrel-cli: %s\n", platform.error().description().c_str());
    return 2;
  }
  platform->log = std::make_shared<StderrSink>();
  ostrel::cli::setCliPlatform(std::move(*platform));

  if (command == "sign") return ostrel::cli::runSign(rest);
  if (command == "send") return ostrel::cli::runSend(rest);
  if (command == "event") return ostrel::cli::runEvent(rest);
  if (command == "queue") return ostrel::cli::runQueue(rest);
  if (command == "login") return ostrel::cli::runLogin(rest);
  if (command == "push") return ostrel::cli::runPush(rest);
  if (command == "pay") return ostrel::cli::runPay(rest);
  return ostrel::cli::usageError("unknown command " + command);
}
