#include "persistence/SQLite.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <system_error>
#include <thread>

#include "foundations/Text.h"
#include "persistence/DatabaseFiles.h"

namespace orvanta {

namespace {

constexpr std::string_view kExecuting = " — while executing: ";
constexpr std::string_view kPreparing = " — while preparing: ";
constexpr std::string_view kRunning = " — while running: ";
constexpr std::string_view kQuerying = " — while querying: ";

constexpr int kBusyMillis = 5000;

// Why a file of the database could not be read, written or opened, and what to do about that; nothing for an error that
// has another cause. SQLite says that it could not, the system says why.
std::optional<std::string> fileTrouble(sqlite3* db, const std::string& file) {
  constexpr int kPrimaryCode = 0xff;
  const int code = sqlite3_errcode(db) & kPrimaryCode;
  const bool isClosed = code == SQLITE_READONLY || code == SQLITE_CANTOPEN;
  if (code != SQLITE_FULL && code != SQLITE_IOERR && !isClosed) return std::nullopt;
  // Of a closed file the last error would be that of a second try, to open it for reading only.
  int error = isClosed ? whyNotWritable(file) : sqlite3_system_errno(db);
  if (code == SQLITE_FULL) error = ENOSPC;
  const bool isFull = error == ENOSPC || error == EDQUOT;
  std::string reason = isFull ? "the disk is full" : sqlite3_errmsg(db);
  if (error != 0) reason += " (" + std::generic_category().message(error) + ")";
  const char* const advice = isFull     ? "make room there"
                             : isClosed ? "make it and its folder writable"
                                        : "check the disk";
  return reason + "; " + advice + ", then try again";
}

void requireIdentifier(const std::string& name) {
  const bool valid = !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
  });
  if (!valid) throw SkillsError::database("Invalid SQL identifier: " + name);
}

// Texts are bound without a copy: the parameters outlive the run of the statement.
int bindValue(sqlite3_stmt* statement, int position, const SQLValue& value) {
  const auto& payload = value.payload();
  if (const auto* integer = std::get_if<std::int64_t>(&payload)) {
    return sqlite3_bind_int64(statement, position, *integer);
  }
  if (const auto* real = std::get_if<double>(&payload)) return sqlite3_bind_double(statement, position, *real);
  if (const auto* text = std::get_if<std::string>(&payload)) {
    return sqlite3_bind_text(statement, position, text->data(), static_cast<int>(text->size()), SQLITE_STATIC);
  }
  return sqlite3_bind_null(statement, position);
}

}  // namespace

std::optional<std::string> SQLRow::string(int column) const {
  if (isNull(column)) return std::nullopt;
  return std::string(text(column));
}

std::string_view SQLRow::text(int column) const {
  const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
  if (bytes == nullptr) return {};
  return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column))};
}

std::optional<std::int64_t> SQLRow::int64(int column) const {
  if (isNull(column)) return std::nullopt;
  return sqlite3_column_int64(statement_, column);
}

std::optional<double> SQLRow::real(int column) const {
  if (isNull(column)) return std::nullopt;
  return sqlite3_column_double(statement_, column);
}

// A compiled statement for the time of one run: taken out of the idle ones, so that a query that runs inside another
// with the same text gets its own, and put back reset.
class SQLiteConnection::Borrowed {
 public:
  Borrowed(SQLiteConnection& connection, const std::string& sql) : connection_(connection), sql_(sql) {
    const auto idle = connection.idle_.find(sql);
    if (idle == connection.idle_.end()) {
      statement_ = connection.prepare(sql);
    } else {
      statement_ = std::move(idle->second);
      connection.idle_.erase(idle);
    }
  }
  ~Borrowed() {
    sqlite3_reset(statement_.get());
    sqlite3_clear_bindings(statement_.get());
    connection_.idle_.insert_or_assign(sql_, std::move(statement_));
  }
  Borrowed(const Borrowed&) = delete;
  Borrowed& operator=(const Borrowed&) = delete;

  [[nodiscard]] sqlite3_stmt* get() const { return statement_.get(); }

 private:
  SQLiteConnection& connection_;
  const std::string& sql_;
  Statement statement_;
};

