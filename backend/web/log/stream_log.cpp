#include "backend/web/log/stream_log.h"

#include <fmt/core.h>

#include <algorithm>

#include "backend/base/mask_passwords.h"
#include "backend/base/numbers.h"
#include "backend/base/time_text.h"
#include "backend/platform/sleep.h"
#include "backend/web/response.h"

namespace weir {

namespace {

// How late a line may reach a follower.
constexpr std::chrono::milliseconds follow_interval{250};

bool read_switch(const Request& request, std::string_view name) {
  const std::string_view value = request.query(name);
  if (value.empty() || value == "0") return false;
  if (value != "1") throw HttpError(400, fmt::format("{}: \"{}\" is not 0 or 1", name, value));
  return true;
}

// "[hls @ 0x55d0c8] Opening '/data/hls/7/playlist_0.m3u8.tmp' for writing"
bool tells_of_opened_file(std::string_view line) {
  return line.find("] ") < 64 && line.ends_with(" for writing") && line.find("Opening '") < 100;
}

std::string_view without_line_end(std::string_view line) {
  const std::size_t last = line.find_last_not_of("\r\n");
  return line.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

}  // namespace

LogView parse_log_view(const Request& request) {
  LogView view;
  view.all = read_switch(request, "all");
  view.plain = read_switch(request, "plain");
  view.follow = read_switch(request, "follow");
  if (const std::string_view tail = request.query("tail"); !tail.empty()) {
    const auto lines = parse_integer(tail);
    if (!lines || *lines < 0) throw HttpError(400, fmt::format("tail: \"{}\" is not a number of lines", tail));
    view.tail = static_cast<std::size_t>(*lines);
  }
  return view;
}

// To whoever follows, what comes after the last line end is not a line yet.
std::string LogReader::read(const StandardBuffer& log) {
  std::string text;
  if (!position_) position_ = log.begin();
  if (*position_ < log.begin()) {
    text += fmt::format("({} bytes of the log are not kept)\n", log.begin() - *position_);
    position_ = log.begin();
  }
  const auto& marks = log.marks();
  auto mark = std::ranges::upper_bound(marks, *position_, {}, &StandardBuffer::Mark::position);
  if (mark != marks.begin()) --mark;
  while (mark != marks.begin() && std::prev(mark)->position == *position_) --mark;
  std::string_view rest = log.text_from(*position_);
  WallTime time = mark == marks.end() ? WallTime() : mark->time;
  for (;;) {
    for (; mark != marks.end() && mark->position <= *position_; ++mark) {
      time = mark->time;
      if (mark->cycle > last_cycle_ && mark->position >= log.begin()) append_cycle(text, *mark);
    }
    const std::size_t end = rest.find('\n');
    if (end == std::string_view::npos) break;
    append_line(text, rest.substr(0, end), time);
    rest.remove_prefix(end + 1);
    *position_ += end + 1;
  }
  if (!view_.follow && !rest.empty()) append_line(text, rest, time);
  return may_hold_passwords(text) ? mask_passwords(text) : text;
}

void LogReader::append_cycle(std::string& text, const StandardBuffer::Mark& mark) {
  last_cycle_ = mark.cycle;
  text += fmt::format("{} ---- cycle {} ----\n", to_iso8601(mark.time), mark.cycle);
}

void LogReader::append_line(std::string& text, std::string_view line, WallTime time) const {
  line = without_line_end(line);
  const std::string plain = strip_console_codes(line);
  if (plain.empty() || (!view_.all && tells_of_opened_file(plain))) return;
  text += to_iso8601(time);
  text += ' ';
  text += view_.plain ? std::string_view(plain) : line;
  text += '\n';
}

std::string last_lines(std::string text, std::size_t count) {
  std::size_t begin = text.size();
  for (; count > 0 && begin > 0; --count) {
    const std::size_t end = text.rfind('\n', begin - 1);
    const std::size_t before = end == 0 || end == std::string::npos ? std::string::npos : text.rfind('\n', end - 1);
    begin = before == std::string::npos ? 0 : before + 1;
  }
  return text.substr(begin);
}

LogFollower::LogFollower(std::shared_ptr<Stream> stream, LogView view)
    : stream_(std::move(stream)), view_(view), reader_(view) {}

Async<std::vector<LiveSlice>> LogFollower::next() {
  for (;;) {
    std::string text = reader_.read(stream_->stdbuf);
    if (!begun_ && view_.tail) text = last_lines(std::move(text), *view_.tail);
    begun_ = true;
    if (!text.empty()) {
      const auto owner = std::make_shared<const std::string>(std::move(text));
      std::vector<LiveSlice> slices{{owner, *owner}};
      co_return slices;
    }
    if (stream_->conf->retired()) co_return std::vector<LiveSlice>();
    co_await sleep(follow_interval);
  }
}

}  // namespace weir
