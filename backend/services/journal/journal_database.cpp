#include "backend/services/journal/journal_database.h"

#include <fmt/core.h>

#include <algorithm>
#include <limits>

#include "backend/services/journal/crash_loop.h"

namespace weir {

namespace {

constexpr int schema_version = 1;
constexpr std::chrono::hours aged_interval{1};
// Fewer are given from one write to the next.
constexpr std::uint64_t reserved_numbers = 10'000;
constexpr std::string_view columns =
    "number, time, first, count, kind, stream, label, cycle, input, process, cause, exit_status, cycle_seconds, "
    "on_air_seconds, retry_seconds, by_whom, text";

// Readers such as the sqlite3 program hold up nothing; a writer beside the server holds up the history for so long.
constexpr const char* settings =
    "PRAGMA busy_timeout = 250; PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL; PRAGMA cache_size = -512;"
    "PRAGMA journal_size_limit = 4194304;";

constexpr const char* tables =
    "CREATE TABLE entries(number INTEGER PRIMARY KEY, time INTEGER NOT NULL, first INTEGER NOT NULL, count INTEGER NOT "
    "NULL, kind TEXT NOT NULL, stream INTEGER, label TEXT NOT NULL, cycle INTEGER, input INTEGER, process INTEGER, "
    "cause TEXT, exit_status INTEGER, cycle_seconds REAL, on_air_seconds REAL, retry_seconds REAL, by_whom TEXT NOT "
    "NULL, text TEXT NOT NULL);"
    "CREATE INDEX entries_of_stream ON entries(stream, number, kind);"
    "CREATE TABLE state(name TEXT PRIMARY KEY, value INTEGER NOT NULL) WITHOUT ROWID;";

// Entries that concern the server, not a stream.
constexpr long long no_stream = std::numeric_limits<long long>::min();

std::int64_t to_milliseconds(WallTime time) {
  return std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch()).count();
}
WallTime from_milliseconds(std::int64_t milliseconds) { return WallTime(std::chrono::milliseconds(milliseconds)); }

bool is_kept(JournalKind kind) { return kind != JournalKind::status && kind != JournalKind::launched; }

template <class To>
std::optional<To> narrow(std::optional<std::int64_t> value) {
  if (!value) return std::nullopt;
  return static_cast<To>(*value);
}

HistoryEntry read_row(SqliteStatement& rows) {
  HistoryEntry row;
  JournalEntry& entry = row.entry;
  entry.number = static_cast<std::uint64_t>(rows.read_integer());
  entry.time = from_milliseconds(rows.read_integer());
  row.first = from_milliseconds(rows.read_integer());
  row.count = rows.read_integer();
  entry.kind = parse_journal_kind(rows.read_text()).value_or(JournalKind::notice);
  entry.stream_id = rows.read_optional_integer();
  entry.label = rows.read_text();
  entry.cycle = rows.read_optional_integer();
  entry.input = narrow<int>(rows.read_optional_integer());
  entry.process = narrow<pid_t>(rows.read_optional_integer());
  entry.cause = parse_cause(rows.read_text());
  entry.exit_status = narrow<int>(rows.read_optional_integer());
  entry.cycle_seconds = rows.read_optional_number();
  entry.on_air_seconds = rows.read_optional_number();
  entry.retry_seconds = rows.read_optional_number();
  entry.by = rows.read_text();
  entry.text = rows.read_text();
  return row;
}

void bind_word(SqliteStatement& statement, std::optional<Cause> cause) {
  if (cause) return statement.bind(to_word(*cause));
  statement.bind_null();
}

void bind_row(SqliteStatement& statement, const HistoryEntry& row) {
  const JournalEntry& entry = row.entry;
  statement.bind(static_cast<std::int64_t>(entry.number));
  statement.bind(to_milliseconds(entry.time));
  statement.bind(to_milliseconds(row.first));
  statement.bind(static_cast<std::int64_t>(row.count));
  statement.bind(to_word(entry.kind));
  statement.bind(entry.stream_id);
  statement.bind(std::string_view(entry.label));
  statement.bind(entry.cycle);
  statement.bind(entry.input);
  statement.bind(entry.process);
  bind_word(statement, entry.cause);
  statement.bind(entry.exit_status);
  statement.bind(entry.cycle_seconds);
  statement.bind(entry.on_air_seconds);
  statement.bind(entry.retry_seconds);
  statement.bind(std::string_view(entry.by));
  statement.bind(std::string_view(entry.text));
}

// The words are the server's own: they need no quoting.
template <class Word>
std::string one_of(std::string_view column, const std::vector<Word>& words) {
  std::string list;
  for (const Word word : words) list += fmt::format("{}'{}'", list.empty() ? "" : ", ", to_word(word));
  return fmt::format(" AND {} IN ({})", column, list);
}

std::string make_sql(const HistoryQuery& query) {
  std::string sql = fmt::format("SELECT {} FROM entries WHERE number >= ? AND number < ? AND time >= ?", columns);
  if (query.stream_id) sql += fmt::format(" AND stream = {}", *query.stream_id);
  if (query.stream_id && query.since_added)
    sql += fmt::format(
        " AND number > (SELECT coalesce(max(number), 0) FROM entries WHERE stream = {} AND kind = 'deleted')",
        *query.stream_id);
  if (!query.kinds.empty()) sql += one_of("kind", query.kinds);
  if (!query.causes.empty()) sql += one_of("cause", query.causes);
  return sql + " ORDER BY number DESC LIMIT ?";
}

Sqlite open(const std::string& path) {
  Sqlite sqlite(path);
  sqlite.execute(settings);
  SqliteStatement version = sqlite.prepare("PRAGMA user_version");
  version.step();
  const std::int64_t found = version.read_integer();
  version.reset();
  if (found > schema_version) throw SqliteError::damage(fmt::format("it is of a newer version, {}", found));
  if (found == schema_version) return sqlite;
  SqliteTransaction transaction(sqlite);
  sqlite.execute(tables);
  sqlite.execute(fmt::format("PRAGMA user_version = {}", schema_version).c_str());
  transaction.commit();
  return sqlite;
}

}  // namespace

