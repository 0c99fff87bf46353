#include "backend/stream/runtime/progress_pattern.h"

#include <cstddef>
#include <cstring>

#include "backend/base/text.h"

namespace weir {

namespace {

constexpr std::size_t nowhere = std::string_view::npos;

// A match of a key and of all that has to follow it.
struct SpeedMatch {
  std::size_t at = nowhere;
  std::size_t value = 0;
};
struct BitrateMatch {
  std::size_t at = nowhere;
  std::size_t value = 0;
  SpeedMatch speed;
};
struct TimeMatch {
  std::size_t at = nowhere;
  std::size_t value = 0;
  BitrateMatch bitrate;
};
struct QualityMatch {
  std::size_t at = nowhere;
  std::size_t value = 0;
  TimeMatch time;
};

// "key=\s*(\S+).+next" matches where the last match of `next` stands at `value` + 2 or behind: "\S+" and ".+" need one
// character each, and ".+" reaches as far as it can. So a scan from the end keeps the last match of each key only.
class BackwardScan {
 public:
  explicit BackwardScan(std::string_view line) : line_(line) {
    while (!line_.empty() && is_space(line_.back())) line_.remove_suffix(1);
  }

  std::optional<ProgressFields> run() {
    for (std::size_t equals = previous_equals(line_.size()); equals != nowhere && equals > 0;
         equals = previous_equals(equals)) {
      visit(equals);
    }
    return leftmost_fields();
  }

 private:
  std::size_t previous_equals(std::size_t before) const {
    const void* at = ::memrchr(line_.data(), '=', before);
    return at ? static_cast<std::size_t>(static_cast<const char*>(at) - line_.data()) : nowhere;
  }

  // The name is told by its last letter first: most "=" belong to none of the keys.
  void visit(std::size_t equals) {
    switch (line_[equals - 1]) {
      case 'd':
        if (key_ends_at(equals, "speed")) visit_speed(equals);
        break;
      case 'e':
        if (speed_.at == nowhere) break;
        if (key_ends_at(equals, "bitrate")) visit_bitrate(equals);
        if (key_ends_at(equals, "time")) visit_time(equals);
        break;
      case 'q':
        if (time_.at != nowhere && quality_.at == nowhere) visit_quality(equals);
        break;
      case 's':
        if (quality_.at != nowhere && key_ends_at(equals, "fps")) visit_fps(equals);
        break;
      default:
        break;
    }
  }

  void visit_speed(std::size_t equals) {
    const std::size_t value = value_after(equals);
    if (speed_.at == nowhere && value < line_.size()) speed_ = {equals - 5, value};
  }

  void visit_bitrate(std::size_t equals) {
    const std::size_t value = value_after(equals);
    if (bitrate_.at == nowhere && follows(speed_.at, value)) bitrate_ = {equals - 7, value, speed_};
  }

  void visit_time(std::size_t equals) {
    const std::size_t value = value_after(equals);
    if (!follows(bitrate_.at, value)) return;
    leftmost_time_ = {equals - 4, value, bitrate_};
    if (time_.at == nowhere) time_ = leftmost_time_;
    leftmost_fps_value_ = nowhere;
  }

  void visit_quality(std::size_t equals) {
    const std::size_t value = value_after(equals);
    if (follows(time_.at, value)) quality_ = {equals - 1, value, time_};
  }

  void visit_fps(std::size_t equals) {
    const std::size_t value = value_after(equals);
    if (follows(quality_.at, value)) leftmost_fps_value_ = value;
  }

  // Letter by letter: shorter than the call of a comparison, and most differ at once.
  template <std::size_t size>
  bool key_ends_at(std::size_t equals, const char (&key)[size]) const {
    constexpr std::size_t length = size - 1;
    if (equals < length) return false;
    const char* at = line_.data() + equals - length;
    for (std::size_t i = 0; i < length; ++i) {
      if (at[i] != key[i]) return false;
    }
    return true;
  }

  std::size_t value_after(std::size_t equals) const {
    std::size_t at = equals + 1;
    while (at < line_.size() && is_space(line_[at])) ++at;
    return at;
  }

  static bool follows(std::size_t match, std::size_t value) { return match != nowhere && match >= value + 2; }

  // Only the match that stands is cut into fields: a line may hold thousands that overlap.
  std::optional<ProgressFields> leftmost_fields() const {
    if (leftmost_time_.at == nowhere) return std::nullopt;
    const bool with_fps = leftmost_fps_value_ != nowhere;
    const TimeMatch& match = with_fps ? quality_.time : leftmost_time_;
    const BitrateMatch& bitrate = match.bitrate;
    ProgressFields fields{std::nullopt, std::nullopt, run_of_non_blanks(match.value, bitrate.at),
                          run_of_non_blanks(bitrate.value, bitrate.speed.at),
                          run_of_non_blanks(bitrate.speed.value, line_.size() + 1)};
    if (with_fps) {
      fields.fps = run_of_non_blanks(leftmost_fps_value_, quality_.at);
      fields.quality = run_of_non_blanks(quality_.value, quality_.time.at);
    }
    return fields;
  }

  std::string_view run_of_non_blanks(std::size_t value, std::size_t next) const {
    std::size_t end = value;
    while (end < next - 1 && !is_space(line_[end])) ++end;
    return line_.substr(value, end - value);
  }

  std::string_view line_;
  SpeedMatch speed_;
  BitrateMatch bitrate_;
  TimeMatch time_;
  QualityMatch quality_;
  TimeMatch leftmost_time_;
  std::size_t leftmost_fps_value_ = nowhere;  ///< of a match that begins with "fps=" left of `leftmost_time_`
};

}  // namespace

std::optional<ProgressFields> find_progress(std::string_view line) { return BackwardScan(line).run(); }

}  // namespace weir
