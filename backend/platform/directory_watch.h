#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "backend/platform/descriptor.h"
#include "backend/platform/poller.h"
#include "backend/platform/task.h"
#include "backend/platform/wait_queue.h"

namespace weir {

class DirectoryWatch;

/// The process's one inotify instance: the kernel allows few instances per user (128 by default) but many watches.
class DirectoryWatcher {
 public:
  DirectoryWatcher();
  ~DirectoryWatcher();

 private:
  friend class DirectoryWatch;

  void add(DirectoryWatch& watch, const std::string& directory);
  void remove(DirectoryWatch& watch);
  Async<> distribute();
  void read_events();
  void dispatch(int watch_descriptor, unsigned mask, std::string name);

  Descriptor inotify_;
  ReadWatch readable_;
  std::unordered_map<int, DirectoryWatch*> watches_;
  Task reader_;
};

/// What happened in a watched directory.
struct DirectoryEvent {
  enum class Kind {
    /// A file that was open for writing was closed.
    close_write,
    /// The kernel's queue was full and events were lost: the directory has to be read again.
    overflow,
    /// The directory is gone; no further event comes.
    removed,
  };
  Kind kind;
  std::string name;  ///< relative to the directory; only of `close_write`
};

/// A watch for files that are closed after writing in one directory, for one waiter. Released with the object.
class DirectoryWatch {
 public:
  /// Throws `std::system_error`: the directory is missing, or there are too many watches.
  explicit DirectoryWatch(const std::string& directory);
  ~DirectoryWatch();
  DirectoryWatch(const DirectoryWatch&) = delete;
  DirectoryWatch& operator=(const DirectoryWatch&) = delete;

  /// Waits for the next batch of events, in the order in which they happened.
  Async<std::vector<DirectoryEvent>> next();

 private:
  friend class DirectoryWatcher;

  void deliver(DirectoryEvent event);

  int watch_descriptor_ = -1;
  std::vector<DirectoryEvent> events_;
  WaitQueue waiters_;
};

}  // namespace weir
