#include "backend/web/log/stream_log_files.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "backend/base/log.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"
#include "backend/platform/helper_thread.h"
#include "backend/platform/sleep.h"

namespace weir {

namespace {

constexpr std::chrono::seconds write_interval{1};
constexpr std::chrono::minutes report_interval{10};
/// What is on its way to the disk at once.
constexpr std::size_t max_batch_bytes = 4 << 20;

std::string old_name(const std::string& path, int number) { return fmt::format("{}.{}", path, number); }

// A missing file is none to rename.
void rotate(const std::string& path, int old_files) {
  for (int number = old_files; number > 1; --number)
    std::rename(old_name(path, number - 1).c_str(), old_name(path, number).c_str());
  if (old_files > 0)
    std::rename(path.c_str(), old_name(path, 1).c_str());
  else
    ::unlink(path.c_str());
}

void write_all(int file, std::string_view text, const std::string& path) {
  while (!text.empty()) {
    const ssize_t written = ::write(file, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) throw_errno("write " + path);
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace

void append_to_log(const std::string& path, std::string_view text, const StreamLogSettings& settings) {
  struct stat status{};
  const bool exists = ::lstat(path.c_str(), &status) == 0;
  if (exists && static_cast<std::uint64_t>(status.st_size) + text.size() > settings.max_bytes)
    rotate(path, settings.old_files);
  // What is no regular file is not waited for.
  const Descriptor file(
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0640));
  if (!file) throw_errno("open " + path);
  write_all(file.get(), text, path);
}

Async<> StreamLogFiles::run() {
  if (settings_.directory.empty()) co_return;
  for (;;) {
    co_await sleep_to_next(write_interval);
    co_await flush();
  }
}

Async<> StreamLogFiles::flush() {
  if (settings_.directory.empty()) co_return;
  std::erase_if(readers_, [this](const auto& entry) { return !manager_.streams.contains(entry.first); });
  std::vector<Piece> pieces;
  std::size_t bytes = 0;
  std::vector<std::shared_ptr<Stream>> streams;
  for (const auto& [id, stream] : manager_.streams) streams.push_back(stream);
  for (const std::shared_ptr<Stream>& stream : streams) {
    std::string text =
        readers_.try_emplace(stream->id, LogView{.plain = true, .follow = true}).first->second.read(stream->stdbuf);
    if (text.empty()) continue;
    bytes += text.size();
    pieces.push_back({join_path(settings_.directory, fmt::format("{}.log", stream->id)), std::move(text)});
    if (bytes < max_batch_bytes) continue;
    co_await write(std::exchange(pieces, {}));
    bytes = 0;
  }
  if (!pieces.empty()) co_await write(std::move(pieces));
}

// One that fails does not stop the others.
Async<> StreamLogFiles::write(std::vector<Piece> pieces) {
  const auto failure = std::make_shared<std::string>();
  co_await on_helper_thread([pieces = std::move(pieces), settings = settings_, failure] {
    for (const Piece& piece : pieces) {
      try {
        std::filesystem::create_directories(settings.directory);
        append_to_log(piece.path, piece.text, settings);
      } catch (const std::system_error& error) {
        *failure = error.what();
      }
    }
  });
  if (!failure->empty()) report(*failure);
}

void StreamLogFiles::report(const std::string& failure) {
  if (reported_at_ && now() - *reported_at_ < report_interval) return;
  reported_at_ = now();
  log(LogLevel::error, "Web", "The streams' logs can't be written: " + failure);
}

}  // namespace weir
