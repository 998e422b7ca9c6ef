#ifndef QOV_MODULES_MQTT_DATABASE_H
#define QOV_MODULES_MQTT_DATABASE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

struct sqlite3;
struct sqlite3_stmt;

namespace qov::mqtt {

/// What SQLite refuses; what() says why.
class DatabaseError : public std::runtime_error {
 public:
  DatabaseError(int code, const std::string& what) : std::runtime_error(what), code_(code) {}
  /// Whether the file is damaged, or no database at all.
  bool isCorrupt() const;

 private:
  const int code_;
};

/// A SQLite file that this process has for itself. A commit is on the disk when it
/// returns, unless a pragma says otherwise.
///
/// Thread: one at a time.
/// Errors: every operation throws DatabaseError.
class Database {
 public:
  /// Makes the file, for its owner alone, if it is not there.
  explicit Database(const std::string& file);

  void execute(const char* sql);
  sqlite3* get() const { return database_.get(); }

 private:
  std::unique_ptr<sqlite3, int (*)(sqlite3*)> database_;
};

/// A statement that is run again and again. Values stand in the order of its question marks.
///
/// Thread, Errors: as Database, which it outlives not.
class Statement {
 public:
  Statement(const Database& database, const char* sql);

  /// Begins anew, without values.
  Statement& begin();
  Statement& with(std::uint64_t value);
  /// Not copied: `value` lives until the statement begins anew.
  Statement& with(const std::string& value);
  /// True if there is a row.
  bool step();

  std::uint64_t number(int column) const;
  std::string bytes(int column) const;

 private:
  void check(int result) const;

  sqlite3* const database_;
  std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> statement_;
  int values_ = 0;
};

}  // namespace qov::mqtt

#endif
