#include "backend/stream/runtime/stream.h"

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "backend/base/text_form.h"
#include "backend/collaborators/config.h"
#include "backend/collaborators/exception.h"
#include "backend/platform/files.h"

namespace weir {

namespace {

/// A command builder that is cleaned up at the end of its scope.
struct ScopedBuilder {
  std::unique_ptr<FFmpeg> builder;
  ~ScopedBuilder() { builder->cleanup(); }
};

}  // namespace

Stream::Stream(long long stream_id, std::shared_ptr<StreamConfig> stream_conf, Error* error_handler)
    : Error(error_handler),
      id(stream_id),
      conf(std::move(stream_conf)),
      ffmpeg(siblings().ffmpeg(*conf, 0, this)),
      streaminfo(siblings().streaminfo()),
      clientinfo(std::make_unique<StreamClientInfo>(*conf)) {
  cleanup_dirs();
}

Stream::~Stream() = default;

std::string Stream::get_class_name() const {
  return fmt::format("Stream {} {}", id, to_text(conf->get_json_conf("label")));
}

LogFields Stream::get_log_fields() const { return {.stream = id, .label = to_text(conf->get_json_conf("label"))}; }

const Value& Stream::get_status() const { return conf->get_json_conf("status"); }

void Stream::set_status(std::string_view status) {
  const bool is_new = get_status() != status;
  if (conf->set_json_conf("status", status)) conf->save_json_conf();
  if (is_new) tell({.kind = JournalKind::status, .text = std::string(status)});
}

Async<bool> Stream::start(double start_delay, bool check_config, std::string by) {
  const auto guard = co_await lock.acquire();
  if (!thread.dead()) co_return true;
  if (check_config) {
    const ScopedBuilder scoped{siblings().ffmpeg(*conf, 0, this)};
    const bool valid = co_await scoped.builder->generate_command();
    if (!valid) co_return false;
  }
  if (conf->retired()) {
    set_error_msg(fmt::format("Stream {} was deleted", id));
    co_return false;
  }
  delay = start_delay;
  input_next = 0;
  reason_.reset();
  thread = spawn(get_class_name(), supervise(shared_from_this()));
  tell({.kind = JournalKind::started, .retry_seconds = delay, .by = std::move(by)});
  co_return true;
}

Async<bool> Stream::kill(Kill exception, std::optional<int> next_input, Reason reason) {
  const auto guard = co_await lock.acquire();
  note_reason(exception, std::move(reason));
  thread.kill(exception);
  if (next_input) input_next = *next_input;
  delay = 0;
  co_return true;
}

// Of two kills that arrive together the task gets the stronger one, and of equal ones the first.
void Stream::note_reason(const Kill& exception, Reason reason) {
  if (thread.dead()) return;
  if (reason_ && exception.rank <= reason_rank_) return;
  reason_ = std::move(reason);
  reason_rank_ = exception.rank;
}

Async<bool> Stream::stop(std::string by) {
  // The server would start it again.
  if (thread.dead() && failures_ > 0) tell_stopped({.by = by});
  return kill(Kill::with<GreenletStopException>(), 0, {.by = std::move(by)});
}

Async<bool> Stream::restart(int next_input, Reason reason) {
  return kill(Kill::with<GreenletRestartException>(), next_input, std::move(reason));
}

void Stream::cleanup_dirs() const {
  const std::string hls = join_path(Config::HLS_DIRECTORY, std::to_string(id));
  const std::string mmcb = join_path(Config::MMCB_DIRECTORY, std::to_string(id));
  remove_directory(hls);
  remove_directory(mmcb);
  make_directory(hls);
  make_directory(mmcb);
}

}  // namespace weir