JournalDatabase::JournalDatabase(const std::string& path, HistoryLimits limits)
    : sqlite_(open(path)),
      limits_(limits),
      insert_(sqlite_.prepare(
          fmt::format("INSERT INTO entries({}) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)", columns))),
      remove_(sqlite_.prepare("DELETE FROM entries WHERE number = ?")),
      latest_two_(sqlite_.prepare(
          fmt::format("SELECT {} FROM entries WHERE stream = ? ORDER BY number DESC LIMIT 2", columns))),
      remove_oldest_(sqlite_.prepare("DELETE FROM entries WHERE number IN (SELECT number FROM entries WHERE stream IS "
                                     "? ORDER BY number LIMIT ?)")),
      set_state_(sqlite_.prepare("INSERT OR REPLACE INTO state(name, value) VALUES(?, ?)")),
      reserved_(static_cast<std::uint64_t>(read_state("reserved").value_or(0))) {}

void JournalDatabase::count_rows() {
  rows_.clear();
  SqliteStatement counts = sqlite_.prepare("SELECT stream, count(*) FROM entries GROUP BY stream");
  while (counts.step()) {
    const long long stream = counts.read_optional_integer().value_or(no_stream);
    rows_[stream] = static_cast<std::size_t>(counts.read_integer());
  }
  rows_counted_ = true;
}

std::uint64_t JournalDatabase::max_number() {
  SqliteStatement newest = sqlite_.prepare("SELECT coalesce(max(number), 0) FROM entries");
  newest.step();
  return static_cast<std::uint64_t>(newest.read_integer());
}

std::uint64_t JournalDatabase::next_number() { return std::max(max_number() + 1, reserved_); }

void JournalDatabase::reserve_numbers(std::uint64_t next) {
  if (next + reserved_numbers / 2 <= reserved_) return;
  set_state("reserved", static_cast<std::int64_t>(next + reserved_numbers));
  reserved_ = next + reserved_numbers;
}

