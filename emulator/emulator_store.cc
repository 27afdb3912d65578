#include "emulator/emulator_store.h"

#include <memory>

namespace ostrel::emulator {
namespace {

// A prepared statement that finalises itself.
class Statement {
 public:
  Statement(sqlite3* db, const char* sql) { sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr); }
  ~Statement() { sqlite3_finalize(stmt_); }
  Statement& bind(int i, const std::string& v) {
    sqlite3_bind_text(stmt_, i, v.data(), static_cast<int>(v.size()), SQLITE_TRANSIENT);
    return *this;
  }
  Statement& bind(int i, double v) {
    sqlite3_bind_double(stmt_, i, v);
    return *this;
  }
  Statement& bind(int i, int64_t v) {
    sqlite3_bind_int64(stmt_, i, v);
    return *this;
  }
  bool step() { return stmt_ && sqlite3_step(stmt_) == SQLITE_ROW; }
  void run() {
    if (stmt_) sqlite3_step(stmt_);
  }
  void reset() {
    sqlite3_reset(stmt_);
    sqlite3_clear_bindings(stmt_);
  }
  std::string text(int col) const {
    const auto* t = sqlite3_column_text(stmt_, col);
    return t ? std::string(reinterpret_cast<const char*>(t),
                           static_cast<std::size_t>(sqlite3_column_bytes(stmt_, col)))
             : std::string();
  }
  double real(int col) const { return sqlite3_column_double(stmt_, col); }
  int64_t integer(int col) const { return sqlite3_column_int64(stmt_, col); }

 private:
  sqlite3_stmt* stmt_ = nullptr;
};

EmulatorStore::User readUser(Statement& s) {
  return EmulatorStore::User{s.text(0), s.text(1), s.text(2),
                             s.text(3), s.text(4), s.integer(5) != 0};
}

}  // namespace

std::unique_ptr<EmulatorStore> EmulatorStore::open(const std::string& folder) {
  sqlite3* db = nullptr;
  if (sqlite3_open((folder + "/emulator.sqlite3").c_str(), &db) != SQLITE_OK) {
    sqlite3_close(db);
    return nullptr;
  }
  auto store = std::unique_ptr<EmulatorStore>(new EmulatorStore(db));
  // Write-ahead logging with normal syncing: fast enough for thousands of
  // bulk requests a second, and nothing is lost when the emulator is stopped.
  store->exec("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;");
  store->exec(
      "CREATE TABLE IF NOT EXISTS events (id INTEGER PRIMARY KEY, event_type TEXT, session_id TEXT,"
      " user_id TEXT, arrived REAL, body TEXT);"
      "CREATE TABLE IF NOT EXISTS users (id TEXT PRIMARY KEY, email TEXT, password TEXT, msisdn "
      "TEXT,"
      " pin TEXT, confirmed INTEGER);"
      "CREATE TABLE IF NOT EXISTS tokens (token TEXT PRIMARY KEY, kind TEXT, user_id TEXT, expires "
      "REAL);"
      "CREATE TABLE IF NOT EXISTS push (id INTEGER PRIMARY KEY, body TEXT);"
      "CREATE TABLE IF NOT EXISTS receipts (offer_id TEXT PRIMARY KEY, user_id TEXT, body TEXT);");
  return store;
}

EmulatorStore::~EmulatorStore() {
  sqlite3_close(db_);
}

void EmulatorStore::exec(const char* sql) const {
  sqlite3_exec(db_, sql, nullptr, nullptr, nullptr);
}

void EmulatorStore::setKeepEvents(bool keep) {
  std::lock_guard lock(mutex_);
  keepEvents_ = keep;
}

