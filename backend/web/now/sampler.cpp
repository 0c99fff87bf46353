#include "backend/web/now/sampler.h"

#include <algorithm>
#include <filesystem>

#include "backend/base/log.h"
#include "backend/platform/failure.h"
#include "backend/platform/loop.h"

namespace weir {

namespace {

using std::chrono::seconds;
using Seconds = std::chrono::duration<double>;

constexpr seconds step{FigureSeries::step_seconds};
constexpr seconds speed_window{30};
constexpr seconds min_speed_window{5};
constexpr std::size_t kept_points = speed_window / step + 1;
// A transcoder that makes progress says so twice a second.
constexpr seconds usual_progress{2};
constexpr seconds file_patience{2};
constexpr std::size_t part = 64;  // streams between two looks at what else is ready

// A transcoder that has been silent for longer was there already, and has not moved since.
std::optional<MediaPoint> media_point(const StreamStats& stats) {
  if (!stats.taken_at) return std::nullopt;
  const TimePoint time = now();
  const bool is_silent = time - *stats.taken_at > usual_progress;
  return MediaPoint{is_silent ? time : *stats.taken_at, stats.media_seconds};
}

// Of the wall clock, which is what the series is aligned to; a wake-up may come a little early on it.
long long current_step() {
  const auto wall = Loop::current().clock().wall().time_since_epoch() + std::chrono::milliseconds(500);
  return std::max(0LL, static_cast<long long>(wall / step));
}

std::optional<double> sum_of(const std::vector<std::optional<double>>& values) {
  std::optional<double> sum;
  for (const auto& value : values) {
    if (value) sum = sum.value_or(0) + *value;
  }
  return sum;
}

}  // namespace

std::optional<double> measure_speed(std::span<const MediaPoint> earlier, MediaPoint current) {
  const auto long_ago = std::ranges::find_if(earlier.rbegin(), earlier.rend(), [&](const MediaPoint& point) {
    return current.time - point.time >= speed_window;
  });
  if (earlier.empty()) return std::nullopt;
  const MediaPoint& from = long_ago == earlier.rend() ? earlier.front() : *long_ago;
  if (current.time - from.time < min_speed_window) return std::nullopt;
  return std::max(0.0, (current.media_seconds - from.media_seconds) / Seconds(current.time - from.time).count());
}

/// Sizes of the files of several streams; shared with the thread that reads them.
struct Sampler::FileSizes {
  std::vector<std::vector<std::string>> paths;
  std::vector<std::optional<std::uint64_t>> bytes;