std::optional<std::int64_t> JournalDatabase::read_state(std::string_view name) {
  SqliteStatement state = sqlite_.prepare("SELECT value FROM state WHERE name = ?");
  state.bind(name);
  if (!state.step()) return std::nullopt;
  return state.read_integer();
}

void JournalDatabase::set_state(std::string_view name, std::int64_t value) {
  set_state_.bind(name);
  set_state_.bind(value);
  set_state_.run();
}

void JournalDatabase::close_open_runs() {
  const std::optional<std::int64_t> alive = read_state("alive");
  if (!alive) return;
  rows_counted_ = false;
  SqliteTransaction transaction(sqlite_);
  for (const HistoryEntry& last : latest_of_streams()) close_run(last, from_milliseconds(*alive));
  transaction.commit();
}

// Of what begins or ends their work.
std::vector<HistoryEntry> JournalDatabase::latest_of_streams() {
  std::vector<HistoryEntry> latest;
  SqliteStatement rows = sqlite_.prepare(fmt::format(
      "SELECT {} FROM entries WHERE number IN (SELECT max(number) FROM entries WHERE stream IS NOT NULL AND "
      "kind IN ('started', 'running', 'ended', 'stopped', 'failed', 'deleted') GROUP BY stream)",
      columns));
  while (rows.step()) latest.push_back(read_row(rows));
  return latest;
}

std::vector<JournalEntry> JournalDatabase::open_failures() {
  std::vector<JournalEntry> failures;
  for (const HistoryEntry& last : latest_of_streams())
    if (last.entry.kind == JournalKind::failed) failures.push_back(last.entry);
  return failures;
}

void JournalDatabase::close_run(const HistoryEntry& last, WallTime alive) {
  const JournalKind kind = last.entry.kind;
  const bool between_cycles = kind == JournalKind::ended && last.entry.retry_seconds;
  if (kind != JournalKind::started && kind != JournalKind::running && !between_cycles) return;
  JournalEntry end;
  end.number = next_number();
  end.time = std::max(alive, last.entry.time);
  end.kind = between_cycles ? JournalKind::stopped : JournalKind::ended;
  end.stream_id = last.entry.stream_id;
  end.label = last.entry.label;
  end.cause = Cause::server_end;
  if (kind == JournalKind::running) {
    const double on_air = std::chrono::duration<double>(end.time - last.entry.time).count();
    end.cycle = last.entry.cycle;
    end.input = last.entry.input;
    end.process = last.entry.process;
    end.cycle_seconds = last.entry.cycle_seconds.value_or(0) + on_air;
    end.on_air_seconds = on_air;
  }
  insert({end, 1, end.time});
}

void JournalDatabase::write(std::span<const JournalEntry> entries, WallTime now) {
  if (!rows_counted_) count_rows();
  rows_counted_ = false;
  SqliteTransaction transaction(sqlite_);
  for (const JournalEntry& entry : entries)
    if (is_kept(entry.kind)) add(entry);
  remove_aged(now);
  set_state("alive", to_milliseconds(now));
  transaction.commit();
  rows_counted_ = true;
}

void JournalDatabase::add(const JournalEntry& entry) {
  if (entry.kind == JournalKind::ended && extend_loop(entry)) return;
  insert({entry, 1, entry.time});
  remove_excess(entry.stream_id);
}

// Between two ends of a loop stands at most the first progress of the later cycle.
bool JournalDatabase::extend_loop(const JournalEntry& end) {
  std::vector<HistoryEntry> latest;
  latest_two_.bind(end.stream_id);
  while (latest_two_.step()) latest.push_back(read_row(latest_two_));
  const bool has_run =
      !latest.empty() && latest[0].entry.kind == JournalKind::running && latest[0].entry.cycle == end.cycle;
  const std::size_t last = has_run ? 1 : 0;
  if (latest.size() <= last || !repeats_end(latest[last].entry, end)) return false;
  for (std::size_t i = 0; i <= last; ++i) remove(latest[i]);
  insert(extend(latest[last], end));
  return true;
}

