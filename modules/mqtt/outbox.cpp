#include "modules/mqtt/outbox.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <random>
#include <sstream>
#include <system_error>

namespace qov::mqtt {
namespace {

/// Takes back what was begun unless it is finished.
class Transaction {
 public:
  explicit Transaction(Database& database) : database_(database) { database.execute("BEGIN"); }
  ~Transaction() {
    if (!finished_) {
      sqlite3_exec(database_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
    }
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  void finish() {
    database_.execute("COMMIT");
    finished_ = true;
  }

 private:
  Database& database_;
  bool finished_ = false;
};

std::string randomId() {
  std::random_device random;
  std::ostringstream id;
  id << std::hex;
  for (int i = 0; i < 4; ++i) {
    id.width(8);
    id.fill('0');
    id << random();
  }
  return id.str();
}

}  // namespace

Outbox::Outbox(const std::string& file, const Limits& limits)
    : limits_(limits),
      database_(opened(file)),
      id_(readId()),
      size_(readSize()),
      insert_(database_, "INSERT INTO events(module, opc, text, payload) VALUES(?, ?, ?, ?)"),
      measure_(database_,
               "SELECT count(*), total(length(payload)) FROM events WHERE number BETWEEN ? AND ?"),
      remove_(database_, "DELETE FROM events WHERE number BETWEEN ? AND ?"),
      oldest_(database_, "SELECT min(number) FROM events"),
      next_(database_,
            "SELECT number, module, opc, text, payload FROM events WHERE number > ? "
            "ORDER BY number") {}

Database Outbox::opened(const std::string& file) {
  Database database(file);
  Statement check(database, "PRAGMA quick_check(1)");
  if (check.begin().step() && check.bytes(0) != "ok") {
    throw DatabaseError(SQLITE_CORRUPT, check.bytes(0));
  }
  // AUTOINCREMENT: the number of a row that is gone does not come again.
  database.execute(
      "CREATE TABLE IF NOT EXISTS events(number INTEGER PRIMARY KEY AUTOINCREMENT,"
      " module INTEGER NOT NULL, opc INTEGER NOT NULL, text INTEGER NOT NULL,"
      " payload BLOB NOT NULL);"
      "CREATE TABLE IF NOT EXISTS outbox(id TEXT NOT NULL)");
  return database;
}

std::string Outbox::readId() const {
  Statement insert(database_, "INSERT INTO outbox SELECT ? WHERE NOT EXISTS(SELECT * FROM outbox)");
  const std::string fresh = randomId();
  insert.begin().with(fresh).step();
  Statement select(database_, "SELECT id FROM outbox");
  select.begin().step();
  return select.bytes(0);
}

Outbox::Limits Outbox::readSize() const {
  Statement select(database_, "SELECT count(*), total(length(payload)) FROM events");
  select.begin().step();
  const std::uint64_t rows = select.number(0);
  return {rows, select.number(1) + rows * kRowBytes};
}

/// The file may have lost its write-ahead log, and with it the last numbers that it has given.
void Outbox::raiseNumbers() {
  static_assert(kNumberStep == 1U << 20U);
  database_.execute(
      "PRAGMA synchronous=FULL;"
      "UPDATE sqlite_sequence SET seq = seq + (1 << 20) WHERE name = 'events';"
      "INSERT INTO sqlite_sequence SELECT 'events', 0"
      " WHERE NOT EXISTS(SELECT * FROM sqlite_sequence WHERE name = 'events');"
      "PRAGMA wal_checkpoint(TRUNCATE)");
}

/// The broker acknowledges them about in their order: what stands together goes together.
void Outbox::remove(std::vector<std::uint64_t> numbers) {
  std::sort(numbers.begin(), numbers.end());
  for (auto first = numbers.begin(); first != numbers.end();) {
    auto end = first + 1;
    while (end != numbers.end() && *end == *(end - 1) + 1) {
      ++end;
    }
    remove(*first, *(end - 1));
    first = end;
  }
}

void Outbox::remove(std::uint64_t first, std::uint64_t last) {
  measure_.begin().with(first).with(last).step();
  const std::uint64_t rows = measure_.number(0);
  size_.rows -= rows;
  size_.bytes -= measure_.number(1) + rows * kRowBytes;
  measure_.begin();
  remove_.begin().with(first).with(last).step();
}

void Outbox::removeOldest() {
  oldest_.begin().step();
  const std::uint64_t number = oldest_.number(0);
  oldest_.begin();
  remove(number, number);
}

std::uint64_t Outbox::commit(const std::vector<Event>& events,
                             const std::vector<std::uint64_t>& taken) {
  const Limits before = size_;
  // It reads what was there before.
  reached_ = 0;
  next_.begin();
  try {
    if (!events.empty() && !isRaised_) {
      raiseNumbers();
      isRaised_ = true;
    }
    // A removal that a power failure undoes only makes events go out again: it is worth no wait for
    // the disk.
    database_.execute(events.empty() ? "PRAGMA synchronous=NORMAL" : "PRAGMA synchronous=FULL");
    Transaction transaction(database_);
    remove(taken);
    for (const Event& event : events) {
      insert_.begin().with(event.module).with(event.opc).with(std::uint64_t{event.isText});
      insert_.with(event.payload).step();
      ++size_.rows;
      size_.bytes += event.payload.size() + kRowBytes;
    }
    std::uint64_t dropped = 0;
    while (size_.rows > limits_.rows || size_.bytes > limits_.bytes) {
      removeOldest();
      ++dropped;
    }
    transaction.finish();
    return dropped;
  } catch (...) {
    size_ = before;
    throw;
  }
}

std::optional<StoredEvent> Outbox::next(std::uint64_t number) {
  if (number == 0 || number != reached_) {
    next_.begin().with(number);
  }
  reached_ = 0;
  if (!next_.step()) {
    next_.begin();
    return std::nullopt;
  }
  StoredEvent stored;
  stored.number = next_.number(0);
  stored.event.module = static_cast<unsigned int>(next_.number(1));
  stored.event.opc = next_.number(2);
  stored.event.isText = next_.number(3) != 0;
  stored.event.payload = next_.bytes(4);
  reached_ = stored.number;
  return stored;
}

std::string setOutboxAside(const std::string& file) {
  std::string aside = file + ".damaged";
  std::error_code failure;
  std::filesystem::rename(file, aside, failure);
  if (failure) {
    throw DatabaseError(SQLITE_CANTOPEN, "cannot be set aside: " + failure.message());
  }
  // What was not in the file itself yet belongs to it, not to the next one.
  constexpr std::array<const char*, 2> kParts{"-wal", "-shm"};
  for (const char* const part : kParts) {
    std::filesystem::remove(aside + part, failure);
    std::filesystem::rename(file + part, aside + part, failure);
  }
  return aside;
}

}  // namespace qov::mqtt
