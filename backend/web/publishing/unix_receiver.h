#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "backend/platform/descriptor.h"
#include "backend/platform/task.h"

namespace weir {

/// Receives what another process sends to a unix socket: one connection after the other. Always reads on, so that the
/// sender never waits for long, and gives the bytes on in pieces of some size, as each costs every viewer a wake-up.
class UnixReceiver {
 public:
  /// What becomes of it. Outlives the receiver.
  class Sink {
   public:
    virtual ~Sink() = default;
    /// Whether a process may send.
    virtual bool accepts(pid_t process) = 0;
    virtual void connected() = 0;
    virtual void received(std::string_view bytes) = 0;
    /// What was received is to go on now.
    virtual void flush() = 0;
    virtual void disconnected() = 0;
  };

  explicit UnixReceiver(Sink& sink) : sink_(sink) {}
  ~UnixReceiver() { close(); }
  UnixReceiver(const UnixReceiver&) = delete;
  UnixReceiver& operator=(const UnixReceiver&) = delete;

  /// Waits for connections at `path`, in place of whatever is there, and drops the present one. Throws `SystemError`.
  void listen(const std::string& path);
  /// Waits for no more, and drops the present connection.
  void close();

 private:
  Async<> serve(Descriptor listener);
  Async<> receive(Descriptor connection);

  Sink& sink_;
  Task task_;
  bool connected_ = false;
};

}  // namespace weir
