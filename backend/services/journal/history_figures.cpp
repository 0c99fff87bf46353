#include "backend/services/journal/history_figures.h"

#include <algorithm>
#include <iterator>

namespace weir {

namespace {

using std::chrono::duration;

constexpr std::chrono::hours day{24};
constexpr std::chrono::minutes bucket_length{5};

long long bucket_of(WallTime time) { return time.time_since_epoch() / bucket_length; }

double seconds_between(WallTime begin, WallTime end) { return std::max(0.0, duration<double>(end - begin).count()); }

// Another cycle follows: neither the stream nor the server ends.
bool is_restart(const JournalEntry& end) { return end.retry_seconds && end.cause && end.cause != Cause::server_end; }

template <class Items, class IsOld>
void drop_old(Items& items, IsOld is_old) {
  items.erase(items.begin(), std::ranges::find_if_not(items, is_old));
}

}  // namespace

void HistoryFigures::add(const JournalEntry& entry, long long count, WallTime first) {
  if (!entry.stream_id) return;
  if (entry.kind == JournalKind::deleted) {
    if (const auto found = streams_.find(*entry.stream_id); found != streams_.end()) {
      set_active(found->second, false);
      streams_.erase(found);
    }
    return;
  }
  Figures& figures = streams_[*entry.stream_id];
  if (!figures.known_since) figures.known_since = first;
  switch (entry.kind) {
    case JournalKind::started:
      return set_active(figures, true);
    case JournalKind::running:
      figures.on_air_since = entry.time;
      return set_active(figures, true);
    case JournalKind::ended:
      return add_end(figures, entry, count, first);
    case JournalKind::stopped:
    case JournalKind::failed:
      return set_active(figures, false);
    default:
      return;
  }
}

void HistoryFigures::add_end(Figures& figures, const JournalEntry& end, long long count, WallTime first) {
  figures.on_air_since.reset();
  set_active(figures, end.retry_seconds.has_value());
  const auto on_air = std::chrono::duration_cast<WallTime::duration>(duration<double>(end.on_air_seconds.value_or(0)));
  const WallTime begin = count == 1 ? end.time - on_air : first;
  drop_old(figures.runs, [&](const Runs& runs) { return runs.end < end.time - day; });
  if (on_air.count() > 0) {
    if (!figures.runs.empty() && bucket_of(figures.runs.back().begin) == bucket_of(begin)) {
      figures.runs.back().end = end.time;
      figures.runs.back().seconds += *end.on_air_seconds;
    } else {
      figures.runs.push_back({begin, end.time, *end.on_air_seconds});
    }
  }
  if (is_restart(end)) add_restarts(figures, end, count, first);
}

// Those of a crash loop are spread evenly over its time.
void HistoryFigures::add_restarts(Figures& figures, const JournalEntry& end, long long count, WallTime first) {
  const WallTime oldest = end.time - day;
  drop_old(figures.restarts, [&](const Restarts& restarts) { return restarts.bucket < bucket_of(oldest); });
  const double length = seconds_between(first, end.time);
  const auto count_until = [&](WallTime time) {
    const double share = length > 0 ? std::min(1.0, seconds_between(first, time) / length) : 1;
    return static_cast<long long>(share * static_cast<double>(count));
  };
  long long counted = length > 0 ? count_until(oldest) : 0;
  for (long long bucket = bucket_of(std::max(first, oldest)); bucket <= bucket_of(end.time); ++bucket) {
    const long long until_end = count_until(WallTime(bucket_length * (bucket + 1)));
    count_restarts(figures, bucket, *end.cause, until_end - counted);
    counted = until_end;
  }
}

void HistoryFigures::count_restarts(Figures& figures, long long bucket, Cause cause, long long count) {
  if (count <= 0) return;
  const auto found = std::ranges::find_if(
      figures.restarts, [&](const Restarts& restarts) { return restarts.bucket == bucket && restarts.cause == cause; });
  if (found == figures.restarts.end()) {
    figures.restarts.push_back({bucket, cause, static_cast<std::uint32_t>(count)});
  } else {
    found->count += static_cast<std::uint32_t>(count);
  }
}

void HistoryFigures::set_active(Figures& figures, bool active) {
  if (figures.active == active) return;
  figures.active = active;
  active ? ++active_ : --active_;
}

void HistoryFigures::begin(long long stream_id, WallTime time) { streams_[stream_id].known_since = time; }

void HistoryFigures::prepend(HistoryFigures earlier) {
  for (auto& [id, past] : earlier.streams_) {
    Figures& figures = streams_[id];
    if (past.known_since) figures.known_since = past.known_since;
    past.runs.insert(past.runs.end(), figures.runs.begin(), figures.runs.end());
    past.restarts.insert(past.restarts.end(), figures.restarts.begin(), figures.restarts.end());
    figures.runs = std::move(past.runs);
    figures.restarts = std::move(past.restarts);
  }
}

HistorySummary HistoryFigures::summarize(long long stream_id, WallTime now) const {
  HistorySummary summary;
  const auto found = streams_.find(stream_id);
  if (found == streams_.end()) return summary;
  const Figures& figures = found->second;
  const WallTime since = std::max(now - day, figures.known_since.value_or(now));
  for (const Restarts& restarts : figures.restarts) {
    const auto cause = static_cast<std::size_t>(restarts.cause);
    if (restarts.bucket >= bucket_of(now - day)) summary.restarts_last_day[cause] += restarts.count;
    if (restarts.bucket >= bucket_of(now - std::chrono::hours(1))) summary.restarts_last_hour[cause] += restarts.count;
  }
  double seconds = figures.on_air_since ? seconds_between(std::max(since, *figures.on_air_since), now) : 0;
  for (const Runs& runs : figures.runs) {
    const double whole = seconds_between(runs.begin, runs.end);
    const double within = seconds_between(std::max(since, runs.begin), std::min(now, runs.end));
    seconds += whole > 0 ? runs.seconds * within / whole : 0;
  }
  const double whole = seconds_between(since, now);
  if (whole > 0) summary.on_air_percent = std::min(100.0, 100 * seconds / whole);
  return summary;
}

}  // namespace weir
