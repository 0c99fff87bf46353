#include "backend/stream/manager/stream_manager.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>

#include "backend/base/numbers.h"
#include "backend/base/text_form.h"
#include "backend/collaborators/config.h"
#include "backend/collaborators/version.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"
#include "backend/stream/manager/stream_file.h"
#include "backend/stream/manager/stream_manager_check_params.h"

namespace weir {

StreamManager* stream_manager = nullptr;

namespace {

std::optional<long long> to_integer(const Value& stream_id) {
  if (stream_id.is_string()) return parse_integer(stream_id.get_ref<const std::string&>());
  if (stream_id.is_boolean()) return stream_id.get<bool>() ? 1 : 0;
  if (stream_id.is_number_float() && std::abs(stream_id.get<double>()) < 9e18) {
    return static_cast<long long>(std::trunc(stream_id.get<double>()));
  }
  if (stream_id.is_number_integer()) return stream_id.get<long long>();
  return std::nullopt;
}

bool delete_checked_stream(StreamManager& manager, const Value& stream_id) {
  const std::shared_ptr<Stream> stream = manager.get_stream(stream_id);
  const Value status = stream->get_status();
  if (is_active(status)) {
    manager.set_error_msg(fmt::format("Can not delete stream {}: it's {}", to_text(stream_id), to_text(status)));
    return false;
  }
  try {
    if (!std::filesystem::remove(stream->conf->filename)) throw_errno(ENOENT, stream->conf->filename);
    manager.streams.erase(stream->id);
  } catch (const std::system_error& failure) {
    manager.set_error_msg(fmt::format("Failed to delete stream {}: {}", to_text(stream_id), failure.what()));
    return false;
  }
  // A task that still waits in one of its operations can neither restore the file nor start a transcoder.
  stream->conf->retire();
  stream->thread.kill();
  return true;
}

}  // namespace

bool is_active(const Value& status) { return status == "starting" || status == "running" || status == "restarting"; }

StreamManager::StreamManager() {
  if (!stream_manager) stream_manager = this;
}

StreamManager::~StreamManager() {
  if (stream_manager == this) stream_manager = nullptr;
}

Async<bool> StreamManager::init() {
  if (!std::filesystem::exists(Config::STREAM_DIRECTORY)) {
    std::error_code failure;
    std::filesystem::create_directories(Config::STREAM_DIRECTORY, failure);
    if (failure) {
      error(fmt::format("Failed to create stream directory: {}", failure.message()));
      co_return false;
    }
  }
  for (const std::string& name : names_in(Config::STREAM_DIRECTORY)) {
    if (!load_stream_from_file(name)) error(get_error_msg());
  }
  sort_streams();
  const bool restored = co_await restore_streams(Config::RESTORE_INTERVAL);
  co_return restored;
}

Async<> StreamManager::stop_thread() {
  // Another batch call may have put a new task here while this one waited.
  while (!thread.dead()) co_await thread.kill_and_wait();
}

Async<bool> StreamManager::restore_streams(double interval) {
  co_await stop_thread();
  double delay = 0;
  for (const auto& stream : all_streams()) {
    const bool restored = co_await restore_stream(stream, delay);
    if (restored) delay += interval;
    co_await yield_to_others();
  }
  co_return true;
}

Async<bool> StreamManager::restore_stream(std::shared_ptr<Stream> stream, double delay) {
  if (!is_active(stream->get_status())) co_return false;
  stream->debug(fmt::format("Was active, starts in {} s", delay));
  stream->set_status("stopped");
  co_await stream->start(delay, false, "server start");
  co_return true;
}

bool StreamManager::sort_streams() {
  return std::ranges::is_sorted(streams, {}, [](const auto& entry) { return entry.first; });
}

std::shared_ptr<StreamConfig> StreamManager::new_stream_config(const std::string& filename) {
  return std::make_shared<StreamConfig>(stream_file_path(filename), this);
}

bool StreamManager::load_stream_from_file(const std::string& filename) {
  if (!is_stream_file(filename)) return true;
  const auto id = stream_id_of(filename);
  if (!id) {
    set_error_msg(fmt::format("Invalid stream file {}: the largest stream id is {}", filename, max_stream_id));
    return false;
  }
  const std::shared_ptr<StreamConfig> conf = new_stream_config(filename);
  if (!conf->load_json_conf()) return false;
  StreamConfigVersionControl(*conf).update();
  if (!conf->set_json_conf("id", *id) || !conf->save_json_conf()) return false;
  streams[*id] = std::make_shared<Stream>(*id, conf, this);
  stream_next_id = std::max(stream_next_id, *id + 1);
  return true;
}

std::shared_ptr<Stream> StreamManager::get_stream(const Value& stream_id) {
  const auto id = to_integer(stream_id);
  const auto found = id ? streams.find(*id) : streams.end();
  if (found != streams.end()) return found->second;
  set_error_msg(fmt::format("Invalid Stream ID {}", to_text(stream_id)));
  return nullptr;
}

bool StreamManager::save_stream(const Value& stream_id, const Value& form) {
  const std::shared_ptr<Stream> stream = get_stream(stream_id);
  return stream && stream->conf->load_json_conf(form) && stream->conf->save_json_conf();
}

bool StreamManager::add_stream(const Value& form) {
  const long long id = stream_next_id;
  if (id > max_stream_id) {
    set_error_msg(fmt::format("No stream id is left: the largest is {}", max_stream_id));
    return false;
  }
  const std::shared_ptr<StreamConfig> conf = new_stream_config(stream_file_name(id));
  if (!conf->load_json_conf(form) || !conf->set_json_conf("id", id) || !conf->save_json_conf()) return false;
  streams[id] = std::make_shared<Stream>(id, conf, this);
  stream_next_id = id + 1;
  return true;
}

bool StreamManager::delete_stream(const Value& stream_id) {
  return stream_manager_check_params(false)(delete_checked_stream)(*this, stream_id);
}

std::vector<std::shared_ptr<Stream>> StreamManager::all_streams() const {
  std::vector<std::shared_ptr<Stream>> all;
  all.reserve(streams.size());
  for (const auto& [id, stream] : streams) all.push_back(stream);
  return all;
}

}  // namespace weir
