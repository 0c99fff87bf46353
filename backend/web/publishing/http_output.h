#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>

#include "backend/platform/wait_queue.h"
#include "backend/web/live_body.h"
#include "backend/web/publishing/live_format.h"
#include "backend/web/publishing/live_ring.h"
#include "backend/web/publishing/unix_receiver.h"
#include "backend/web/publishing/viewers.h"

namespace weir {

class HttpOutput;

/// Who watches an output.
struct HttpClient {
  std::string address;
  std::string port;
};

/// One viewer's response. Shares the output with the registry of outputs and the other viewers.
class HttpViewer : public LiveBody {
 public:
  HttpViewer(std::shared_ptr<HttpOutput> output, HttpClient client, std::unique_ptr<Viewers::Seat> seat);
  ~HttpViewer() override;

  Async<std::vector<LiveSlice>> next() override;
  const HttpClient& client() const noexcept { return client_; }

 private:
  std::shared_ptr<HttpOutput> output_;
  HttpClient client_;
  std::unique_ptr<Viewers::Seat> seat_;
  int period_;
  LiveRing::Position position_;
};

/// One "http" output of a stream over the runs of its transcoder: what it receives goes to all viewers.
class HttpOutput : private UnixReceiver::Sink {
 public:
  /// `accepts`: whether a process is the stream's transcoder.
  HttpOutput(std::string format, std::function<bool(pid_t)> accepts);
  ~HttpOutput() override { end(); }

  const std::string& format() const noexcept { return format_; }
  /// Waits for the next run's transcoder. Throws `SystemError`.
  void listen(const std::string& socket) { receiver_.listen(socket); }
  /// Whether there was anything to view since it was made or the viewers were sent away.
  bool has_begun() const noexcept { return begun_; }
  /// Since when no transcoder is connected; nothing while one is.
  std::optional<TimePoint> silent_since() const noexcept { return silent_since_; }
  /// Ends the responses of the present viewers.
  void send_viewers_away();
  /// The output is no more: ends all responses; `on_left` is not called from now on.
  void end();

  const std::unordered_set<const HttpViewer*>& viewers() const noexcept { return viewers_; }
  /// Called when a viewer has left.
  std::function<void(const HttpViewer&)> on_left;

 private:
  friend class HttpViewer;

  bool accepts(pid_t process) override { return accepts_(process); }
  void connected() override;
  void received(std::string_view bytes) override { parser_->add(bytes, pending_); }
  void flush() override;
  void disconnected() override;
  Async<> wake_viewers();

  std::string format_;
  std::function<bool(pid_t)> accepts_;
  std::unique_ptr<LiveFormat> parser_;
  LiveChunk pending_;
  LiveRing ring_{{}};
  WaitQueue waiting_;  ///< viewers
  Task waker_;
  WaitQueue waker_waits_;
  bool has_news_ = false;  ///< for viewers
  std::unordered_set<const HttpViewer*> viewers_;
  bool begun_ = false;
  int period_ = 0;  ///< counts up each time the viewers are sent away
  std::optional<TimePoint> silent_since_ = now();
  UnixReceiver receiver_{*this};
};

}  // namespace weir
