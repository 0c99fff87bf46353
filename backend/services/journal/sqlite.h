#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

struct sqlite3;
struct sqlite3_stmt;

namespace weir {

/// What SQLite answered in place of doing what it was asked for.
class SqliteError : public std::runtime_error {
 public:
  SqliteError(int code, const std::string& message) : std::runtime_error(message), code_(code) {}

  /// The file cannot be used as it is.
  static SqliteError damage(const std::string& message);
  /// Whether the file holds no database, or a damaged one.
  bool is_damage() const noexcept;

 private:
  int code_;
};

/// A prepared statement. Parameters and columns count from 0 and go on by themselves: `bind` sets the next parameter,
/// `read_…` the next column of the row.
class SqliteStatement {
 public:
  void bind(std::int64_t value);
  void bind(double value);
  void bind(std::string_view value);
  void bind_null();
  template <class T>
  void bind(const std::optional<T>& value) {
    if (!value) return bind_null();
    if constexpr (std::is_floating_point_v<T>) {
      bind(static_cast<double>(*value));
    } else {
      bind(static_cast<std::int64_t>(*value));
    }
  }

  /// Whether there is a next row; after the last one, or `reset`, the statement can be bound again.
  bool step();
  /// For statements without rows.
  void run();
  void reset() noexcept;

  std::int64_t read_integer();
  std::string read_text();
  std::optional<std::int64_t> read_optional_integer();
  std::optional<double> read_optional_number();

 private:
  friend class Sqlite;
  SqliteStatement(sqlite3* database, std::string_view sql);

  struct Finalize {
    void operator()(sqlite3_stmt* statement) const noexcept;
  };
  void check(int code) const;

  sqlite3* database_;
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
  int parameter_ = 0;
  int column_ = 0;
};

/// A connection to a database file, for one thread at a time. What fails throws `SqliteError`.
class Sqlite {
 public:
  /// Opens the file, or creates it.
  explicit Sqlite(const std::string& path);

  /// Runs statements without parameters.
  void execute(const char* sql);
  SqliteStatement prepare(std::string_view sql) { return {database_.get(), sql}; }
  /// Rows that the last statement changed.
  int changes() const noexcept;

 private:
  struct Close {
    void operator()(sqlite3* database) const noexcept;
  };
  std::unique_ptr<sqlite3, Close> database_;
};

/// Everything up to `commit` or nothing.
class SqliteTransaction {
 public:
  explicit SqliteTransaction(Sqlite& database) : database_(database) { database_.execute("BEGIN IMMEDIATE"); }
  ~SqliteTransaction();
  SqliteTransaction(const SqliteTransaction&) = delete;
  SqliteTransaction& operator=(const SqliteTransaction&) = delete;

  void commit();

 private:
  Sqlite& database_;
  bool done_ = false;
};

}  // namespace weir
