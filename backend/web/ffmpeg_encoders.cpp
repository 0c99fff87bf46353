#include "backend/web/ffmpeg_encoders.h"

#include <algorithm>
#include <optional>
#include <system_error>

#include "backend/base/text.h"
#include "backend/collaborators/config.h"
#include "backend/platform/child_process.h"

namespace weir {

namespace {

constexpr double timeout_seconds = 5;
constexpr std::size_t max_output_bytes = 1 << 18;
constexpr std::size_t flag_count = 6;

std::string_view read_media(char flag) {
  if (flag == 'V') return "video";
  if (flag == 'A') return "audio";
  return flag == 'S' ? "subtitle" : "";
}

bool are_flags(std::string_view text) {
  return text.size() == flag_count && !read_media(text.front()).empty() &&
         std::ranges::all_of(text, [](char c) { return c == '.' || (c >= 'A' && c <= 'Z'); });
}

// " V....D libx264              libx264 H.264 / AVC (codec h264)"
std::optional<FfmpegEncoder> parse_line(std::string_view line) {
  line = trim(line);
  const std::string_view flags = line.substr(0, line.find(' '));
  if (!are_flags(flags)) return std::nullopt;
  line = trim(line.substr(flags.size()));
  const std::string_view name = line.substr(0, line.find(' '));
  // The legend above the list has "= Video" there.
  if (name.empty() || name == "=") return std::nullopt;
  return FfmpegEncoder{std::string(name), read_media(flags.front()), std::string(trim(line.substr(name.size())))};
}

}  // namespace

std::vector<FfmpegEncoder> parse_encoders(std::string_view text) {
  std::vector<FfmpegEncoder> encoders;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    if (auto encoder = parse_line(text.substr(0, end))) encoders.push_back(std::move(*encoder));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return encoders;
}

Async<std::vector<FfmpegEncoder>> FfmpegEncoders::get() {
  const auto turn = co_await turns_.acquire();
  const std::string version = co_await version_.get();
  if (version.empty()) co_return std::vector<FfmpegEncoder>();
  if (encoders_.empty() || version != known_version_) {
    encoders_ = co_await ask();
    known_version_ = version;
  }
  co_return encoders_;
}

Async<std::vector<FfmpegEncoder>> FfmpegEncoders::ask() {
  try {
    const CommandResult result =
        co_await run_command({Config::FFMPEG, "-hide_banner", "-encoders"}, timeout_seconds, max_output_bytes);
    if (result.timed_out || result.exit_status != 0) co_return std::vector<FfmpegEncoder>();
    co_return parse_encoders(result.standard_output);
  } catch (const std::system_error&) {
    co_return std::vector<FfmpegEncoder>();
  }
}

}  // namespace weir
