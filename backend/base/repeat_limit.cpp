#include "backend/base/repeat_limit.h"

namespace weir {

bool RepeatLimit::allows(std::uint64_t key, Time time) {
  if (lines_.size() >= max_keys && !lines_.contains(key)) return true;
  Repetition& line = lines_[key];
  if (time - line.seen > period && line.kept_back == 0) line.first = 0;
  line.seen = time;
  if (line.first < written_first) {
    ++line.first;
    line.written = time;
    return true;
  }
  ++line.kept_back;
  return false;
}

void RepeatLimit::collect(Time time, const std::function<void(std::uint64_t key, int count)>& report) {
  for (auto entry = lines_.begin(); entry != lines_.end();) {
    auto& [key, line] = *entry;
    if (line.kept_back > 0 && time - line.written >= period) {
      report(key, line.kept_back);
      line.kept_back = 0;
      line.written = time;
    }
    const bool is_over = line.kept_back == 0 && time - line.seen > period;
    entry = is_over ? lines_.erase(entry) : std::next(entry);
  }
}

}  // namespace weir
