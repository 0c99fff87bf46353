#include "backend/platform/directory_watch.h"

#include <sys/inotify.h>

#include <array>
#include <cerrno>

#include "backend/platform/failure.h"
#include "backend/platform/loop.h"

namespace weir {

DirectoryWatcher::DirectoryWatcher() : inotify_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)), readable_(inotify_.get()) {
  if (!inotify_) throw_errno("inotify_init1");
  reader_ = spawn("directory watches", distribute());
}

DirectoryWatcher::~DirectoryWatcher() { reader_.kill(); }

void DirectoryWatcher::add(DirectoryWatch& watch, const std::string& directory) {
  watch.watch_descriptor_ = ::inotify_add_watch(inotify_.get(), directory.c_str(), IN_CLOSE_WRITE | IN_ONLYDIR);
  if (watch.watch_descriptor_ < 0) throw_errno("watch of " + directory);
  watches_[watch.watch_descriptor_] = &watch;
}

void DirectoryWatcher::remove(DirectoryWatch& watch) {
  const auto found = watches_.find(watch.watch_descriptor_);
  if (found == watches_.end() || found->second != &watch) return;
  watches_.erase(found);
  ::inotify_rm_watch(inotify_.get(), watch.watch_descriptor_);
}

Async<> DirectoryWatcher::distribute() {
  for (;;) {
    co_await readable_.readable();
    read_events();
  }
}

void DirectoryWatcher::read_events() {
  alignas(inotify_event) std::array<char, 64 * 1024> buffer;
  ssize_t size = 0;
  while ((size = ::read(inotify_.get(), buffer.data(), buffer.size())) > 0) {
    for (const char* at = buffer.data(); at < buffer.data() + size;) {
      const auto* event = reinterpret_cast<const inotify_event*>(at);
      dispatch(event->wd, event->mask, event->len > 0 ? std::string(event->name) : std::string());
      at += sizeof(inotify_event) + event->len;
    }
  }
  if (size < 0 && errno != EAGAIN && errno != EINTR) throw_errno("inotify read");
}

void DirectoryWatcher::dispatch(int watch_descriptor, unsigned mask, std::string name) {
  if (mask & IN_Q_OVERFLOW) {
    for (const auto& [descriptor, watch] : watches_) watch->deliver({DirectoryEvent::Kind::overflow, {}});
    return;
  }
  const auto found = watches_.find(watch_descriptor);
  if (found == watches_.end()) return;
  DirectoryWatch& watch = *found->second;
  if (mask & IN_IGNORED) {
    watches_.erase(found);
    watch.deliver({DirectoryEvent::Kind::removed, {}});
  } else if (mask & IN_CLOSE_WRITE) {
    watch.deliver({DirectoryEvent::Kind::close_write, std::move(name)});
  }
}

DirectoryWatch::DirectoryWatch(const std::string& directory) {
  Loop::current().directory_watcher().add(*this, directory);
}

DirectoryWatch::~DirectoryWatch() { Loop::current().directory_watcher().remove(*this); }

Async<std::vector<DirectoryEvent>> DirectoryWatch::next() {
  if (events_.empty()) co_await waiters_.wait();
  co_return std::exchange(events_, {});
}

void DirectoryWatch::deliver(DirectoryEvent event) {
  events_.push_back(std::move(event));
  waiters_.wake_all();
}

}  // namespace weir