void EmulatorStore::addEvents(const Json& events, double arrivedAt) {
  std::lock_guard lock(mutex_);
  if (!keepEvents_) {
    countedOnly_ += events.size();
    return;
  }
  exec("BEGIN");
  Statement insert(
      db_,
      "INSERT INTO events (event_type, session_id, user_id, arrived, body) VALUES (?,?,?,?,?)");
  for (const auto& e : events) {
    insert.bind(1, e.value("event_type", ""))
        .bind(2, e.value("session_id", ""))
        .bind(3, e.value("user_id", ""))
        .bind(4, arrivedAt)
        .bind(5, dumpJson(e));
    insert.run();
    insert.reset();
  }
  exec("COMMIT");
}

// An empty filter field matches everything, so one statement serves every filter.
constexpr const char* kFilterClause =
    " WHERE (?1 = '' OR event_type = ?1) AND (?2 = '' OR session_id = ?2)"
    " AND (?3 = '' OR user_id = ?3)";

Json EmulatorStore::events(int limit, const EventFilter& filter) const {
  std::lock_guard lock(mutex_);
  Json out = Json::array();
  Statement s(db_, (std::string("SELECT body, arrived FROM events") + kFilterClause +
                    " ORDER BY id DESC LIMIT ?4")
                       .c_str());
  s.bind(1, filter.eventType).bind(2, filter.sessionId).bind(3, filter.userId);
  s.bind(4, static_cast<int64_t>(limit));
  while (s.step()) {
    out.push_back(Json{{"event", parseJson(s.text(0)).value_or(Json())}, {"arrived", s.real(1)}});
  }
  return out;
}

std::size_t EmulatorStore::eventCount() const {
  std::lock_guard lock(mutex_);
  Statement s(db_, "SELECT COUNT(*) FROM events");
  return countedOnly_ + (s.step() ? static_cast<std::size_t>(s.integer(0)) : 0);
}

std::size_t EmulatorStore::matchingCount(const EventFilter& filter) const {
  std::lock_guard lock(mutex_);
  Statement s(db_, (std::string("SELECT COUNT(*) FROM events") + kFilterClause).c_str());
  s.bind(1, filter.eventType).bind(2, filter.sessionId).bind(3, filter.userId);
  return s.step() ? static_cast<std::size_t>(s.integer(0)) : 0;
}

Json EmulatorStore::recentValues(int limit) const {
  std::lock_guard lock(mutex_);
  Json out = Json::object();
  for (const char* column : {"event_type", "session_id", "user_id"}) {
    Json values = Json::array();
    // Among the latest events only: a page refresh must not scan a day of them.
    Statement s(db_, (std::string("SELECT ") + column + " FROM (SELECT id, " + column +
                      " FROM events ORDER BY id DESC LIMIT 5000) GROUP BY " + column +
                      " ORDER BY MAX(id) DESC LIMIT ?")
                         .c_str());
    s.bind(1, static_cast<int64_t>(limit));
    while (s.step()) values.push_back(s.text(0));
    out[column] = std::move(values);
  }
  return out;
}

std::optional<EmulatorStore::User> EmulatorStore::userByEmail(const std::string& email) const {
  std::lock_guard lock(mutex_);
  Statement s(db_, "SELECT id, email, password, msisdn, pin, confirmed FROM users WHERE email = ?");
  s.bind(1, email);
  if (!s.step()) return std::nullopt;
  return readUser(s);
}

std::optional<EmulatorStore::User> EmulatorStore::userByMsisdn(const std::string& msisdn) const {
  std::lock_guard lock(mutex_);
  Statement s(db_,
              "SELECT id, email, password, msisdn, pin, confirmed FROM users WHERE msisdn = ?");
  s.bind(1, msisdn);
  if (!s.step()) return std::nullopt;
  return readUser(s);
}

std::optional<EmulatorStore::User> EmulatorStore::userById(const std::string& id) const {
  std::lock_guard lock(mutex_);
  Statement s(db_, "SELECT id, email, password, msisdn, pin, confirmed FROM users WHERE id = ?");
  s.bind(1, id);
  if (!s.step()) return std::nullopt;
  return readUser(s);
}

