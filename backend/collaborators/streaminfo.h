#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/base/value.h"
#include "backend/collaborators/ffmpeg.h"
#include "backend/collaborators/jsonconf.h"
#include "backend/platform/async.h"

namespace weir {

/// One media stream of an input or output.
struct StreamDescription {
  std::string stream_type;               ///< "v" video, "a" audio, "s" subtitles, "d" data
  double fps = 0;                        ///< of video; 0 when unknown
  std::optional<long long> bitrate_avg;  ///< kbit/s
  std::optional<long long> bitrate;      ///< kbit/s
  int width = 0;                         ///< of video, in pixels
  int height = 0;
};

/// The media streams of one run of a transcoder, read from its standard error.
class AVStreamInfo {
 public:
  virtual ~AVStreamInfo() = default;

  /// Takes what the line says about input and output streams.
  virtual void parse(std::string_view line) = 0;
  /// The matching streams of the inputs or of the outputs, possibly none.
  virtual std::vector<StreamDescription> get_stream_by_specifier(const FFmpegStreamSpecifier& specifier,
                                                                 bool from_outputs = false) const = 0;
  /// Descriptions of the media streams for the web layer: a list of mappings.
  virtual Value dump_inputs() const = 0;
  virtual Value dump_outputs() const = 0;

  /// Begins to follow the outputs: the receivers of the run's command.
  virtual void follow_outputs(const JsonConf& conf, std::vector<OutputReceiver> receivers) = 0;
  /// Takes what the line says about the outputs. `is_progress`: the line is one of figures.
  virtual void watch_outputs(std::string_view line, bool is_progress) = 0;
  /// What becomes of the outputs, for the web layer: a list as JSON, without passwords.
  virtual const std::string& output_states() const = 0;

  /// Whether an input answers. `arguments` is "-i '{}'" with the input's URL in place of the braces. Bounded in time;
  /// a kill of the waiting task leaves no process behind.
  virtual Async<bool> probe(std::string arguments) = 0;
};

}  // namespace weir
