#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backend/base/value.h"
#include "backend/platform/async.h"
#include "backend/platform/clock.h"

namespace weir {

/// Selects media streams: "v" and 0 is the first video stream. As a specifier of an output, `output` tells which one of
/// the transcoder's outputs is meant.
struct FFmpegStreamSpecifier {
  std::string stream_type = "v";  ///< "v", "a", "s", or empty for any
  int stream_index = 0;           ///< among the streams of that type
  int output = 0;                 ///< index of the transcoder's output, where outputs are asked
};

/// What a probe of one of a stream's inputs told.
struct InputAnswer {
  int index = 0;
  bool answers = false;
  std::string reason = {};  ///< why it does not, where that is known
  WallTime time = {};
};

/// What one of FFmpeg's muxers writes to. An HLS output of the document has one for each rendition.
struct OutputReceiver {
  int output = 0;  ///< its index in the document
  std::string protocol = {};
  std::string address = {};  ///< as FFmpeg prints it
};

/// The command builder of one run of a stream's transcoder. Failures are left as the error handler's error message.
class FFmpeg {
 public:
  virtual ~FFmpeg() = default;

  /// Makes the command. With `probe` it settles which input this run reads, which may take time: the requested one if
  /// it answers a probe, else the best of the others that does; a stream with one input is not probed.
  /// Without `probe` it only checks that a command can be made. False with the reason at the error handler.
  virtual Async<bool> generate_command(bool probe = false) = 0;
  /// Releases what the builder holds. May be called more than once.
  virtual void cleanup() = 0;

  std::vector<std::string> command;       ///< program and arguments, after a true `generate_command` until the launch
  std::vector<OutputReceiver> receivers;  ///< of the command, in the order in which it names them
  bool no_input_answers = false;          ///< why `generate_command` failed, when it did
  int input_index = 0;                    ///< the input that the run reads
  std::vector<int> hls_list_sizes;        ///< per HLS variant: how many segments its playlist lists
  std::vector<std::vector<FFmpegStreamSpecifier>> hls_variants;  ///< per HLS variant: its output streams
  std::optional<std::string> hls_master_playlist;                ///< file name; nothing when none is wanted
  std::vector<std::string> recordings;     ///< paths of the files that the run writes as its outputs
  std::vector<InputAnswer> input_answers;  ///< of the inputs that the latest probing call has an answer of
};

/// Composes the address of an RTMP output. A setter takes one field of the output, null when it is absent, and is true
/// when it accepts it.
class FFmpegRTMPOutput {
 public:
  virtual ~FFmpegRTMPOutput() = default;
  virtual bool set_server(const Value& server) = 0;
  virtual bool set_port(const Value& port) = 0;
  virtual bool set_app(const Value& app) = 0;
  virtual bool set_playpath(const Value& playpath) = 0;
  virtual bool set_username(const Value& username) = 0;
  virtual bool set_password(const Value& password) = 0;
  virtual std::string get_url() const = 0;
};

}  // namespace weir
