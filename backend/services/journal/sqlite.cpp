#include "backend/services/journal/sqlite.h"

#include <sqlite3.h>

namespace weir {

namespace {

[[noreturn]] void fail(sqlite3* database, int code) {
  throw SqliteError(code, database ? sqlite3_errmsg(database) : sqlite3_errstr(code));
}

}  // namespace

SqliteError SqliteError::damage(const std::string& message) { return {SQLITE_NOTADB, message}; }

bool SqliteError::is_damage() const noexcept {
  const int primary = code_ & 0xFF;
  return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
}

SqliteStatement::SqliteStatement(sqlite3* database, std::string_view sql) : database_(database) {
  sqlite3_stmt* statement = nullptr;
  check(sqlite3_prepare_v2(database, sql.data(), static_cast<int>(sql.size()), &statement, nullptr));
  statement_.reset(statement);
}

void SqliteStatement::Finalize::operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }

void SqliteStatement::check(int code) const {
  if (code != SQLITE_OK) fail(database_, code);
}

void SqliteStatement::bind(std::int64_t value) { check(sqlite3_bind_int64(statement_.get(), ++parameter_, value)); }

void SqliteStatement::bind(double value) { check(sqlite3_bind_double(statement_.get(), ++parameter_, value)); }

void SqliteStatement::bind(std::string_view value) {
  check(sqlite3_bind_text64(statement_.get(), ++parameter_, value.data(), value.size(), SQLITE_TRANSIENT, SQLITE_UTF8));
}

void SqliteStatement::bind_null() { check(sqlite3_bind_null(statement_.get(), ++parameter_)); }

bool SqliteStatement::step() {
  column_ = 0;
  const int code = sqlite3_step(statement_.get());
  if (code == SQLITE_ROW) return true;
  reset();
  if (code != SQLITE_DONE) fail(database_, code);
  return false;
}

void SqliteStatement::run() {
  while (step()) continue;
}

void SqliteStatement::reset() noexcept {
  sqlite3_reset(statement_.get());
  parameter_ = 0;
}

std::int64_t SqliteStatement::read_integer() { return sqlite3_column_int64(statement_.get(), column_++); }

std::string SqliteStatement::read_text() {
  const unsigned char* text = sqlite3_column_text(statement_.get(), column_);
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column_++));
  return text ? std::string(text, text + size) : std::string();
}

std::optional<std::int64_t> SqliteStatement::read_optional_integer() {
  if (sqlite3_column_type(statement_.get(), column_) != SQLITE_NULL) return read_integer();
  ++column_;
  return std::nullopt;
}

std::optional<double> SqliteStatement::read_optional_number() {
  if (sqlite3_column_type(statement_.get(), column_) != SQLITE_NULL)
    return sqlite3_column_double(statement_.get(), column_++);
  ++column_;
  return std::nullopt;
}

Sqlite::Sqlite(const std::string& path) {
  sqlite3* database = nullptr;
  constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
  const int code = sqlite3_open_v2(path.c_str(), &database, flags, nullptr);
  database_.reset(database);
  if (code != SQLITE_OK) fail(database, code);
}

void Sqlite::Close::operator()(sqlite3* database) const noexcept { sqlite3_close_v2(database); }

void Sqlite::execute(const char* sql) {
  const int code = sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr);
  if (code != SQLITE_OK) fail(database_.get(), code);
}

int Sqlite::changes() const noexcept { return sqlite3_changes(database_.get()); }

// A failure may have rolled back already.
SqliteTransaction::~SqliteTransaction() {
  if (done_) return;
  try {
    database_.execute("ROLLBACK");
  } catch (const SqliteError&) {
  }
}

void SqliteTransaction::commit() {
  database_.execute("COMMIT");
  done_ = true;
}

}  // namespace weir