  void read() {
    for (const auto& files : paths) {
      std::optional<std::uint64_t> sum;
      for (const std::string& file : files) {
        std::error_code error;
        const std::uint64_t size = std::filesystem::file_size(file, error);
        if (!error) sum = sum.value_or(0) + size;
      }
      bytes.push_back(sum);
    }
  }
};

Sampler::FastSeat::FastSeat(Sampler& sampler) : sampler_(sampler) {
  if (sampler_.fast_seats_++ == 0 && sampler_.waiting_) sampler_.waiting_->wake();
}

Async<> Sampler::run() {
  for (;;) {
    co_await wait_for_next();
    co_await sample_all();
    sampled_.wake_all();
  }
}

Async<> Sampler::wait_for_next() {
  const seconds period = fast_seats_ > 0 ? seconds(1) : step;
  const auto wall = Loop::current().clock().wall().time_since_epoch();
  SleepWait wait = sleep(period - wall % period);
  struct Known {
    Known(SleepWait*& pointer, SleepWait& wait) : waiting(pointer) { waiting = &wait; }
    ~Known() { waiting = nullptr; }
    SleepWait*& waiting;
  };
  const Known known(waiting_, wait);
  co_await wait;
}

Async<> Sampler::sample_all() {
  const long long now_step = current_step();
  const bool is_new = now_step != newest_step_;
  const std::vector<std::shared_ptr<Stream>> streams = manager_.all_streams();
  for (std::size_t i = 0; i < streams.size(); ++i) {
    if (i % part == part - 1) co_await yield_to_others();
    sample(*streams[i], is_new ? std::optional(now_step) : std::nullopt);
  }
  if (!is_new) co_return;
  newest_step_ = now_step;
  if (newest_step_ % FigureSeries::steps == 0) forget_old();
  if (recordings_task_.dead()) begin_recordings(streams);
}

void Sampler::forget_old() {
  std::erase_if(kept_,
                [&](const auto& entry) { return entry.second->series.newest() <= newest_step_ - FigureSeries::steps; });
}

void Sampler::sample(const Stream& stream, std::optional<long long> now_step) {
  const auto known = kept_.find(stream.id);
  if (!stream.procinfo || !stream.proc) {
    if (known != kept_.end()) known->second->sample.reset();
    return;
  }
  std::unique_ptr<Kept>& place = known == kept_.end() ? kept_[stream.id] : known->second;
  if (!place) place = std::make_unique<Kept>();
  Kept& kept = *place;
  if (kept.process != stream.proc->pid()) {
    kept.process = stream.proc->pid();
    kept.points.clear();
    kept.recordings.reset();
    kept.cpu.reset();
    kept.step_cpu.reset();
  }
  FigureValues sample;
  const std::optional<CpuPoint> cpu = read_process(stream, sample);
  const Measured measured = measure(stream, &kept);
  const auto set = [&](Figure figure, std::optional<double> value) {
    sample[static_cast<std::size_t>(figure)] = value;
  };
  set(Figure::cpu, percent(kept.cpu, cpu));
  set(Figure::speed, measured.speed);
  if (stream.stats.taken_at) set(Figure::fps, stream.stats.fps.value);
  set(Figure::bitrate, measured.bitrate);
  set(Figure::viewers, static_cast<double>(stream.clientinfo->size()));
  kept.sample = sample;
  kept.cpu = cpu;
  if (!now_step) return;
  // Of the whole step, also when there were samples within.
  set(Figure::cpu, percent(kept.step_cpu, cpu));
  kept.step_cpu = cpu;
  kept.series.put(*now_step, sample);
  if (kept.points.size() == kept_points) kept.points.erase(kept.points.begin());
  if (const auto point = media_point(stream.stats)) kept.points.push_back(*point);
}

std::optional<Sampler::CpuPoint> Sampler::read_process(const Stream& stream, FigureValues& sample) {
  constexpr double mebibyte = 1 << 20;
  try {
    const CpuPoint cpu{now(), stream.procinfo->cpu_time()};
    const double rss = static_cast<double>(stream.procinfo->memory_info().rss);
    sample[static_cast<std::size_t>(Figure::memory)] = rss / mebibyte;
    return cpu;
  } catch (const NoSuchProcess&) {
    // It has ended; the supervision task is about to see that.
    return std::nullopt;
  }
}

std::optional<double> Sampler::percent(const std::optional<CpuPoint>& earlier, const std::optional<CpuPoint>& later) {
  if (!earlier || !later || later->time <= earlier->time) return std::nullopt;
  return 100 * Seconds(later->used - earlier->used) / Seconds(later->time - earlier->time);
}

const FigureValues* Sampler::find(long long stream_id) const {
  const auto found = kept_.find(stream_id);
  return found == kept_.end() || !found->second->sample ? nullptr : &*found->second->sample;
}

const FigureSeries* Sampler::find_series(long long stream_id) const {
  const auto found = kept_.find(stream_id);
  return found == kept_.end() ? nullptr : &found->second->series;
}

long long Sampler::newest_step() const { return newest_step_ < 0 ? current_step() : newest_step_; }

Measured Sampler::measure(const Stream& stream) const {
  const auto found = kept_.find(stream.id);
  const bool is_known = found != kept_.end() && stream.proc && found->second->process == stream.proc->pid();
  return measure(stream, is_known ? found->second.get() : nullptr);
}

Measured Sampler::measure(const Stream& stream, const Kept* kept) {
  Measured measured;
  const auto point = media_point(stream.stats);
  if (!point) return measured;
  if (kept) measured.speed = measure_speed(kept->points, *point);
  measured.seconds_without_progress = Seconds(now() - *stream.stats.taken_at).count();
  measured.renditions = stream.findings.segment_rates.kilobits(now());
  // It is a whole number until FFmpeg has printed one.
  if (!stream.stats.bitrate.integer)
    measured.bitrate = stream.stats.bitrate.value;
  else if (!measured.renditions.empty())
    measured.bitrate = sum_of(measured.renditions);
  else if (kept && kept->recordings)
    measured.bitrate = kept->recordings->kilobits;
  return measured;
}

// The files may lie on a disk that has stopped answering.
void Sampler::begin_recordings(const std::vector<std::shared_ptr<Stream>>& streams) {
  std::vector<Recordings> all;
  auto sizes = std::make_shared<FileSizes>();
  for (const auto& stream : streams) {
    if (!stream->proc || stream->ffmpeg->recordings.empty()) continue;
    all.push_back({stream->id, stream->proc->pid()});
    sizes->paths.push_back(stream->ffmpeg->recordings);
  }
  if (all.empty()) return;
  recordings_task_ = spawn("sizes of recordings", measure_recordings(std::move(all), std::move(sizes)));
}

Async<> Sampler::measure_recordings(std::vector<Recordings> all, std::shared_ptr<FileSizes> sizes) {
  const bool read = co_await file_sizes_.run([sizes] { sizes->read(); }, file_patience);
  for (std::size_t i = 0; i < all.size(); ++i) note_growth(all[i], read ? sizes->bytes[i] : std::nullopt);
}

void Sampler::note_growth(const Recordings& recordings, std::optional<std::uint64_t> bytes) {
  const auto found = kept_.find(recordings.stream_id);
  if (found == kept_.end() || found->second->process != recordings.process) return;
  std::optional<Growth>& growth = found->second->recordings;
  if (!bytes) return growth.reset();
  Growth next{now(), *bytes, std::nullopt};
  if (growth && next.bytes >= growth->bytes && next.time > growth->time) {
    const double kilobits = static_cast<double>(next.bytes - growth->bytes) * 8 / 1000;
    next.kilobits = kilobits / Seconds(next.time - growth->time).count();
  }
  growth = next;
}

}  // namespace weir
