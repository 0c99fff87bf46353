#include "weir/data_directory.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "backend/collaborators/config.h"
#include "backend/platform/files.h"

namespace weir {

namespace fs = std::filesystem;

namespace {

// The profile store makes its own, as it fills a new one.
constexpr std::array folders{"streams", "hls", "mmcb", "uploads"};

std::string read_holder(int file) {
  std::array<char, 32> text{};
  const ssize_t size = ::pread(file, text.data(), text.size(), 0);
  const std::string holder(text.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
  return holder.substr(0, holder.find('\n'));
}

}  // namespace

DataDirectory::DataDirectory(const std::string& path) {
  try {
    path_ = fs::absolute(path).lexically_normal();
    fs::create_directories(path_);
    lock();
    make_folders();
  } catch (const std::system_error& failure) {
    throw StartFailure(fmt::format("The data directory {} can't be used: {}", path, failure.what()));
  }
}

void DataDirectory::make_folders() const {
  for (const char* folder : folders) {
    const std::string path = join_path(path_, folder);
    fs::create_directories(path);
    if (::access(path.c_str(), R_OK | W_OK | X_OK) != 0) throw std::system_error(errno, std::generic_category(), path);
  }
}

// The kernel releases the lock when the process ends, in whatever way; the file stays.
void DataDirectory::lock() {
  const std::string file = join_path(path_, "weir.lock");
  lock_ = Descriptor(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
  if (!lock_) throw std::system_error(errno, std::generic_category(), file);
  if (::flock(lock_.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK) throw std::system_error(errno, std::generic_category(), file);
    throw StartFailure(
        fmt::format("The data directory {} is in use by another server: process {}", path_, read_holder(lock_.get())));
  }
  const std::string holder = std::to_string(::getpid()) + "\n";
  if (::ftruncate(lock_.get(), 0) != 0 || ::pwrite(lock_.get(), holder.data(), holder.size(), 0) < 0)
    throw std::system_error(errno, std::generic_category(), file);
}

void DataDirectory::apply() const {
  Config::STREAM_DIRECTORY = join_path(path_, "streams");
  Config::HLS_DIRECTORY = join_path(path_, "hls");
  Config::MMCB_DIRECTORY = join_path(path_, "mmcb");
  Config::PROFILE_DIRECTORY = join_path(path_, "profiles");
  Config::UPLOAD_DIRECTORY = join_path(path_, "uploads");
}

}  // namespace weir
