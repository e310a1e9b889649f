#pragma once

// One SQLite database: statements with positional parameters, rows mapped to values, transactions, schema helpers.
// Every failure is a `SkillsError` of kind `database`: with SQLite's text and the statement, or with the file and what
// to do where a full disk or the like was the cause. The connection stays usable.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include <sqlite3.h>

#include "foundations/SkillsError.h"

namespace orvanta {

// A parameter: integer, real, text or null.
class SQLValue {
 public:
  using Payload = std::variant<std::int64_t, double, std::string, std::nullptr_t>;

  SQLValue(std::int64_t value) : payload_(value) {}                   // NOLINT(*-explicit-*)
  SQLValue(double value) : payload_(value) {}                         // NOLINT(*-explicit-*)
  SQLValue(bool value) : payload_(std::int64_t{value}) {}             // NOLINT(*-explicit-*)
  SQLValue(std::string value) : payload_(std::move(value)) {}         // NOLINT(*-explicit-*)
  SQLValue(std::string_view value) : payload_(std::string(value)) {}  // NOLINT(*-explicit-*)
  SQLValue(const char* value) : payload_(std::string(value)) {}       // NOLINT(*-explicit-*)
  SQLValue(std::nullptr_t) : payload_(nullptr) {}                     // NOLINT(*-explicit-*)
  template <typename T>
  SQLValue(const std::optional<T>& value) : SQLValue(value ? SQLValue(*value) : SQLValue(nullptr)) {}  // NOLINT

  [[nodiscard]] const Payload& payload() const { return payload_; }

  friend bool operator==(const SQLValue&, const SQLValue&) = default;

 private:
  Payload payload_;
};

// The current row of a running query, valid only inside the function that maps it. Columns count from 0.
class SQLRow {
 public:
  explicit SQLRow(sqlite3_stmt* statement) : statement_(statement) {}

  [[nodiscard]] bool isNull(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }
  [[nodiscard]] std::optional<std::string> string(int column) const;
  [[nodiscard]] std::optional<std::int64_t> int64(int column) const;
  [[nodiscard]] std::optional<double> real(int column) const;
  // NULL is false, anything but 0 is true.
  [[nodiscard]] bool boolean(int column) const { return sqlite3_column_int64(statement_, column) != 0; }
  // The text without a copy, empty for NULL; valid until the next row.
  [[nodiscard]] std::string_view text(int column) const;

 private:
  sqlite3_stmt* statement_;
};

class SQLiteConnection {
 public:
  using Params = std::vector<SQLValue>;

  // Opens or creates the file, with foreign keys enforced and the WAL journal; ":memory:" for none. A lock of another
  // process is waited for up to five seconds, here and later.
  explicit SQLiteConnection(const std::string& path);

  // One or more statements without parameters and results.
  void execute(const std::string& sql);

  // Returns the number of rows changed.
  int run(const std::string& sql, const Params& params = {});

  // Calls `each` for every row, in SQLite's order.
  void forEach(const std::string& sql, const Params& params, const std::function<void(const SQLRow&)>& each);

  template <typename Map>
  auto query(const std::string& sql, const Params& params, Map map) {
    std::vector<decltype(map(std::declval<const SQLRow&>()))> rows;
    forEach(sql, params, [&](const SQLRow& row) { rows.push_back(map(row)); });
    return rows;
  }

  // The first row's value, or nothing.
  template <typename Map>
  auto queryOne(const std::string& sql, const Params& params, Map map) {
    std::optional<decltype(map(std::declval<const SQLRow&>()))> first;
    forEach(sql, params, [&](const SQLRow& row) {
      if (!first) first = map(row);
    });
    return first;
  }

  // The first column of the first row; 0 or nothing when there is no row or it is NULL.
  std::int64_t scalarInt(const std::string& sql, const Params& params = {});
  std::optional<std::string> scalarString(const std::string& sql, const Params& params = {});

  std::int64_t lastInsertRowId();

  // Runs `body` in one write transaction: all of its changes or none. Rethrows the first error. Within another, it is a
  // part of that, which can fail without it.
  template <typename Body>
  auto transaction(Body body) {
    Transaction guard(*this);
    if constexpr (std::is_void_v<decltype(body())>) {
      body();
      guard.commit();
    } else {
      auto result = body();
      guard.commit();
      return result;
    }
  }

  // Writes all that is committed to a new database file, also what is still in the log, whoever reads meanwhile.
  void copyTo(const std::string& path);
  // Brings what is committed from the log into the file, as far as nobody reads it from there.
  void mergeLog();
  // Throws `database` when the file is damaged.
  void requireSound();

  int userVersion();
  void setUserVersion(int version);

  // A table that does not exist has no columns. Throws for a name that is no plain identifier.
  bool hasColumn(const std::string& table, const std::string& column);
  void addColumnIfMissing(const std::string& table, const std::string& column, const std::string& definition);

 private:
  class Transaction {
   public:
    explicit Transaction(SQLiteConnection& connection);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    void commit();

   private:
    SQLiteConnection& connection_;
    const bool isPart_;
    bool open_ = true;
  };

  struct Close {
    void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
  };
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;

  class Borrowed;

  Statement prepare(const std::string& sql);
  void bind(sqlite3_stmt* statement, const Params& params);
  [[noreturn]] void fail(std::string_view phrase, std::string_view sql) const;
  void useWriteAheadLog();
  void mergeLargeLog(const std::string& path);
  void disown();
  void requireTransaction() const;
  // `why` the files could not be used, with what to do.
  SkillsError unusable(const std::string& why) const;
  std::string file() const;

  std::unique_ptr<sqlite3, Close> db_;
  bool inTransaction_ = false;
  // Compiled statements by their text, waiting to be used again; declared after the handle so that they go first.
  std::unordered_map<std::string, Statement> idle_;
};

}  // namespace orvanta
