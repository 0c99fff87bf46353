#include "backend/web/events/stream_metrics.h"

#include <fmt/format.h>

#include <map>
#include <nlohmann/json.hpp>

#include "backend/base/text_form.h"
#include "backend/platform/failure.h"

namespace weir {

namespace {

using Type = MetricsText::Type;
using Family = MetricsText::Family;

/// The families of streams, and the one place that fills them.
class StreamFamilies {
 public:
  StreamFamilies(MetricsText& text, const Sampler& sampler)
      : sampler_(sampler),
        info_(text.family("weir_stream_info", Type::gauge, "1 for each stream, with what it is called.")),
        wanted_(text.family("weir_stream_wanted", Type::gauge, "1 while the stream is meant to run, 0 while stopped.")),
        up_(text.family("weir_stream_up", Type::gauge, "1 while the stream's transcoder makes progress, else 0.")),
        launches_(
            text.family("weir_stream_launches_total", Type::counter, "Transcoders launched since the server's start.")),
        restarts_(text.family("weir_stream_restarts_total", Type::counter,
                              "Cycles that ended and were followed by another, by cause; without causes that did not "
                              "occur since the server's start.")),
        viewers_(text.family("weir_stream_viewers", Type::gauge, "Viewers of HLS and HTTP outputs now.")),
        input_(text.family("weir_stream_input_index", Type::gauge, "The input in use; 0 is the preferred one.")),
        speed_(text.family("weir_stream_speed_ratio", Type::gauge,
                           "Media time by real time over the last 30 s; absent in a run's first seconds.")),
        fps_(text.family("weir_stream_frames_per_second", Type::gauge, "Frames encoded per second.")),
        bytes_(text.family("weir_stream_output_bytes_per_second", Type::gauge,
                           "Bit rate by 8: of the output as the transcoder prints it, else of HLS segments, else of "
                           "recordings; absent where none is known.")),
        media_(text.family("weir_stream_media_seconds", Type::gauge, "Media time since the transcoder's start.")),
        cpu_(text.family("weir_stream_cpu_seconds_total", Type::counter,
                         "CPU time of the transcoder; begins again with each.")),
        memory_(text.family("weir_stream_resident_bytes", Type::gauge, "Resident memory of the transcoder.")) {}

  void add(const Stream& stream, const StreamCounters::Counts& counts) {
    const std::string labels = fmt::format("stream=\"{}\"", stream.id);
    const Value& status = stream.get_status();
    info_.add(labels + "," + metric_label("label", to_text(stream.conf->get_json_conf("label"))), std::uint64_t{1});
    wanted_.add(labels, std::uint64_t{is_active(status)});
    up_.add(labels, std::uint64_t{status == "running"});
    launches_.add(labels, counts.launches);
    for (std::size_t cause = 0; cause < counts.restarts.size(); ++cause) {
      if (counts.restarts[cause] == 0) continue;
      const std::string_view word = to_word(static_cast<Cause>(cause));
      restarts_.add(fmt::format("{},cause=\"{}\"", labels, word), counts.restarts[cause]);
    }
    viewers_.add(labels, std::uint64_t{stream.clientinfo->size()});
    if (status == "running") add_progress(stream, labels);
    add_process(stream, labels);
  }

 private:
  void add_progress(const Stream& stream, const std::string& labels) {
    input_.add(labels, static_cast<double>(stream.ffmpeg->input_index));
    const Measured measured = sampler_.measure(stream);
    if (measured.speed) speed_.add(labels, *measured.speed);
    fps_.add(labels, stream.stats.fps.value);
    if (measured.bitrate) bytes_.add(labels, *measured.bitrate * 125);
    media_.add(labels, static_cast<double>(stream.stats.time));
  }

  void add_process(const Stream& stream, const std::string& labels) {
    if (!stream.procinfo) return;
    try {
      const double cpu = std::chrono::duration<double>(stream.procinfo->cpu_time()).count();
      const std::uint64_t resident = stream.procinfo->memory_info().rss;
      cpu_.add(labels, cpu);
      memory_.add(labels, resident);
    } catch (const NoSuchProcess&) {
      // It has ended.
    }
  }

  const Sampler& sampler_;
  Family info_, wanted_, up_, launches_, restarts_, viewers_, input_, speed_, fps_, bytes_, media_, cpu_, memory_;
};

}  // namespace

Async<> add_stream_metrics(std::shared_ptr<MetricsText> text, std::vector<std::shared_ptr<Stream>> streams,
                           const StreamCounters& counters, const Sampler& sampler) {
  constexpr std::size_t part = 64;
  StreamFamilies families(*text, sampler);
  for (std::size_t i = 0; i < streams.size(); ++i) {
    if (i % part == part - 1) co_await yield_to_others();
    families.add(*streams[i], counters.of(streams[i]->id));
  }
}

}  // namespace weir
