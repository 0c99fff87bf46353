#include "backend/web/server_stream_manager.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>

#include "backend/base/bounded_json.h"
#include "backend/collaborators/config.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"
#include "backend/platform/sleep.h"
#include "backend/stream/manager/stream_file.h"

namespace weir {

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::seconds retry_interval{30};
constexpr double start_interval = 3;

// A file of these faults is too large, a directory or a device: trying it again does not help.
bool is_fault_of_file(const std::error_code& error) {
  constexpr std::array faults{std::errc::file_too_large, std::errc::is_a_directory, std::errc::invalid_argument};
  return std::ranges::any_of(faults, [&](std::errc fault) { return error == fault; });
}

// Whether it is the name or the content of a file that does not load; else the system failed to read or write it.
bool is_file_at_fault(const std::string& file) {
  if (!stream_id_of(file)) return true;
  try {
    read_file(stream_file_path(file), max_document_bytes);
  } catch (const std::system_error& failure) {
    return is_fault_of_file(failure.code());
  }
  return !StreamConfig(stream_file_path(file)).load_json_conf();
}

}  // namespace

bool ServerStreamManager::load_stream_from_file(const std::string& file) {
  if (!is_stream_file(file)) {
    debug(fmt::format("Skipped {}: not a stream file", file));
    return true;
  }
  try {
    const auto known = streams.find(stream_id_of(file).value_or(-1));
    const std::shared_ptr<Stream> other = known == streams.end() ? nullptr : known->second;
    if (StreamManager::load_stream_from_file(file)) {
      debug(fmt::format("Loaded {}", file));
      broken_files.forget(file);
      if (other) replace(*other, file);
      return true;
    }
    const std::string reason = get_error_msg();
    if (is_file_at_fault(file))
      keep(file, reason);
    else
      keep_with_id(file, reason);
  } catch (const Failure& failure) {
    set_aside(file, failure.what());
  } catch (const std::exception& failure) {
    keep_with_id(file, failure.what());
  }
  return false;
}

// "7.conf" and "007.conf" are both stream 7: the one that is loaded last.
void ServerStreamManager::replace(const Stream& other, const std::string& file) {
  set_aside(fs::path(other.conf->filename).filename(), fmt::format("{} is the same stream", file));
  error(get_error_msg());
}

void ServerStreamManager::keep(const std::string& file, const std::string& reason) {
  const bool named = reason.find(file) != std::string::npos;
  set_error_msg(named ? reason : fmt::format("{}: {}", file, reason));
  broken_files.keep(file, reason);
}

void ServerStreamManager::keep_with_id(const std::string& file, const std::string& reason) {
  keep(file, reason);
  stream_next_id = std::max(stream_next_id, stream_id_of(file).value_or(0) + 1);
  system_failed_ = true;
}

void ServerStreamManager::set_aside(const std::string& file, const std::string& reason) {
  try {
    const std::string aside = broken_files.set_aside(file);
    set_error_msg(fmt::format("{} is set aside as {}: {}", file, aside, reason));
    journal().record({.kind = JournalKind::set_aside, .stream_id = stream_id_of(file), .text = get_error_msg()});
  } catch (const std::system_error& failure) {
    keep_with_id(file, fmt::format("{}, and it can't be renamed: {}", reason, failure.what()));
  }
}

std::vector<std::string> ServerStreamManager::missing_files() const {
  std::vector<std::string> files = names_in(Config::STREAM_DIRECTORY);
  std::erase_if(files, [this](const std::string& file) {
    const auto id = stream_id_of(file);
    return !id || streams.contains(*id);
  });
  return files;
}

Async<> ServerStreamManager::retry_missing_streams() {
  for (;;) {
    co_await sleep(retry_interval);
    try {
      co_await load_missing_streams();
    } catch (const std::exception&) {
      error(format_traceback(std::current_exception()));
    }
  }
}

Async<> ServerStreamManager::load_missing_streams() {
  double delay = 0;
  for (const std::string& file : missing_files()) {
    // A file may be large, and there may be many.
    co_await yield_to_others();
    const bool started = co_await load_missing_stream(file, delay);
    if (started) delay += start_interval;
  }
}

// Returns whether the stream was started. A stream that exists is never replaced.
Async<bool> ServerStreamManager::load_missing_stream(std::string file, double delay) {
  const long long id = stream_id_of(file).value();
  std::error_code ignored;
  if (streams.contains(id) || !fs::exists(stream_file_path(file), ignored)) co_return false;
  const std::string known_reason = broken_files.reason(file);
  if (!load_stream_from_file(file)) {
    if (known_reason.empty() || known_reason != broken_files.reason(file)) error(get_error_msg());
    co_return false;
  }
  info(fmt::format("{} is loaded now", file));
  const bool started = co_await restore_stream(streams.at(id), delay);
  co_return started;
}

}  // namespace weir
