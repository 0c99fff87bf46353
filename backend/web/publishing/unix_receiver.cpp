#include "backend/web/publishing/unix_receiver.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cerrno>

#include "backend/platform/clock.h"
#include "backend/platform/failure.h"
#include "backend/platform/poller.h"
#include "backend/platform/sleep.h"

namespace weir {

namespace {

constexpr std::chrono::milliseconds flush_interval{40};
constexpr std::size_t flush_size = 64 * 1024;
// Other tasks run between two such pieces.
constexpr std::size_t max_read = 256 * 1024;

Descriptor bind_socket(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) throw_errno(ENAMETOOLONG, "bind " + path);
  path.copy(address.sun_path, path.size());
  Descriptor listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!listener) throw_errno("socket");
  ::unlink(path.c_str());
  if (::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    throw_errno("bind " + path);
  if (::listen(listener.get(), 1) != 0) throw_errno("listen " + path);
  return listener;
}

pid_t peer_of(const Descriptor& connection) {
  ucred peer{};
  socklen_t size = sizeof peer;
  return ::getsockopt(connection.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 ? peer.pid : 0;
}

struct ReadResult {
  std::size_t size = 0;
  bool ended = false;
};

// Reads what is there, some KB beyond `max_read` at most.
ReadResult read_available(const Descriptor& connection, UnixReceiver::Sink& sink) {
  static std::array<char, 64 * 1024> buffer;
  ReadResult result;
  while (result.size < max_read) {
    const ssize_t size = ::read(connection.get(), buffer.data(), buffer.size());
    if (size < 0 && errno == EINTR) continue;
    result.ended = size == 0 || (size < 0 && errno != EAGAIN);
    if (size <= 0) break;
    sink.received({buffer.data(), static_cast<std::size_t>(size)});
    result.size += static_cast<std::size_t>(size);
  }
  return result;
}

}  // namespace

void UnixReceiver::listen(const std::string& path) {
  close();
  task_ = spawn("receiver of " + path, serve(bind_socket(path)));
}

void UnixReceiver::close() {
  task_.kill();
  if (std::exchange(connected_, false)) sink_.disconnected();
}

// A killed task touches nothing but its own frame.
Async<> UnixReceiver::serve(Descriptor listener) {
  ReadWatch watch(listener.get());
  for (;;) {
    co_await watch.readable();
    Descriptor connection(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!connection || !sink_.accepts(peer_of(connection))) continue;
    connected_ = true;
    sink_.connected();
    co_await receive(std::move(connection));
    connected_ = false;
    sink_.disconnected();
  }
}

Async<> UnixReceiver::receive(Descriptor connection) {
  ReadWatch watch(connection.get());
  TimePoint next_flush = now();
  ReadResult result;
  while (!result.ended) {
    // A socket's buffer of a fast sender is full sooner than the poller looks again.
    if (result.size >= flush_size)
      co_await sleep(std::chrono::seconds(0));
    else
      co_await watch.readable();
    result = read_available(connection, sink_);
    if (result.size < flush_size && !result.ended && now() < next_flush) {
      co_await sleep(next_flush - now());
      result = read_available(connection, sink_);
    }
    sink_.flush();
    next_flush = now() + flush_interval;
  }
}

}  // namespace weir