SQLiteConnection::SQLiteConnection(const std::string& path) {
  sqlite3* handle = nullptr;
  const int result = sqlite3_open_v2(
      path.c_str(), &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, databaseFileLayer());
  db_.reset(handle);
  if (result != SQLITE_OK) {
    throw SkillsError::database("Cannot open database at " + path + ": " +
                                fileTrouble(handle, path).value_or(sqlite3_errmsg(handle)));
  }
  sqlite3_busy_timeout(handle, kBusyMillis);
  sqlite3_db_config(handle, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  execute("PRAGMA foreign_keys = ON;");
  useWriteAheadLog();
  mergeLargeLog(path);
}

// What is committed stays in the log, which is one flush; to merge it takes three more, and is done where it has grown
// so that reading it would be felt at every start. Where that fails, as on a full disk, the log can still be read.
void SQLiteConnection::mergeLargeLog(const std::string& path) {
  constexpr std::uintmax_t kLarge = 1U << 20;
  std::error_code error;
  const auto size = std::filesystem::file_size(path + "-wal", error);
  execute("PRAGMA wal_autocheckpoint = 16000;");
  if (error || size <= kLarge) return;
  sqlite3_wal_checkpoint_v2(db_.get(), nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
}

// SQLite does not wait for other processes before it changes the journal, so waiting is done here: several may open a
// new library at once.
void SQLiteConnection::useWriteAheadLog() {
  const std::string sql = "PRAGMA journal_mode = WAL;";
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kBusyMillis);
  while (sqlite3_exec(db_.get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
    if (sqlite3_errcode(db_.get()) != SQLITE_BUSY || std::chrono::steady_clock::now() >= deadline)
      fail(kExecuting, sql);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

void SQLiteConnection::execute(const std::string& sql) {
  if (sqlite3_exec(db_.get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) fail(kExecuting, sql);
}

int SQLiteConnection::run(const std::string& sql, const Params& params) {
  requireTransaction();
  const Borrowed statement(*this, sql);
  bind(statement.get(), params);
  const int result = sqlite3_step(statement.get());
  if (result != SQLITE_ROW && result != SQLITE_DONE) fail(kRunning, sql);
  return sqlite3_changes(db_.get());
}

void SQLiteConnection::forEach(const std::string& sql, const Params& params,
                               const std::function<void(const SQLRow&)>& each) {
  requireTransaction();
  const Borrowed statement(*this, sql);
  bind(statement.get(), params);
  int result = sqlite3_step(statement.get());
  for (; result == SQLITE_ROW; result = sqlite3_step(statement.get())) each(SQLRow(statement.get()));
  if (result != SQLITE_DONE) fail(kQuerying, sql);
}

std::int64_t SQLiteConnection::scalarInt(const std::string& sql, const Params& params) {
  const auto first = queryOne(sql, params, [](const SQLRow& row) { return row.int64(0).value_or(0); });
  return first.value_or(0);
}

std::optional<std::string> SQLiteConnection::scalarString(const std::string& sql, const Params& params) {
  const auto first = queryOne(sql, params, [](const SQLRow& row) { return row.string(0); });
  return first.value_or(std::nullopt);
}

std::int64_t SQLiteConnection::lastInsertRowId() { return sqlite3_last_insert_rowid(db_.get()); }

void SQLiteConnection::copyTo(const std::string& path) {
  SQLiteConnection copy(path);
  sqlite3_backup* backup = sqlite3_backup_init(copy.db_.get(), "main", db_.get(), "main");
  if (backup == nullptr) copy.fail(kExecuting, "copy to " + path);
  constexpr int kAllPages = -1;
  sqlite3_backup_step(backup, kAllPages);
  // Ends the copy and says how it went, the step before included.
  if (sqlite3_backup_finish(backup) != SQLITE_OK) copy.fail(kExecuting, "copy to " + path);
  copy.mergeLog();
}

void SQLiteConnection::mergeLog() { execute("PRAGMA wal_checkpoint(TRUNCATE)"); }

void SQLiteConnection::requireSound() {
  const auto answer = scalarString("PRAGMA quick_check(1)");
  if (answer != "ok") throw SkillsError::database("The database is damaged: " + answer.value_or("it cannot be read"));
}

int SQLiteConnection::userVersion() { return static_cast<int>(scalarInt("PRAGMA user_version")); }

void SQLiteConnection::setUserVersion(int version) { execute("PRAGMA user_version = " + std::to_string(version)); }

bool SQLiteConnection::hasColumn(const std::string& table, const std::string& column) {
  requireIdentifier(table);
  const auto names = query("PRAGMA table_info(" + table + ")", {}, [](const SQLRow& row) { return row.string(1); });
  return std::find(names.begin(), names.end(), column) != names.end();
}

void SQLiteConnection::addColumnIfMissing(const std::string& table, const std::string& column,
                                          const std::string& definition) {
  requireIdentifier(table);
  requireIdentifier(column);
  if (hasColumn(table, column)) return;
  execute("ALTER TABLE " + table + " ADD COLUMN " + column + " " + definition);
}

SQLiteConnection::Statement SQLiteConnection::prepare(const std::string& sql) {
  sqlite3_stmt* compiled = nullptr;
  const int result = sqlite3_prepare_v2(db_.get(), sql.c_str(), -1, &compiled, nullptr);
  Statement statement(compiled);
  if (result != SQLITE_OK || compiled == nullptr) fail(kPreparing, sql);
  return statement;
}

void SQLiteConnection::bind(sqlite3_stmt* statement, const Params& params) {
  int position = 0;
  for (const auto& value : params) {
    if (bindValue(statement, ++position, value) != SQLITE_OK) {
      throw SkillsError::database(std::string("bind failed: ") + sqlite3_errmsg(db_.get()));
    }
  }
}

void SQLiteConnection::fail(std::string_view phrase, std::string_view sql) const {
  constexpr std::size_t kShown = 120;
  if (const auto trouble = fileTrouble(db_.get(), file())) throw unusable(*trouble);
  std::string message = sqlite3_errmsg(db_.get());
  message += phrase;
  message += Text::prefixCharacters(sql, kShown);
  throw SkillsError::database(message);
}

// On a full disk and the like SQLite rolls the whole transaction back by itself. If that error was swallowed, as the
// audit log's are, the statements after it must not go on one by one.
void SQLiteConnection::requireTransaction() const {
  if (inTransaction_ && sqlite3_get_autocommit(db_.get()) != 0) {
    throw unusable("the disk may be full or failing; see to it, then try again");
  }
}

SkillsError SQLiteConnection::unusable(const std::string& why) const {
  const std::string outcome = inTransaction_ ? "written, and the change was taken back: " : "used: ";
  return SkillsError::database("The database " + file() + " could not be " + outcome + why);
}

std::string SQLiteConnection::file() const {
  const char* const name = sqlite3_db_filename(db_.get(), "main");
  return name != nullptr ? name : ":memory:";
}

SQLiteConnection::Transaction::Transaction(SQLiteConnection& connection)
    : connection_(connection), isPart_(connection.inTransaction_) {
  connection_.execute(isPart_ ? "SAVEPOINT part" : "BEGIN IMMEDIATE");
  connection_.inTransaction_ = true;
}

SQLiteConnection::Transaction::~Transaction() {
  // SQLite itself rolls back on some errors; that there is nothing left to roll back is no failure.
  connection_.inTransaction_ = isPart_;
  const char* const undo = isPart_ ? "ROLLBACK TO part; RELEASE part" : "ROLLBACK";
  if (open_) sqlite3_exec(connection_.db_.get(), undo, nullptr, nullptr, nullptr);
}

void SQLiteConnection::Transaction::commit() {
  connection_.requireTransaction();
  try {
    connection_.execute(isPart_ ? "RELEASE part" : "COMMIT");
  } catch (const SkillsError&) {
    if (!isPart_) connection_.disown();
    throw;
  }
  open_ = false;
}

// Where only the flush of a commit failed, all of it stands in the log, and the next to open the database would take it
// for committed. Another transaction takes its place there.
void SQLiteConnection::disown() {
  sqlite3_exec(db_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
  const char* const other = "BEGIN IMMEDIATE; CREATE TABLE disowned (x); DROP TABLE disowned; COMMIT";
  if (sqlite3_exec(db_.get(), other, nullptr, nullptr, nullptr) == SQLITE_OK) return;
  sqlite3_exec(db_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
}

}  // namespace orvanta
