#include "backend/services/transcoder/output/output_arguments.h"

#include <fmt/format.h>

#include "backend/base/text.h"
#include "backend/platform/failure.h"

namespace weir {

namespace {

/// White space is escaped, too: FFmpeg trims it.
std::string escape_value(std::string_view text, std::string_view separators) {
  return escape(text, "\\' \t" + std::string(separators));
}

/// One receiver of the tee muxer: options, and an address that may hold any character.
std::string make_tee_slave(const OptionList& options, std::string_view address) {
  std::string slave = "[";
  for (const auto& [key, value] : options) {
    if (slave.size() > 1) slave += ':';
    slave += key + "=" + escape_value(value, ":]");
  }
  return slave + "]" + std::string(address);
}

/// The receivers as the one text that the muxer takes apart.
std::string join_tee_slaves(const std::vector<std::string>& slaves) {
  std::string joined;
  for (const std::string& slave : slaves) {
    if (!joined.empty()) joined += '|';
    joined += escape_value(slave, "|");
  }
  return joined;
}

/// "key=value:key=value" for an option that is itself a list of options.
std::string join_option_list(const OptionList& options) {
  std::string joined;
  for (const auto& [key, value] : options) {
    if (!joined.empty()) joined += ':';
    joined += key + "=" + escape_value(value, ":");
  }
  return joined;
}

std::vector<std::string> make_plain_output(const OutputTarget& target) {
  std::vector<std::string> arguments;
  for (const auto& [key, value] : target.options) arguments.insert(arguments.end(), {"-" + key, value});
  arguments.insert(arguments.end(), {"-f", target.format, target.address});
  return arguments;
}

std::string make_selection(const OutputTarget& target, const Encoding& encoding) {
  std::string selection;
  for (const FFmpegStreamSpecifier& stream : encoding.select(target.rendition, target.family)) {
    if (target.audio_only && (stream.stream_type != "a" || !selection.empty())) continue;
    selection += fmt::format("{}{}:{}", selection.empty() ? "" : ",", stream.stream_type, stream.stream_index);
  }
  if (selection.empty())
    throw ValueError(fmt::format("The stream has no audio, which is all that {} carries", target.format));
  return target.carries_subtitles && encoding.has_subtitles ? selection + ",s" : selection;
}

bool is_local(const OutputTarget& target) { return target.address.starts_with('/'); }

/// How the queue between the encode and a receiver behaves; one packet is a video frame or about 20 ms of audio.
std::string make_queue_options(const OutputTarget& target, bool paced) {
  OptionList options = {{"queue_size", "1000"}, {"drop_pkts_on_overflow", paced || !is_local(target) ? "1" : "0"}};
  if (target.reopens) {
    options.insert(options.end(), {{"attempt_recovery", "1"},
                                   {"recover_any_error", "1"},
                                   {"recovery_wait_time", "3"},
                                   {"restart_with_keyframe", "1"}});
  }
  return join_option_list(options);
}

std::string make_slave(const OutputTarget& target, const Encoding& encoding, bool paced) {
  OptionList options = {{"f", target.format},
                        {"select", make_selection(target, encoding)},
                        {"onfail", "ignore"},
                        {"use_fifo", "1"},
                        {"fifo_options", make_queue_options(target, paced)}};
  options.insert(options.end(), target.options.begin(), target.options.end());
  // The muxer would take the ADTS headers of copied AAC away, but not a second time, after a failure of the receiver.
  if (target.family == TagFamily::flv && encoding.audio_copied) options.emplace_back("bsfs/a", "aac_adtstoasc");
  // Lets the tag of a copied stream's source pass, which Matroska does not write down.
  if (target.format == "matroska") options.emplace_back("strict", "unofficial");
  return make_tee_slave(options, target.address);
}

}  // namespace

std::vector<std::string> make_output_arguments(const std::vector<OutputTarget>& targets, const Encoding& encoding,
                                               bool paced) {
  const bool whole =
      encoding.renditions.size() == 1 && encoding.select(0, targets[0].family).size() == encoding.renditions[0].size();
  if (targets.size() == 1 && whole && !targets[0].queued) return make_plain_output(targets[0]);
  std::vector<std::string> slaves;
  for (const OutputTarget& target : targets) slaves.push_back(make_slave(target, encoding, paced));
  // The muxers behind the tee cannot ask the encoders for the headers that some of them need.
  return {"-flags:v", "+global_header", "-flags:a", "+global_header", "-f", "tee", join_tee_slaves(slaves)};
}

}  // namespace weir
