#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "backend/collaborators/config.h"
#include "backend/platform/directory_watch.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"
#include "backend/stream/runtime/monitors.h"
#include "backend/stream/runtime/segment_window.h"
#include "backend/stream/runtime/stream.h"

namespace weir {

namespace {

void delete_segment(const std::string& directory, const std::string& name) {
  const std::string path = join_path(directory, name);
  if (::unlink(path.c_str()) != 0 && errno != ENOENT) throw_errno(path);
}

// What is no segment, or gone already, is left out.
void measure(const std::string& directory, const std::string& name, std::size_t variants, SegmentRates& rates) {
  const auto segment = parse_segment_name(name);
  struct stat status{};
  if (!segment || segment->variant >= variants || ::stat(join_path(directory, name).c_str(), &status) != 0) return;
  rates.complete(segment->variant, static_cast<std::uint64_t>(status.st_size), now());
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

Async<> watch_segments(Stream& stream, std::string directory) {
  const std::vector<int>& list_sizes = stream.ffmpeg->hls_list_sizes;
  const std::size_t variants = list_sizes.size();
  DirectoryWatch watch(directory);
  SegmentWindow window(list_sizes);
  for (;;) {
    const std::vector<DirectoryEvent> events = co_await watch.next();
    for (const DirectoryEvent& event : events) {
      if (event.kind == DirectoryEvent::Kind::close_write)
        measure(directory, event.name, variants, stream.findings.segment_rates);
      handle(event, directory, window);
    }
  }
}

// A transcoder cannot write into a directory that is gone, nor does the next one of the same path show in the watch.
Async<> keep_segments(Stream& stream, std::string directory) {
  std::string failure;
  try {
    co_await watch_segments(stream, directory);
  } catch (const std::system_error& error) {
    if (error.code() != std::errc::no_such_file_or_directory) throw;
    failure = format_traceback(std::current_exception());
  }
  stream.error(failure);
  Reason reason{.cause = Cause::directory_lost, .text = directory};
  co_await stream.restart(stream.ffmpeg->input_index, std::move(reason));
}

}  // namespace

Async<> segment_monitor(Stream& stream) {
  return keep_segments(stream, join_path(Config::HLS_DIRECTORY, std::to_string(stream.id)));
}

}  // namespace weir
