#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "backend/platform/detached_call.h"
#include "backend/platform/sleep.h"
#include "backend/platform/task.h"
#include "backend/platform/wait_queue.h"
#include "backend/stream/manager/stream_manager.h"
#include "backend/web/now/figure_series.h"

namespace weir {

/// How far the media was at a point of the loop's time.
struct MediaPoint {
  TimePoint time;
  double media_seconds = 0;
};

/// Media time against the loop's, up to `current`, over the last 30 s or somewhat more, less when the run is younger;
/// nothing for less than 5 s. `earlier` ascends in time.
std::optional<double> measure_speed(std::span<const MediaPoint> earlier, MediaPoint current);

/// What FFmpeg's own figures do not say of a running stream.
struct Measured {
  std::optional<double> speed;    ///< over the last 30 s
  std::optional<double> bitrate;  ///< kbit/s: FFmpeg's where it has one, else of HLS, else of recordings
  std::vector<std::optional<double>> renditions;   ///< kbit/s per rendition of HLS
  std::optional<double> seconds_without_progress;  ///< since the last progress line
};

/// Samples the figures of the streams whose transcoder runs: every 10 s for the series of the last hour, every second
/// while somebody listens. The "since the last query" figures of the information record are not disturbed.
class Sampler {
 public:
  /// While one exists, samples are taken every second, the first at once. The sampler outlives it.
  class FastSeat {
   public:
    explicit FastSeat(Sampler& sampler);
    ~FastSeat() { --sampler_.fast_seats_; }
    FastSeat(const FastSeat&) = delete;
    FastSeat& operator=(const FastSeat&) = delete;

   private:
    Sampler& sampler_;
  };

  /// The manager outlives the sampler.
  explicit Sampler(const StreamManager& manager) : manager_(manager) {}
  ~Sampler() { recordings_task_.kill(); }
  Sampler(const Sampler&) = delete;
  Sampler& operator=(const Sampler&) = delete;

  /// Takes samples until it is killed.
  Async<> run();
  /// Waits until all streams were sampled once more.
  Async<> next() { co_await sampled_.wait(); }

  /// The latest sample; null for a stream whose transcoder did not run then.
  const FigureValues* find(long long stream_id) const;
  /// Null for a stream that never ran, or not within the last hour or two.
  const FigureSeries* find_series(long long stream_id) const;
  /// The newest step of all series.
  long long newest_step() const;
  /// Without a system call.
  Measured measure(const Stream& stream) const;
  void forget(long long stream_id) { kept_.erase(stream_id); }

 private:
  /// Growth of the files that a run writes.
  struct Growth {
    TimePoint time;
    std::uint64_t bytes = 0;
    std::optional<double> kilobits;
  };
  /// CPU time of a transcoder since its start.
  struct CpuPoint {
    TimePoint time;
    std::chrono::nanoseconds used;
  };
  struct Kept {
    pid_t process = 0;
    std::vector<MediaPoint> points;  ///< of the last steps
    std::optional<Growth> recordings;
    std::optional<CpuPoint> cpu;       ///< at the latest sample
    std::optional<CpuPoint> step_cpu;  ///< at the latest step
    std::optional<FigureValues> sample;
    FigureSeries series;
  };
  struct Recordings {
    long long stream_id = 0;
    pid_t process = 0;
  };
  struct FileSizes;

  Async<> wait_for_next();
  Async<> sample_all();
  void sample(const Stream& stream, std::optional<long long> step);
  static std::optional<CpuPoint> read_process(const Stream& stream, FigureValues& sample);
  static std::optional<double> percent(const std::optional<CpuPoint>& earlier, const std::optional<CpuPoint>& later);
  static Measured measure(const Stream& stream, const Kept* kept);
  void begin_recordings(const std::vector<std::shared_ptr<Stream>>& streams);
  Async<> measure_recordings(std::vector<Recordings> all, std::shared_ptr<FileSizes> sizes);
  void note_growth(const Recordings& recordings, std::optional<std::uint64_t> bytes);
  void forget_old();

  const StreamManager& manager_;
  std::unordered_map<long long, std::unique_ptr<Kept>> kept_;  ///< by stream id
  long long newest_step_ = -1;
  int fast_seats_ = 0;
  SleepWait* waiting_ = nullptr;
  WaitQueue sampled_;
  DetachedCall file_sizes_;
  Task recordings_task_;
};

}  // namespace weir
