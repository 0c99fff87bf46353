#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace weir {

/// Bit rates in kbit/s, sample rates and frame rates beyond this are unknown.
constexpr double max_figure = 1e9;

/// One media stream as FFmpeg describes it on a line. Bit rates are kbit/s; nothing or 0 means not printed.
struct MediaStream {
  int file = 0;     ///< which input or output
  int index = 0;    ///< among the streams of that file
  char type = 'd';  ///< 'v', 'a', 's', 'd' data, 't' attachment
  std::string codec;
  std::string profile;
  std::string language;
  std::string pix_fmt;
  std::string channels;  ///< the layout: "stereo"
  int width = 0;
  int height = 0;
  int sample_rate = 0;
  double fps = 0;
  std::optional<long long> bitrate;
  std::optional<long long> average;  ///< of the encoder's settings, printed on a line of its own
};

/// Reads lines like "  Stream #0:0[0x100](eng): Video: h264 (High), yuv420p, 1280x720, 25 fps" without console codes.
/// FFmpeg writes such a line in pieces, and a thread that cannot connect writes between them: then the description
/// follows lines later.
class StreamLineReader {
 public:
  /// The stream whose description ends in this line. Nothing for any other line: an input's titles are indented
  /// further, whatever they hold.
  std::optional<MediaStream> read(std::string_view line);

 private:
  std::optional<MediaStream> begun_;  ///< of which only the number was read
};

/// Where the streams of the output come from: "  Stream #0:1 -> #0:0 (copy)".
struct StreamMapping {
  int input_file = 0;
  int input_index = 0;
  int output_index = 0;
  bool copied = false;
};
std::optional<StreamMapping> parse_mapping_line(std::string_view line);

}  // namespace weir
