#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "backend/collaborators/config.h"
#include "backend/platform/directory_watch.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"
#include "backend/stream/runtime/segment_window.h"
#include "backend/stream/runtime/stream.h"

namespace weir {

namespace {

void delete_segment(const std::string& directory, const std::string& name) {
  const std::string path = join_path(directory, name);
  if (::unlink(path.c_str()) != 0 && errno != ENOENT) throw_errno(path);
}

std::vector<std::string> names_in(const std::string& directory) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    names.push_back(entry.path().filename().string());
  }
  return names;
}

void handle(const DirectoryEvent& event, const std::string& directory, SegmentWindow& window) {
  switch (event.kind) {
    case DirectoryEvent::Kind::close_write:
      if (const auto oldest = window.complete(event.name)) delete_segment(directory, *oldest);
      break;
    case DirectoryEvent::Kind::overflow:
      for (const std::string& name : window.read_again(names_in(directory))) delete_segment(directory, name);
      break;
    case DirectoryEvent::Kind::removed:
      throw_errno(ENOENT, directory + " was removed");
  }
}

}  // namespace

Async<> Stream::segment_monitor() {
  return guarded(watch_segments(join_path(Config::HLS_DIRECTORY, std::to_string(id))));
}

Async<> Stream::watch_segments(std::string directory) {
  DirectoryWatch watch(directory);
  SegmentWindow window(ffmpeg->hls_list_sizes);
  for (;;) {
    const std::vector<DirectoryEvent> events = co_await watch.next();
    for (const DirectoryEvent& event : events) handle(event, directory, window);
  }
}

}  // namespace weir
