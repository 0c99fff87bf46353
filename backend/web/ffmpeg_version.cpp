#include "backend/web/ffmpeg_version.h"

#include <system_error>

#include "backend/collaborators/config.h"
#include "backend/platform/child_process.h"

namespace weir {

namespace {

constexpr std::chrono::minutes kept{10};
constexpr double timeout_seconds = 2;

}  // namespace

Async<std::string> FfmpegVersion::get() {
  const auto turn = co_await turns_.acquire();
  if (asked_ && now() - *asked_ < kept) co_return version_;
  version_ = co_await ask();
  asked_ = now();
  co_return version_;
}

Async<std::string> FfmpegVersion::ask() {
  try {
    const CommandResult result = co_await run_command({Config::FFMPEG, "-version"}, timeout_seconds, 1 << 16);
    if (result.timed_out || result.exit_status != 0) co_return std::string();
    co_return result.standard_output.substr(0, result.standard_output.find('\n'));
  } catch (const std::system_error&) {
    co_return std::string();
  }
}

}  // namespace weir
