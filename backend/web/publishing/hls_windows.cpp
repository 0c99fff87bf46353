#include "backend/web/publishing/hls_windows.h"

#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "backend/base/bounded_json.h"
#include "backend/base/log.h"
#include "backend/base/numbers.h"
#include "backend/collaborators/config.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"

namespace weir {

namespace {

constexpr std::size_t max_playlist_bytes = 1 << 20;

std::string windows_directory() { return join_path(Config::HLS_DIRECTORY, "windows"); }

std::string live_path(long long stream_id, std::string_view name) {
  return join_path(join_path(Config::HLS_DIRECTORY, std::to_string(stream_id)), name);
}

std::string kept_directory(long long stream_id) { return join_path(windows_directory(), std::to_string(stream_id)); }

std::string kept_path(long long stream_id, std::string_view name) { return join_path(kept_directory(stream_id), name); }

// Nothing when the file is absent or is no such playlist.
std::optional<MediaPlaylist> read_playlist(const std::string& path, std::size_t rendition) {
  try {
    return parse_media_playlist(read_file(path, max_playlist_bytes), rendition);
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

/// Runs a step that must not keep a stream from its work.
template <class Step>
void log_failure(long long stream_id, std::string_view what, const Step& step) {
  try {
    step();
  } catch (const std::exception& failure) {
    log(LogLevel::error, "HLS", fmt::format("Stream {}: {}: {}", stream_id, what, failure.what()));
  }
}

std::string window_path(long long stream_id) {
  return join_path(windows_directory(), fmt::format("{}.json", stream_id));
}

void save(long long stream_id, HlsWindow& window) {
  update_file(window_path(stream_id), format_window(window));
  window.has_file = true;
}

// A rename costs half of a link and its removal, and loses nothing: the directory is about to be emptied.
void keep_segment(long long stream_id, const std::string& name) {
  if (::rename(live_path(stream_id, name).c_str(), kept_path(stream_id, name).c_str()) != 0 && errno != ENOENT)
    throw_errno(live_path(stream_id, name));
}

// The number of a rendition's segment from its file's name.
std::optional<long long> parse_segment_name(const std::string& name, std::size_t rendition) {
  const std::string prefix = fmt::format("playlist_{}_", rendition);
  if (!name.starts_with(prefix) || !name.ends_with(".ts")) return std::nullopt;
  return parse_integer(std::string_view(name).substr(prefix.size(), name.size() - prefix.size() - 3));
}

void remove_older_segments(long long stream_id, std::size_t rendition, long long oldest) {
  for (const std::string& name : names_in(kept_directory(stream_id))) {
    const auto number = parse_segment_name(name, rendition);
    if (number && *number < oldest) ::unlink(kept_path(stream_id, name).c_str());
  }
}

// The streams that have a window.
std::vector<long long> ids_in(const std::string& directory) {
  std::vector<long long> ids;
  for (const std::filesystem::path name : names_in(directory)) {
    const std::string stem = name.stem();
    if (name.extension() == ".json" && is_number(stem)) ids.push_back(parse_integer(stem).value_or(-1));
  }
  return ids;
}

// A new rendition begins beside the others. Those of a new stream begin at the time of day: whatever had its id before
// made a segment a second or fewer.
long long choose_first_number(const HlsWindow& window) {
  long long first = 0;
  for (const HlsWindow::Rendition& rendition : window.renditions) first = std::max(first, rendition.first_number);
  return first > 0 ? first : wall_seconds();
}

// The last of the segments, which a playlist shows.
std::vector<HlsSegment> select_shown(std::vector<HlsSegment> all, const HlsWindow& window, std::size_t rendition) {
  std::erase_if(all, [&](const HlsSegment& s) { return s.number < window.renditions[rendition].first_shown; });
  const auto at_least = static_cast<std::size_t>(std::max(window.cycle.list_size, 1));
  const std::size_t shown = count_shown(all, at_least, window.target_duration);
  all.erase(all.begin(), all.end() - static_cast<std::ptrdiff_t>(shown));
  return all;
}

// The number of segments that have left the playlist and can still be fetched, for as long as the longest playlist that
// showed them. Each left when one of the newest came.
std::size_t count_owed(const std::vector<HlsSegment>& all, const HlsWindow& window) {
  const double longest = std::max(window.cycle.list_size, 4) * window.target_duration;
  double duration = 0;
  std::size_t owed = 0;
  while (owed < all.size() && duration < longest) duration += all[all.size() - ++owed].duration;
  return owed;
}

}  // namespace

void HlsWindows::adopt() {
  make_directory(windows_directory());
  for (const long long id : ids_in(windows_directory()))
    log_failure(id, "The window of the earlier server is lost", [&] { adopt_stream(id); });
}

void HlsWindows::adopt_stream(long long stream_id) {
  HlsWindow window = parse_window(read_file(window_path(stream_id), max_document_bytes));
  for (std::size_t v = 0; v < window.renditions.size(); ++v) {
    if (auto playlist = read_playlist(kept_path(stream_id, media_playlist_name(v)), v))
      window.renditions[v].kept = std::move(playlist->segments);
  }
  keep(stream_id, window);
  windows_[stream_id] = std::move(window);
}

std::vector<long long> HlsWindows::begin_cycle(long long stream_id, const HlsCycle& cycle) {
  HlsWindow& window = windows_[stream_id];
  const bool same_segments =
      window.cycle.segment_time == cycle.segment_time && window.cycle.has_fixed_segments == cycle.has_fixed_segments;
  if (!same_segments) window.target_duration = 0;
  const long long first_of_new = choose_first_number(window);
  window.renditions.resize(cycle.renditions.size());
  std::vector<long long> first_numbers;
  for (HlsWindow::Rendition& rendition : window.renditions) {
    if (rendition.first_number == 0) rendition.first_number = first_of_new;
    first_numbers.push_back(rendition.first_number);
  }
  window.cycle = cycle;
  window.is_running = true;
  ++window.revision;
  // What nobody has seen need not be remembered, and new files are much of what a start of many streams costs.
  if (window.has_file) log_failure(stream_id, "The HLS window can't be saved", [&] { save(stream_id, window); });
  return first_numbers;
}

void HlsWindows::end_cycle(long long stream_id) {
  const auto found = windows_.find(stream_id);
  if (found == windows_.end() || !found->second.is_running) return;
  log_failure(stream_id, "The HLS window can't be kept", [&] { keep(stream_id, found->second); });
}

// Ends the cycle. What viewers still need of it leaves the directory that is about to be emptied.
void HlsWindows::keep(long long stream_id, HlsWindow& window) {
  window.is_running = false;
  ++window.revision;
  std::vector<std::vector<HlsSegment>> all;
  for (std::size_t v = 0; v < window.renditions.size(); ++v) {
    all.push_back(segments(stream_id, window, v));
    window.target_duration = choose_target_duration(window.target_duration, window.cycle, all[v]);
  }
  const bool has_new = std::ranges::any_of(
      all, [&](const auto& list) { return !list.empty() && list.back().discontinuity == window.discontinuity; });
  make_directory(kept_directory(stream_id));
  for (std::size_t v = 0; v < window.renditions.size(); ++v) keep_rendition(stream_id, window, v, std::move(all[v]));
  if (has_new) ++window.discontinuity;
  save(stream_id, window);
}

// Keeps what viewers may still fetch, which the cycle after this one may have to keep again.
void HlsWindows::keep_rendition(long long stream_id, HlsWindow& window, std::size_t index,
                                std::vector<HlsSegment> all) {
  HlsWindow::Rendition& rendition = window.renditions[index];
  const std::size_t shown = select_shown(all, window, index).size();
  const std::size_t fetchable = std::min(shown + count_owed(all, window), all.size());
  all.erase(all.begin(), all.end() - static_cast<std::ptrdiff_t>(fetchable));
  for (const HlsSegment& segment : all) {
    if (segment.number >= rendition.first_number) keep_segment(stream_id, segment_name(index, segment.number));
  }
  if (!all.empty()) {
    rendition.first_number = std::max(rendition.first_number, all.back().number + 1);
    remove_older_segments(stream_id, index, all.front().number);
  }
  rendition.first_number = std::max(rendition.first_number, rendition.last_shown + 1);
  rendition.kept = std::move(all);
  const MediaPlaylist playlist{.rendition = index,
                               .target_duration = window.target_duration,
                               .independent_segments = window.cycle.independent_segments,
                               .segments = rendition.kept};
  replace_file(kept_path(stream_id, media_playlist_name(index)), format_media_playlist(playlist));
}

const HlsWindow* HlsWindows::find(long long stream_id) const {
  const auto found = windows_.find(stream_id);
  return found == windows_.end() ? nullptr : &found->second;
}

std::vector<HlsSegment> HlsWindows::segments(long long stream_id, const HlsWindow& window,
                                             std::size_t rendition) const {
  const HlsWindow::Rendition& own = window.renditions[rendition];
  const auto live = read_playlist(live_path(stream_id, media_playlist_name(rendition)), rendition);
  return join_cycles(own.kept, live ? live->segments : std::vector<HlsSegment>{}, own.first_number,
                     window.discontinuity);
}

MediaPlaylist HlsWindows::show(long long stream_id, std::size_t rendition) {
  const auto found = windows_.find(stream_id);
  if (found == windows_.end() || rendition >= found->second.renditions.size()) return {};
  HlsWindow& window = found->second;
  std::vector<HlsSegment> shown = segments(stream_id, window, rendition);
  const int target = choose_target_duration(window.target_duration, window.cycle, shown);
  if (std::exchange(window.target_duration, target) != target)
    log_failure(stream_id, "The HLS window can't be saved", [&] { save(stream_id, window); });
  shown = select_shown(std::move(shown), window, rendition);
  if (!shown.empty()) {
    window.renditions[rendition].first_shown = shown.front().number;
    window.renditions[rendition].last_shown = shown.back().number;
  }
  return {.rendition = rendition,
          .target_duration = target,
          .independent_segments = window.cycle.independent_segments,
          .segments = std::move(shown)};
}

std::string HlsWindows::find_file(long long stream_id, const std::string& name) {
  std::string live = live_path(stream_id, name);
  return ::access(live.c_str(), F_OK) == 0 ? live : kept_path(stream_id, name);
}

bool HlsWindows::is_published(long long stream_id, bool active) {
  const auto found = windows_.find(stream_id);
  if (found == windows_.end()) return active;
  HlsWindow& window = found->second;
  if (window.ended_at.has_value() == active) {
    window.ended_at = active ? std::nullopt : std::optional(now());
    ++window.revision;
  }
  return active || now() - *window.ended_at <= end_notice;
}

void HlsWindows::sweep(const std::function<StreamState(long long)>& state_of) {
  std::vector<long long> deleted;
  for (auto& [id, window] : windows_) {
    const StreamState state = state_of(id);
    const bool active = state == StreamState::active;
    if (is_published(id, active) && !(active && has_moved_on(id, window))) continue;
    if (state == StreamState::deleted) deleted.push_back(id);
    if (window.has_kept()) log_failure(id, "The HLS window can't be removed", [&] { drop_kept(id, window); });
  }
  for (const long long id : deleted) {
    log_failure(id, "The HLS window can't be removed", [&] {
      remove_directory(kept_directory(id));
      std::filesystem::remove(window_path(id));
    });
    windows_.erase(id);
  }
}

// Whether viewers need nothing more of the cycles before: the transcoder itself has dropped as many segments from its
// list as a playlist shows.
bool HlsWindows::has_moved_on(long long stream_id, const HlsWindow& window) const {
  for (std::size_t v = 0; v < window.renditions.size(); ++v) {
    const HlsWindow::Rendition& rendition = window.renditions[v];
    if (rendition.kept.empty()) continue;
    const auto live = read_playlist(live_path(stream_id, media_playlist_name(v)), v);
    const bool has_dropped_enough =
        live && !live->segments.empty() &&
        live->segments.front().number >= rendition.first_number + std::max(window.cycle.list_size, 1);
    if (!has_dropped_enough) return false;
  }
  return true;
}

void HlsWindows::drop_kept(long long stream_id, HlsWindow& window) {
  for (HlsWindow::Rendition& rendition : window.renditions) rendition.kept.clear();
  ++window.revision;
  remove_directory(kept_directory(stream_id));
}

}  // namespace weir