void JournalDatabase::insert(const HistoryEntry& row) {
  bind_row(insert_, row);
  insert_.run();
  ++rows_[row.entry.stream_id.value_or(no_stream)];
}

void JournalDatabase::remove(const HistoryEntry& row) {
  remove_.bind(static_cast<std::int64_t>(row.entry.number));
  remove_.run();
  --rows_[row.entry.stream_id.value_or(no_stream)];
}

void JournalDatabase::remove_excess(std::optional<long long> stream_id) {
  std::size_t& count = rows_[stream_id.value_or(no_stream)];
  if (count <= limits_.entries_per_stream) return;
  remove_oldest_.bind(stream_id);
  remove_oldest_.bind(static_cast<std::int64_t>(count - limits_.entries_per_stream));
  remove_oldest_.run();
  count = limits_.entries_per_stream;
}

void JournalDatabase::remove_aged(WallTime now) {
  if (aged_removed_ && now - *aged_removed_ < aged_interval) return;
  aged_removed_ = now;
  SqliteStatement aged = sqlite_.prepare("DELETE FROM entries WHERE number < ?");
  aged.bind(static_cast<std::int64_t>(first_number_since(now - limits_.age)));
  aged.run();
  if (sqlite_.changes() > 0) count_rows();
}

// By bisection: there is no index of times.
std::uint64_t JournalDatabase::first_number_since(WallTime since) {
  SqliteStatement at_or_after =
      sqlite_.prepare("SELECT number, time FROM entries WHERE number >= ? ORDER BY number LIMIT 1");
  std::uint64_t low = 0;
  std::uint64_t high = max_number() + 1;
  while (low < high) {
    const std::uint64_t middle = low + (high - low) / 2;
    at_or_after.bind(static_cast<std::int64_t>(middle));
    at_or_after.step();
    const auto number = static_cast<std::uint64_t>(at_or_after.read_integer());
    const WallTime time = from_milliseconds(at_or_after.read_integer());
    at_or_after.reset();
    if (time < since) {
      low = number + 1;
    } else {
      high = middle;
    }
  }
  return low;
}

std::vector<HistoryEntry> JournalDatabase::find(const HistoryQuery& query) {
  constexpr std::uint64_t no_end = std::numeric_limits<std::int64_t>::max();
  const std::uint64_t begin = query.since ? first_number_since(*query.since) : 0;
  SqliteStatement rows = sqlite_.prepare(make_sql(query));
  rows.bind(static_cast<std::int64_t>(std::max(begin, query.after ? *query.after + 1 : 0)));
  rows.bind(static_cast<std::int64_t>(query.before.value_or(no_end)));
  rows.bind(query.since ? to_milliseconds(*query.since) : std::numeric_limits<std::int64_t>::min());
  rows.bind(static_cast<std::int64_t>(query.limit));
  std::vector<HistoryEntry> found;
  while (rows.step()) found.push_back(read_row(rows));
  return found;
}

void JournalDatabase::visit_since(WallTime since, const std::function<void(const HistoryEntry&)>& visit) {
  SqliteStatement rows =
      sqlite_.prepare(fmt::format("SELECT {} FROM entries WHERE number >= ? ORDER BY number", columns));
  rows.bind(static_cast<std::int64_t>(first_number_since(since)));
  while (rows.step()) visit(read_row(rows));
}

void JournalDatabase::visit_first_times(const std::function<void(long long, WallTime)>& visit) {
  SqliteStatement rows = sqlite_.prepare(
      "SELECT stream, first FROM entries WHERE number IN (SELECT min(number) FROM entries LEFT JOIN (SELECT stream AS "
      "id, max(number) AS deleted FROM entries WHERE kind = 'deleted' GROUP BY stream) ON id = stream WHERE stream IS "
      "NOT NULL AND number > coalesce(deleted, 0) GROUP BY stream)");
  while (rows.step()) {
    const long long stream = rows.read_integer();
    visit(stream, from_milliseconds(rows.read_integer()));
  }
}

}  // namespace weir
