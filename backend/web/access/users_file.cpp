#include "backend/web/access/users_file.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string_view>
#include <system_error>

#include "backend/base/bounded_json.h"
#include "backend/base/text_form.h"
#include "backend/platform/descriptor.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"

namespace weir {

namespace {

constexpr const char* file_name = "users.json";
constexpr const char* temporary_name = "users.json.tmp";
constexpr unsigned file_mode = 0600;

// Until it is closed.
Descriptor lock_directory(const std::string& path) {
  Descriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory || ::flock(directory.get(), LOCK_EX) != 0) throw_errno(path);
  return directory;
}

// One that was left is not used again: it could be a link, or readable by others.
Descriptor create_temporary_file(int directory) {
  ::unlinkat(directory, temporary_name, 0);
  return Descriptor(::openat(directory, temporary_name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, file_mode));
}

// The file belongs to the owner of the directory, for whom root works.
bool give_to_owner(int file, int directory) {
  struct stat owner{};
  return ::geteuid() != 0 || (::fstat(directory, &owner) == 0 && ::fchown(file, owner.st_uid, owner.st_gid) == 0);
}

bool write_all(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t size = ::write(file, text.data(), text.size());
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) return false;
    text.remove_prefix(static_cast<std::size_t>(size));
  }
  return true;
}

// After a power failure there is the old file or the new one.
bool replace_durably(int directory, std::string_view text) {
  const Descriptor file = create_temporary_file(directory);
  return file && give_to_owner(file.get(), directory) && write_all(file.get(), text) && ::fsync(file.get()) == 0 &&
         ::renameat(directory, temporary_name, directory, file_name) == 0 && ::fsync(directory) == 0;
}

}  // namespace

UsersFile::UsersFile(const std::string& data_directory)
    : directory_(data_directory), path_(join_path(data_directory, file_name)) {}

UserList UsersFile::load() const {
  std::string text;
  try {
    text = read_file(path_, max_document_bytes);
  } catch (const std::system_error& failure) {
    if (failure.code() == std::errc::no_such_file_or_directory) return {};
    throw;
  }
  try {
    return read_user_list(parse_json(text));
  } catch (const ValueError& failure) {
    throw ValueError(fmt::format("{} can't be used: {}", path_, failure.what()));
  }
}

void UsersFile::change(const std::function<void(UserList&)>& change) const {
  const Descriptor directory = lock_directory(directory_);
  UserList list = load();
  change(list);
  const Value document = to_document(list);
  check_bounds(document);
  if (!replace_durably(directory.get(), to_json(document, true))) throw_errno(path_);
}

}  // namespace weir
