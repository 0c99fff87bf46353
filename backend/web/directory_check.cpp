#include "backend/web/directory_check.h"

#include <fmt/core.h>

#include <filesystem>
#include <system_error>

#include "backend/platform/files.h"
#include "backend/platform/helper_thread.h"
#include "backend/platform/timeout.h"

namespace weir {

namespace {

constexpr std::chrono::seconds kept{5};
constexpr std::chrono::seconds patience{2};

// A whole block: an empty file needs no room.
void write_and_remove(const std::string& path) {
  std::filesystem::remove(path);
  replace_file(path, std::string(4096, '\n'));
  std::filesystem::remove(path);
}

Async<> try_to_write(std::string path, std::shared_ptr<std::string> fault) {
  try {
    co_await on_helper_thread([path] { write_and_remove(path); });
  } catch (const std::system_error& failure) {
    *fault = failure.what();
  }
}

}  // namespace

Async<std::string> DirectoryCheck::find_fault(std::string directory) {
  const auto turn = co_await turns_.acquire();
  if (looked_ && now() - *looked_ < kept) co_return fault_;
  fault_ = co_await look(std::move(directory));
  looked_ = now();
  co_return fault_;
}

Async<std::string> DirectoryCheck::look(std::string directory) {
  const auto fault = std::make_shared<std::string>();
  const bool answered =
      co_await run_at_most("directory check", try_to_write(join_path(directory, ".writable"), fault), patience);
  co_return answered ? *fault : fmt::format("{} does not answer", directory);
}

}  // namespace weir
