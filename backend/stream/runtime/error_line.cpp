#include "backend/stream/runtime/error_line.h"

#include <algorithm>
#include <array>

#include "backend/base/text.h"
#include "backend/collaborators/srt_rejection.h"
#include "backend/collaborators/utils.h"

namespace weir {

namespace {

// What follows an error and says less than it.
constexpr std::array<std::string_view, 2> sequels{"Error initializing output stream", "All tee outputs failed"};

// What FFmpeg says of a failure whose reason was told in one of the lines before.
constexpr int max_lines_between = 3;

bool says_less(std::string_view error, int lines_since) {
  const bool is_sequel = std::ranges::any_of(sequels, [&](std::string_view text) { return error.starts_with(text); });
  const bool follows = error.starts_with("Cannot open connection ") || error.ends_with(": Input/output error");
  return is_sequel || (follows && lines_since <= max_lines_between);
}

bool is_error_colour(std::string_view sequence) {
  return sequence.ends_with("38;5;196m") || sequence.ends_with("38;5;208m");
}

std::string make_plain(std::string_view text) {
  std::string plain = strip_console_codes(text.substr(0, 4 * ErrorLine::max_bytes));
  std::erase_if(plain, [](unsigned char byte) { return byte < 0x20 || byte == 0x7F; });
  plain.resize(std::min(plain.size(), ErrorLine::max_bytes));
  return std::string(trim(plain));
}

}  // namespace

void ErrorLine::look(std::string_view line) {
  ++lines_since_;
  if (const std::string_view rejection = find_srt_rejection(line); !rejection.empty()) keep(make_plain(rejection));
  if (line.find("38;5;") == std::string_view::npos) return;
  for (const std::string_view sequence : console_codes_pattern.findall(line)) {
    if (!is_error_colour(sequence)) continue;
    const auto begin = static_cast<std::size_t>(sequence.data() + sequence.size() - line.data());
    std::string error = make_plain(line.substr(begin));
    if (!error.empty() && (text_.empty() || !says_less(error, lines_since_))) keep(std::move(error));
    return;
  }
}

void ErrorLine::keep(std::string error) {
  text_ = std::move(error);
  lines_since_ = 0;
}

std::string last_line(std::string_view log) {
  while (!log.empty()) {
    const std::size_t end = log.find_last_not_of("\r\n");
    if (end == std::string_view::npos) return {};
    log = log.substr(0, end + 1);
    const std::size_t begin = log.find_last_of("\r\n") + 1;
    if (std::string line = make_plain(log.substr(begin)); !line.empty()) return line;
    log = log.substr(0, begin);
  }
  return {};
}

}  // namespace weir