void EmulatorStore::saveUser(const User& u) {
  std::lock_guard lock(mutex_);
  Statement s(db_, "INSERT OR REPLACE INTO users VALUES (?,?,?,?,?,?)");
  s.bind(1, u.id)
      .bind(2, u.email)
      .bind(3, u.password)
      .bind(4, u.msisdn)
      .bind(5, u.pin)
      .bind(6, static_cast<int64_t>(u.confirmed ? 1 : 0));
  s.run();
}

void EmulatorStore::deleteUser(const std::string& id) {
  std::lock_guard lock(mutex_);
  Statement s(db_, "DELETE FROM users WHERE id = ?");
  s.bind(1, id);
  s.run();
  Statement t(db_, "DELETE FROM tokens WHERE user_id = ?");
  t.bind(1, id);
  t.run();
}

Json EmulatorStore::users() const {
  std::lock_guard lock(mutex_);
  Json out = Json::array();
  Statement s(db_,
              "SELECT id, email, password, msisdn, pin, confirmed FROM users ORDER BY rowid DESC");
  while (s.step()) {
    auto u = readUser(s);
    out.push_back(
        Json{{"id", u.id}, {"email", u.email}, {"msisdn", u.msisdn}, {"confirmed", u.confirmed}});
  }
  return out;
}

void EmulatorStore::saveToken(const std::string& token, const std::string& kind,
                              const std::string& userId, double expiresAt) {
  std::lock_guard lock(mutex_);
  Statement s(db_, "INSERT OR REPLACE INTO tokens VALUES (?,?,?,?)");
  s.bind(1, token).bind(2, kind).bind(3, userId).bind(4, expiresAt);
  s.run();
}

std::optional<EmulatorStore::TokenRow> EmulatorStore::token(const std::string& token) const {
  std::lock_guard lock(mutex_);
  Statement s(db_, "SELECT kind, user_id, expires FROM tokens WHERE token = ?");
  s.bind(1, token);
  if (!s.step()) return std::nullopt;
  return TokenRow{s.text(0), s.text(1), s.real(2)};
}

void EmulatorStore::savePush(const Json& registration) {
  std::lock_guard lock(mutex_);
  Statement s(db_, "INSERT INTO push (body) VALUES (?)");
  s.bind(1, dumpJson(registration));
  s.run();
}

Json EmulatorStore::pushRegistrations() const {
  std::lock_guard lock(mutex_);
  Json out = Json::array();
  Statement s(db_, "SELECT body FROM push ORDER BY id DESC");
  while (s.step()) out.push_back(parseJson(s.text(0)).value_or(Json()));
  return out;
}

void EmulatorStore::saveReceipt(const std::string& userId, const std::string& offerId,
                                const Json& receipt) {
  std::lock_guard lock(mutex_);
  Statement s(db_, "INSERT OR REPLACE INTO receipts VALUES (?,?,?)");
  s.bind(1, offerId).bind(2, userId).bind(3, dumpJson(receipt));
  s.run();
}

std::optional<std::string> EmulatorStore::receiptOwner(const std::string& offerId) const {
  std::lock_guard lock(mutex_);
  Statement s(db_, "SELECT user_id FROM receipts WHERE offer_id = ?");
  s.bind(1, offerId);
  if (!s.step()) return std::nullopt;
  return s.text(0);
}

std::optional<std::string> EmulatorStore::offerPaidBy(const std::string& userId) const {
  std::lock_guard lock(mutex_);
  Statement s(db_, "SELECT offer_id FROM receipts WHERE user_id = ? ORDER BY rowid LIMIT 1");
  s.bind(1, userId);
  if (!s.step()) return std::nullopt;
  return s.text(0);
}

bool EmulatorStore::receiptExists(const std::string& offerId) const {
  return receiptOwner(offerId).has_value();
}

void EmulatorStore::reset() {
  std::lock_guard lock(mutex_);
  countedOnly_ = 0;
  exec(
      "DELETE FROM events; DELETE FROM users; DELETE FROM tokens; DELETE FROM push; DELETE FROM "
      "receipts;");
}

}  // namespace ostrel::emulator
