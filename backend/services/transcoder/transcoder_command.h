#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backend/collaborators/cycle_publisher.h"
#include "backend/collaborators/ffmpeg.h"
#include "backend/collaborators/jsonconf.h"
#include "backend/services/transcoder/encoding/encoding.h"
#include "backend/services/transcoder/input/input_settling.h"
#include "backend/services/transcoder/input/input_source.h"
#include "backend/services/transcoder/output/hls_output.h"
#include "backend/services/transcoder/output/output_target.h"

namespace weir {

/// Makes the FFmpeg command of one run from a stream's document; docs/stream-document.md lists what it reads.
///
/// One encode feeds all outputs. A single receiver is written to directly; several are receivers of FFmpeg's tee muxer,
/// each behind a queue and a thread of its own, so that one which fails or stands still neither ends nor stalls the
/// others.
class TranscoderCommand : public FFmpeg {
 public:
  /// All three outlive the builder; the handler may be null.
  TranscoderCommand(const JsonConf& conf, int requested_input, Error* error_handler, CyclePublisher& publisher);

  Async<bool> generate_command(bool probe = false) override;
  void cleanup() override;

 private:
  /// The outputs as the document has them.
  struct Outputs {
    std::optional<HlsOutput> hls;
    std::vector<OutputTarget> targets;  ///< all but HLS
  };

  int count_inputs() const;
  InputSource read_input(int index) const;
  void build(bool launch);
  Outputs read_outputs() const;
  OutputTarget read_target(const Settings& output, int index) const;
  void publish_variants(Outputs& outputs, const Encoding& encoding, bool launch);
  std::vector<long long> begin_cycle(const HlsOutput& hls, const Encoding& encoding);
  std::vector<int> get_candidates() const;
  Async<std::string> settle_input();
  InputCandidate make_candidate(int index) const;
  void note_answers(const std::vector<int>& inputs, const SettledInput& settled);
  std::string tell_of_reasons(const std::vector<int>& inputs, const std::vector<std::string>& reasons) const;

  const JsonConf& conf_;
  Error* error_handler_;
  CyclePublisher& publisher_;
  std::string probed_format_;              ///< of the input that was settled; empty without a probe
  std::optional<long long> published_id_;  ///< of the stream, while the publisher knows of the cycle
};

}  // namespace weir
