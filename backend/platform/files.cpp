#include "backend/platform/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <optional>

#include "backend/platform/descriptor.h"
#include "backend/platform/failure.h"
#include "backend/platform/helper_thread.h"

namespace weir {

namespace {

/// A file that is removed again unless it was renamed to its place.
class TemporaryFile {
 public:
  TemporaryFile(std::string path, unsigned mode)
      : path_(std::move(path)), file_(::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode)) {
    if (!file_) throw_errno(path_);
  }
  ~TemporaryFile() {
    if (!renamed_) ::unlink(path_.c_str());
  }

  void write(std::string_view content) {
    while (!content.empty()) {
      const ssize_t size = ::write(file_.get(), content.data(), content.size());
      if (size < 0 && errno == EINTR) continue;
      if (size < 0) throw_errno(path_);
      content.remove_prefix(static_cast<std::size_t>(size));
    }
  }

  void rename(const std::string& target) {
    // Some file systems report a full disk only here.
    if (::close(file_.release()) != 0) throw_errno(path_);
    if (::rename(path_.c_str(), target.c_str()) != 0) throw_errno(target);
    renamed_ = true;
  }

 private:
  std::string path_;
  Descriptor file_;
  bool renamed_ = false;
};

// The content of an open file that has so many bytes; nothing when it can't be read.
std::optional<std::string> read_whole(int file, std::size_t size) {
  std::string content(size, '\0');
  const ssize_t filled = ::pread(file, content.data(), size, 0);
  if (filled < 0 || static_cast<std::size_t>(filled) != size) return std::nullopt;
  return content;
}

/// A part of a text.
struct Part {
  std::size_t begin = 0;
  std::size_t end = 0;
};

// Where the texts, of one size, differ.
Part find_difference(std::string_view left, std::string_view right) {
  const auto first = std::ranges::mismatch(left, right).in1 - left.begin();
  const auto last = std::mismatch(left.rbegin(), left.rend() - first, right.rbegin()).first.base() - left.begin();
  return {static_cast<std::size_t>(first), static_cast<std::size_t>(last)};
}

bool lies_in_one_sector(Part part) {
  constexpr std::size_t sector = 512;
  return part.begin / sector == (part.end - 1) / sector;
}

// Whether the file holds the content now, either as it did before or, if that is allowed, changed in place.
bool holds(const std::filesystem::path& path, std::string_view content, bool may_change) {
  const Descriptor file(::open(path.c_str(), (may_change ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
  struct stat status{};
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
  if (static_cast<std::size_t>(status.st_size) != content.size()) return false;
  const auto before = read_whole(file.get(), content.size());
  if (!before) return false;
  const Part part = find_difference(*before, content);
  if (part.begin == content.size()) return true;
  if (!may_change || status.st_nlink != 1 || !lies_in_one_sector(part)) return false;
  const std::size_t size = part.end - part.begin;
  const ssize_t written = ::pwrite(file.get(), content.data() + part.begin, size, static_cast<off_t>(part.begin));
  return written >= 0 && static_cast<std::size_t>(written) == size;
}

void replace(const std::filesystem::path& path, std::string_view content, unsigned mode) {
  TemporaryFile file(path.string() + ".tmp", mode);
  file.write(content);
  file.rename(path.string());
}

void sync_path(const std::filesystem::path& path, int flags) {
  const Descriptor file(::open(path.c_str(), flags | O_CLOEXEC));
  if (!file || ::fsync(file.get()) != 0) throw_errno(path.string());
}

}  // namespace

std::string read_file(const std::filesystem::path& path, std::size_t limit) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status{};
  if (!file || ::fstat(file.get(), &status) != 0) throw_errno(path.string());
  if (S_ISDIR(status.st_mode)) throw_errno(EISDIR, path.string());
  if (!S_ISREG(status.st_mode)) throw_errno(EINVAL, path.string());
  if (static_cast<std::size_t>(status.st_size) > limit) throw_errno(EFBIG, path.string());
  std::string content(static_cast<std::size_t>(status.st_size), '\0');
  std::size_t filled = 0;
  while (filled < content.size()) {
    const ssize_t size = ::read(file.get(), content.data() + filled, content.size() - filled);
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) throw_errno(path.string());
    if (size == 0) break;
    filled += static_cast<std::size_t>(size);
  }
  content.resize(filled);
  return content;
}

void replace_file(const std::filesystem::path& path, std::string_view content, unsigned mode) {
  if (!holds(path, content, false)) replace(path, content, mode);
}

void update_file(const std::filesystem::path& path, std::string_view content, unsigned mode) {
  if (!holds(path, content, true)) replace(path, content, mode);
}

Async<> sync_file(std::filesystem::path path) {
  co_await on_helper_thread([path] {
    sync_path(path, O_RDONLY);
    sync_path(path.has_parent_path() ? path.parent_path() : std::filesystem::path("."), O_RDONLY | O_DIRECTORY);
  });
}

std::vector<std::string> names_in(const std::filesystem::path& directory, std::source_location where) {
  std::vector<std::string> names;
  std::error_code error;
  std::filesystem::directory_iterator entry(directory, error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    names.push_back(entry->path().filename().string());
  }
  if (error) throw_errno(error.value(), directory.string(), where);
  return names;
}

void remove_directory(const std::filesystem::path& directory, std::source_location where) {
  std::error_code error;
  std::filesystem::remove_all(directory, error);
  if (error) throw_errno(error.value(), directory.string(), where);
}

void make_directory(const std::filesystem::path& directory, std::source_location where) {
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  if (error) throw_errno(error.value(), directory.string(), where);
}

std::string join_path(std::string_view directory, std::string_view name) {
  std::string path(directory);
  if (path.empty() || path.back() != '/') path += '/';
  return path += name;
}

}  // namespace weir
