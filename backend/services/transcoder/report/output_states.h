#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/collaborators/ffmpeg.h"
#include "backend/collaborators/jsonconf.h"
#include "backend/platform/clock.h"

namespace weir {

/// What becomes of the outputs of one run, read from what FFmpeg's tee and fifo muxers print. Changes are notices of
/// the journal, at most one a minute for each output.
///
/// FFmpeg names a queue by its address in memory, and the output's address only when opening it fails. A failure that
/// names no output is that of the one which it can belong to; where several can, they are "unknown".
///
/// Lines may hold anything. Only what FFmpeg has coloured is read: texts of sources and receivers can't be, as FFmpeg
/// replaces escape characters in them.
class OutputStates {
 public:
  /// In the order of gravity.
  enum class State {
    starting,  ///< the transcoder has not made progress yet
    sending,   ///< nothing is known to be wrong
    unknown,   ///< nobody acknowledges what is sent by UDP or RTP; or see above
    retrying,  ///< its receiver does not take it; it is opened again every 3 s
    failed,    ///< given up until the next run
  };

  /// An output that has failed and was opened again has to hold for this long until it counts as sending.
  static constexpr std::chrono::seconds settling_time{4};

  /// Begins a run that writes to these receivers.
  void begin(const JsonConf& conf, std::vector<OutputReceiver> receivers);
  /// Takes a line of standard error.
  void watch(std::string_view line, bool is_progress);
  /// A list with one mapping for each output of the document, as JSON without passwords.
  const std::string& json() const noexcept { return json_; }

 private:
  struct Receiver : OutputReceiver {
    std::uint64_t queue = 0;  ///< the address that FFmpeg's lines name; 0 while it is not known
    State state = State::starting;
    std::string error = {};
    std::optional<TimePoint> reopened = {};
  };
  struct Output {
    int index = 0;
    State state = State::starting;
    std::string error = {};
    WallTime since = {};
    State told = State::sending;  ///< by the journal
    std::optional<TimePoint> told_at = {};
  };

  void read_connection_line(std::string_view text);
  void read_queue_line(std::uint64_t queue, std::string_view text);
  void read_tee_line(std::string_view text);
  void fail(std::uint64_t queue, std::string_view error);
  std::string explain(const Receiver& receiver, std::string_view error) const;
  void recover(std::uint64_t queue);
  bool bind(std::uint64_t queue, std::string_view error);
  void name(Receiver& named, std::uint64_t queue);
  std::vector<std::size_t> find_candidates(std::uint64_t queue, std::string_view error) const;
  bool fits_order(std::uint64_t queue, std::size_t candidate) const;
  Receiver* find(std::uint64_t queue);
  void settle(TimePoint now);
  void update();
  void tell(Output& output, TimePoint now);
  const Receiver& first_receiver(int output) const;
  void render();

  long long stream_id_ = 0;
  std::string label_;
  std::vector<Receiver> receivers_;  ///< in the order of the tee muxer's
  std::vector<Output> outputs_;
  std::uint64_t suspect_ = 0;    ///< the queue for which outputs are "unknown"
  std::string refused_address_;  ///< "host:port" that the latest line says was refused
  std::string srt_rejection_;    ///< the latest
  std::string unresolved_;       ///< the latest line about a host that has no address
  bool running_ = false;
  bool unsettled_ = false;  ///< something is to be looked at with the next progress
  std::string json_ = "[]";
};

}  // namespace weir
