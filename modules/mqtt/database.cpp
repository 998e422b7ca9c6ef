#include "modules/mqtt/database.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace qov::mqtt {
namespace {

constexpr int kResultMask = 0xFF;

[[noreturn]] void fail(sqlite3* database, int result) {
  std::string why = sqlite3_errstr(result);
  if (database != nullptr && sqlite3_errcode(database) == result) {
    why = sqlite3_errmsg(database);
    if (const int system = sqlite3_system_errno(database); system != 0) {
      why += ": " + std::generic_category().message(system);
    }
  }
  throw DatabaseError(result, why);
}

/// SQLite would let others read it.
void makeFile(const std::string& file) {
  constexpr mode_t kOwnerOnly = 0600;
  const int descriptor = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kOwnerOnly);
  if (descriptor < 0) {
    throw DatabaseError(SQLITE_CANTOPEN, std::generic_category().message(errno));
  }
  ::close(descriptor);
}

}  // namespace

bool DatabaseError::isCorrupt() const {
  const int code = code_ & kResultMask;
  return code == SQLITE_CORRUPT || code == SQLITE_NOTADB;
}

Database::Database(const std::string& file) : database_(nullptr, sqlite3_close_v2) {
  makeFile(file);
  sqlite3* opened = nullptr;
  const int result = sqlite3_open_v2(file.c_str(), &opened, SQLITE_OPEN_READWRITE, nullptr);
  database_.reset(opened);
  if (result != SQLITE_OK) {
    fail(opened, result);
  }
  execute("PRAGMA locking_mode=EXCLUSIVE; PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL");
}

void Database::execute(const char* sql) {
  if (const int result = sqlite3_exec(get(), sql, nullptr, nullptr, nullptr); result != SQLITE_OK) {
    fail(get(), result);
  }
}

Statement::Statement(const Database& database, const char* sql)
    : database_(database.get()), statement_(nullptr, sqlite3_finalize) {
  sqlite3_stmt* prepared = nullptr;
  const int result = sqlite3_prepare_v2(database_, sql, -1, &prepared, nullptr);
  statement_.reset(prepared);
  check(result);
}

void Statement::check(int result) const {
  if (result != SQLITE_OK) {
    fail(database_, result);
  }
}

Statement& Statement::begin() {
  sqlite3_reset(statement_.get());
  values_ = 0;
  return *this;
}

Statement& Statement::with(std::uint64_t value) {
  check(sqlite3_bind_int64(statement_.get(), ++values_, static_cast<sqlite3_int64>(value)));
  return *this;
}

Statement& Statement::with(const std::string& value) {
  check(
      sqlite3_bind_blob64(statement_.get(), ++values_, value.data(), value.size(), SQLITE_STATIC));
  return *this;
}

bool Statement::step() {
  const int result = sqlite3_step(statement_.get());
  if (result != SQLITE_ROW && result != SQLITE_DONE) {
    sqlite3_reset(statement_.get());
    fail(database_, result);
  }
  return result == SQLITE_ROW;
}

std::uint64_t Statement::number(int column) const {
  return static_cast<std::uint64_t>(sqlite3_column_int64(statement_.get(), column));
}

std::string Statement::bytes(int column) const {
  const auto* const first = static_cast<const char*>(sqlite3_column_blob(statement_.get(), column));
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column));
  return first != nullptr ? std::string(first, size) : std::string();
}

}  // namespace qov::mqtt
