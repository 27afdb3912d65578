// ostrel-cli commands for pushes and payments: push parse, pay offer|add|paying.
#include <cstdio>
#include <fstream>
#include <future>
#include <sstream>

#include "args.h"
#include "commands.h"
#include "ostrel/ol_payment_manager.h"
#include "ostrel/ol_push_builder.h"

namespace ostrel::cli {

int runPush(const std::vector<std::string>& argv) {
  if (argv.size() != 2 || argv[0] != "parse") return usageError("usage: push parse FILE");
  std::ifstream in(argv[1], std::ios::binary);
  if (!in) return usageError("cannot read " + argv[1]);
  std::stringstream text;
  text << in.rdbuf();
  auto push = OLPushBuilder::buildPushObject(std::string_view(text.str()), false);
  if (!push) return printOutcome(push.error(), nullptr);
  return printOutcome(std::nullopt, Json{{"class", (*push)->archiveClassName()},
                                         {"type", rawValue((*push)->type())},
                                         {"description", (*push)->description()}});
}

int runPay(const std::vector<std::string>& argv) {
  if (argv.empty()) return usageError("pay needs a sub-command: offer, add, paying");
  const std::string sub = argv.front();
  std::string problem;
  auto args = Args::parse({argv.begin() + 1, argv.end()},
                          {"secret", "item", "market", "offer", "receipt"}, {}, &problem);
  if (!args) return usageError(problem);
  if (!args->get("secret")) return usageError("pay needs --secret");
  auto facade = startFacade(*args->get("secret"));
  if (!facade) return printOutcome(facade.error(), nullptr);
  auto manager = (*facade)->getPaymentManager();
  if (!manager) return printOutcome(manager.error(), nullptr);
  auto& payments = **manager;

  if (sub == "offer") {
    if (!args->get("item")) return usageError("pay offer needs --item");
    const std::string market = args->get("market").value_or("appleStore");
    if (market != "appleStore" && market != "googlePlay") {
      return usageError("--market is appleStore or googlePlay");
    }
    std::promise<std::pair<std::optional<OLError>, std::optional<std::string>>> done;
    payments.getOfferFor(*args->get("item"),
                         market == "googlePlay" ? MarketPlace::GooglePlay : MarketPlace::AppleStore,
                         [&](std::optional<OLError> e, std::optional<std::string> offer) {
                           done.set_value({std::move(e), std::move(offer)});
                         });
    auto [error, offer] = done.get_future().get();
    return printOutcome(error, Json{{"offerId", offer.value_or("")}});
  }
  if (sub == "add") {
    if (!args->get("offer")) return usageError("pay add needs --offer");
    std::promise<std::optional<OLError>> done;
    payments.addPayment(*args->get("offer"), args->get("receipt"),
                        [&](std::optional<OLError> e) { done.set_value(std::move(e)); });
    return printOutcome(done.get_future().get(), Json{{"added", true}});
  }
  if (sub == "paying") {
    std::promise<std::pair<std::optional<OLError>, std::optional<OLPaymentObject>>> done;
    payments.isUserPayingForDefault(
        [&](std::optional<OLError> e, std::optional<OLPaymentObject> o) {
          done.set_value({std::move(e), std::move(o)});
        });
    auto [error, state] = done.get_future().get();
    return printOutcome(
        error, state ? Json{{"isPaying", state->isPaying}, {"description", state->description()}}
                     : Json());
  }
  return usageError("unknown pay sub-command " + sub);
}

}  // namespace ostrel::cli
