#pragma once
// The emulator's state in SQLite: users, tokens, received events and push
// registrations, so that a restart with the same folder keeps them.
#include <sqlite3.h>

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ostrel/json.h"

namespace ostrel::emulator {

// Which events to read back; an empty field matches every event.
struct EventFilter {
  std::string eventType, sessionId, userId;
};

class EmulatorStore {
 public:
  // Opens (or creates) the database in `folder`; nothing when it cannot.
  static std::unique_ptr<EmulatorStore> open(const std::string& folder);
  ~EmulatorStore();

  void addEvents(const Json& events, double arrivedAt);
  // Off: events are counted but not kept (load tests, where a database of
  // millions of rows would measure the disk, not the client).
  void setKeepEvents(bool keep);
  // Newest first: {"event", "arrived"}.
  Json events(int limit, const EventFilter& filter = {}) const;
  // Every event received, kept or not.
  std::size_t eventCount() const;
  // The kept events that pass the filter.
  std::size_t matchingCount(const EventFilter& filter) const;
  // The event types, session ids and user ids among the latest 5000 kept events, most
  // recently seen first, at most `limit` of each:
  // {"event_type": [...], "session_id": [...], "user_id": [...]}.
  Json recentValues(int limit) const;

  struct User {
    std::string id, email, password, msisdn, pin;
    bool confirmed = true;
  };
  std::optional<User> userByEmail(const std::string& email) const;
  std::optional<User> userByMsisdn(const std::string& msisdn) const;
  std::optional<User> userById(const std::string& id) const;
  void saveUser(const User& user);
  void deleteUser(const std::string& id);
  Json users() const;

  // Tokens: kind "session" or "autologin", owned by a user, with an expiry.
  void saveToken(const std::string& token, const std::string& kind, const std::string& userId,
                 double expiresAt);
  struct TokenRow {
    std::string kind, userId;
    double expiresAt = 0;
  };
  std::optional<TokenRow> token(const std::string& token) const;

  void savePush(const Json& registration);
  Json pushRegistrations() const;
  void saveReceipt(const std::string& userId, const std::string& offerId, const Json& receipt);
  bool receiptExists(const std::string& offerId) const;
  // The offer of the user's first receipt, if the user has any.
  std::optional<std::string> offerPaidBy(const std::string& userId) const;
  std::optional<std::string> receiptOwner(const std::string& offerId) const;
  void reset();

 private:
  explicit EmulatorStore(sqlite3* db) : db_(db) {}
  void exec(const char* sql) const;
  sqlite3* db_;
  mutable std::mutex mutex_;
  bool keepEvents_ = true;
  std::size_t countedOnly_ = 0;
};

}  // namespace ostrel::emulator
