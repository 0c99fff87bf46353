#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "backend/base/value.h"
#include "backend/collaborators/streaminfo.h"
#include "backend/services/transcoder/report/output_states.h"
#include "backend/services/transcoder/report/stream_line.h"

namespace weir {

/// Reads FFmpeg's descriptions of its inputs and outputs, with or without console colours, line by line.
///
/// Every video output has a `bitrate_avg`: the encoder's average; else the stream's own bit rate; else, of a copied
/// stream, that of its source or of the whole input; else an estimate from size and frame rate.
class MediaStreamInfo : public AVStreamInfo {
 public:
  static constexpr std::size_t max_streams = 256;

  void parse(std::string_view line) override;
  std::vector<StreamDescription> get_stream_by_specifier(const FFmpegStreamSpecifier& specifier,
                                                         bool from_outputs = false) const override;
  Value dump_inputs() const override;
  Value dump_outputs() const override;
  void follow_outputs(const JsonConf& conf, std::vector<OutputReceiver> receivers) override {
    output_states_.begin(conf, std::move(receivers));
  }
  void watch_outputs(std::string_view line, bool is_progress) override { output_states_.watch(line, is_progress); }
  const std::string& output_states() const override { return output_states_.json(); }
  Async<bool> probe(std::string arguments) override;

 private:
  /// Which part of the descriptions the lines belong to.
  enum class Section { none, input, mapping, output };

  bool parse_heading(std::string_view line);
  void parse_in_section(std::string_view line);
  void parse_duration(std::string_view line);
  void parse_side_data(std::string_view line);
  void add(std::vector<MediaStream>& streams, std::string_view line);
  StreamDescription describe(const MediaStream& stream, bool from_outputs) const;
  const MediaStream* find_source(const MediaStream& output) const;
  Value dump(const std::vector<MediaStream>& streams, bool from_outputs) const;

  Section section_ = Section::none;
  bool in_side_data_ = false;
  StreamLineReader stream_lines_;
  std::vector<MediaStream> inputs_;
  std::vector<MediaStream> outputs_;
  std::vector<StreamMapping> mappings_;
  std::optional<long long> input_bitrate_;
  OutputStates output_states_;
};

/// The bit rate in kbit/s that is assumed for video whose size and frame rate alone are known: 0.07 bit a pixel, at
/// least 64; 1000 when the size is unknown.
long long estimate_bitrate(int width, int height, double fps);

/// The URL within "-i 'URL'": all between the first and the last quote, as the text is made by plain substitution. A
/// single word may also stand without quotes. Nothing for any other text, so that no option can be smuggled in.
std::optional<std::string> parse_probe_arguments(std::string_view arguments);

}  // namespace weir
