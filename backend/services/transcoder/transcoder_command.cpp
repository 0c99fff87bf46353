#include "backend/services/transcoder/transcoder_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <system_error>

#include "backend/base/log.h"
#include "backend/base/members.h"
#include "backend/base/text_form.h"
#include "backend/collaborators/config.h"
#include "backend/collaborators/http_output.h"
#include "backend/platform/child_process.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"
#include "backend/platform/loop.h"
#include "backend/services/transcoder/encoding/encoding.h"
#include "backend/services/transcoder/input/silence_limit.h"
#include "backend/services/transcoder/output/hls_output.h"
#include "backend/services/transcoder/output/output_arguments.h"
#include "backend/services/transcoder/output/recording.h"
#include "backend/services/transcoder/output/srt_target.h"

namespace weir {

namespace {

/// Runs a step; gives the reason why it could not be done, empty when it was.
template <class Step>
std::string try_step(Step step) {
  try {
    step();
    return {};
  } catch (const ValueError& failure) {
    return failure.what();
  } catch (const std::system_error& failure) {
    return failure.what();
  }
}

void append(std::vector<std::string>& arguments, const std::vector<std::string>& more) {
  arguments.insert(arguments.end(), more.begin(), more.end());
}

std::vector<TagFamily> get_families(const std::vector<OutputTarget>& targets) {
  std::vector<TagFamily> families;
  for (TagFamily family : {TagFamily::flv, TagFamily::mp4}) {
    if (std::ranges::any_of(targets, [&](const auto& target) { return target.family == family; })) {
      families.push_back(family);
    }
  }
  return families;
}

/// Half of what the kernel takes in all with the environment.
constexpr std::size_t max_command = 1024 * 1024;

void check_arguments(const std::vector<std::string>& command) {
  std::size_t size = 0;
  for (std::size_t i = 0; i < command.size(); ++i) {
    const std::string& name = command[i == 0 ? 0 : i - 1];
    if (command[i].find('\0') != std::string::npos)
      throw ValueError(fmt::format("The value of {} contains a NUL character", name));
    if (command[i].size() > max_argument_bytes) {
      throw ValueError(fmt::format("The value of {} is too long: {} bytes (at most {})", name, command[i].size(),
                                   max_argument_bytes));
    }
    size += command[i].size() + 1 + sizeof(char*);
  }
  if (size > max_command) {
    throw ValueError(fmt::format("The command is too long: {} bytes (at most {})", size, max_command));
  }
}

void keep_recordings(const std::vector<OutputTarget>& targets) {
  for (const OutputTarget& target : targets) {
    if (!target.recording.empty()) keep_existing_recording(target.recording);
  }
}

/// No file may have two writers, nor be renamed as an old recording while it is being read.
void refuse_shared_files(const InputSource& source, const std::vector<OutputTarget>& targets) {
  std::set<std::string> files;
  const std::string address = get_input_address(source.url, source.format);
  const std::string read =
      address.starts_with("file:") ? std::filesystem::absolute(address.substr(5)).lexically_normal().string() : "";
  for (const OutputTarget& target : targets) {
    if (!target.recording.empty() && !files.insert(target.recording).second) {
      throw ValueError(fmt::format("Two outputs write the file {}", target.recording));
    }
    if (!target.recording.empty() && target.recording == read) {
      throw ValueError(fmt::format("The file {} is both input and output", read));
    }
  }
}

}  // namespace

TranscoderCommand::TranscoderCommand(const JsonConf& conf, int requested_input, Error* error_handler,
                                     CyclePublisher& publisher)
    : conf_(conf), error_handler_(error_handler), publisher_(publisher) {
  input_index = requested_input;
}

Async<bool> TranscoderCommand::generate_command(bool probe) {
  std::string problem;
  if (probe && count_inputs() > 1) problem = co_await settle_input();
  if (problem.empty()) problem = try_step([&] { build(probe); });
  if (!problem.empty() && error_handler_ != nullptr) error_handler_->set_error_msg(mask_passwords(problem));
  co_return problem.empty();
}

int TranscoderCommand::count_inputs() const {
  int count = 0;
  while (conf_.get_json_conf(fmt::format("input.{}", count)).is_object()) ++count;
  return count;
}

InputSource TranscoderCommand::read_input(int index) const {
  const int count = count_inputs();
  if (count == 0) throw ValueError("The stream has no input");
  if (index < 0 || index >= count) {
    throw ValueError(fmt::format("No input #{}: the stream has {}", index, count));
  }
  const std::string key = fmt::format("input.{}", index);
  const Value& input = conf_.get_json_conf(key);
  const Value& first = conf_.get_json_conf("input.0");
  InputSource source = read_input_source(Settings(input, key));
  if (index > 0 && member(input, "options") == member(first, "options"))
    drop_foreign_options(Settings(first, "input.0"), source);
  return source;
}

void TranscoderCommand::build(bool launch) {
  InputSource source = read_input(input_index);
  // What comes by UDP alone is practically always MPEG-TS, and FFmpeg told so begins 4 s sooner.
  const bool is_unknown = source.format.empty() && probed_format_.empty();
  if (is_unknown && get_network_scheme(source) == "udp") source.format = "mpegts";
  if (probed_format_ == "mpegts" || source.format == "mpegts") expect_transport_stream(source);
  limit_silence(source);
  Outputs outputs = read_outputs();
  recordings.clear();
  for (const OutputTarget& target : outputs.targets) {
    if (!target.recording.empty()) recordings.push_back(target.recording);
  }
  refuse_shared_files(source, outputs.targets);
  EncodingDemands demands;
  demands.segment_time = outputs.hls ? outputs.hls->segment_time : 0;
  demands.wants_subtitles = std::ranges::any_of(outputs.targets, &OutputTarget::carries_subtitles);
  if (outputs.targets.size() + (outputs.hls ? 1 : 0) > 1) demands.families = get_families(outputs.targets);
  const Encoding encoding = make_encoding(Settings(conf_.document(), ""), demands);
  publish_variants(outputs, encoding, launch);
  command = {Config::FFMPEG, "-hide_banner", "-nostdin", "-stats", "-n"};
  append(command, encoding.device_arguments);
  append(command, make_pace_arguments(source));
  append(command, make_open_arguments(source));
  append(command, encoding.arguments);
  // Drop source metadata: it could imitate FFmpeg's own output.
  append(command, {"-map_metadata:g", "-1", "-map_chapters", "-1", "-max_muxing_queue_size", "4096"});
  append(command, make_output_arguments(outputs.targets, encoding, has_own_pace(source)));
  check_arguments(command);
  receivers.clear();
  for (const OutputTarget& target : outputs.targets)
    receivers.push_back({target.output, target.protocol, target.address});
  if (launch) keep_recordings(outputs.targets);
}

TranscoderCommand::Outputs TranscoderCommand::read_outputs() const {
  Outputs outputs;
  for (int i = 0; conf_.get_json_conf(fmt::format("output.{}", i)).is_object(); ++i) {
    const std::string key = fmt::format("output.{}", i);
    const Settings output(conf_.get_json_conf(key), key);
    if (i == 0 && output.text("protocol") == "hls") {
      outputs.hls = read_hls_output(output);
      continue;
    }
    outputs.targets.push_back(read_target(output, i));
    outputs.targets.back().output = i;
    outputs.targets.back().protocol = output.text("protocol");
    outputs.targets.back().rendition = static_cast<std::size_t>(output.whole("rendition", 0, 100).value_or(0));
  }
  if (!outputs.hls && outputs.targets.empty()) throw ValueError("The stream has no output");
  return outputs;
}

OutputTarget TranscoderCommand::read_target(const Settings& output, int index) const {
  if (output.text("protocol") == "srt") return read_srt_target(output, conf_.get_json_conf(output.name()));
  if (output.text("protocol") != "http") return read_output_target(output);
  const OutputTarget target =
      read_http_target(output, conf_.get_json_conf(output.name()), get_http_socket(conf_.get_json_conf("id"), index));
  const std::string codec = Settings(conf_.get_json_conf("audio"), "audio").word("codec", "aac");
  const std::string_view carried = target.format == "mp3" ? "mp3" : "aac";
  if (target.audio_only && codec != "copy" && codec.find(carried) == std::string::npos)
    throw ValueError(fmt::format("{}: {} does not carry the audio codec {}", output.name(), target.format, codec));
  return target;
}

void TranscoderCommand::publish_variants(Outputs& outputs, const Encoding& encoding, bool launch) {
  hls_list_sizes.clear();
  hls_variants.clear();
  hls_master_playlist.reset();
  const std::size_t count = encoding.renditions.size();
  for (const OutputTarget& target : outputs.targets) {
    if (target.rendition >= count)
      throw ValueError(fmt::format("output.{}.rendition: there is no rendition {}", target.output, target.rendition));
  }
  if (!outputs.hls) return;
  const int listed = count_listed_segments(*outputs.hls, encoding);
  hls_list_sizes.assign(count, listed);
  hls_variants = encoding.renditions;
  hls_master_playlist = get_master_playlist(*outputs.hls, count);
  const std::string directory = join_path(Config::HLS_DIRECTORY, to_text(conf_.get_json_conf("id")));
  const auto first_segments = launch ? begin_cycle(*outputs.hls, encoding) : std::vector<long long>(count);
  auto variants = make_hls_targets(*outputs.hls, directory, listed, first_segments);
  for (OutputTarget& variant : variants) variant.protocol = "hls";
  outputs.targets.insert(outputs.targets.begin(), variants.begin(), variants.end());
}

std::vector<long long> TranscoderCommand::begin_cycle(const HlsOutput& hls, const Encoding& encoding) {
  constexpr double container_overhead = 1.1;
  HlsCycle cycle;
  cycle.segment_time = hls.segment_time;
  cycle.list_size = hls.list_size;
  cycle.has_fixed_segments = encoding.has_video && !encoding.video_copied;
  // A copied source may have groups of pictures that refer to the one before.
  cycle.independent_segments = !encoding.video_copied;
  for (const long long kilobits : encoding.max_bitrates)
    cycle.renditions.push_back({static_cast<long long>(static_cast<double>(kilobits * 1000) * container_overhead)});
  published_id_ = conf_.get_json_conf("id").get<long long>();
  return publisher_.begin_cycle(*published_id_, cycle);
}

void TranscoderCommand::cleanup() {
  if (published_id_) publisher_.end_cycle(*published_id_);
}

/// The requested input, then the others in the order of their priority.
std::vector<int> TranscoderCommand::get_candidates() const {
  std::vector<int> candidates = {input_index};
  for (int i = 0; i < count_inputs(); ++i) {
    if (i != input_index) candidates.push_back(i);
  }
  return candidates;
}

/// Sets `input_index` to the best input that answers. Gives the reasons when none does.
Async<std::string> TranscoderCommand::settle_input() {
  std::string problem = try_step([&] { read_outputs(); });
  if (input_index < 0 || input_index >= count_inputs()) problem = try_step([&] { read_input(input_index); });
  if (!problem.empty()) co_return problem;
  const std::vector<int> inputs = get_candidates();
  std::vector<InputCandidate> candidates;
  for (int index : inputs) candidates.push_back(make_candidate(index));
  const SettledInput settled = co_await settle_inputs(std::move(candidates));
  note_answers(inputs, settled);
  problem = tell_of_reasons(inputs, settled.reasons);
  no_input_answers = !settled.taken;
  if (no_input_answers) co_return "No input answers:" + problem;
  input_index = inputs[*settled.taken];
  probed_format_ = settled.format;
  co_return "";
}

InputCandidate TranscoderCommand::make_candidate(int index) const {
  InputCandidate candidate;
  candidate.refusal = try_step([&] {
    const InputSource source = read_input(index);
    candidate.open_arguments = make_probe_arguments(source);
    candidate.timeout = source.probe_timeout;
  });
  return candidate;
}

/// Of those behind the one taken nothing is known.
void TranscoderCommand::note_answers(const std::vector<int>& inputs, const SettledInput& settled) {
  const WallTime time = Loop::current().clock().wall();
  input_answers.clear();
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    const bool taken = settled.taken == i;
    if (!taken && settled.reasons[i].empty()) continue;
    input_answers.push_back({inputs[i], taken, mask_passwords(settled.reasons[i]), time});
  }
}

/// Logs why inputs were not taken, and gives it as one text.
std::string TranscoderCommand::tell_of_reasons(const std::vector<int>& inputs,
                                               const std::vector<std::string>& reasons) const {
  std::string all;
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    if (reasons[i].empty()) continue;
    const std::string url = to_text(conf_.get_json_conf(fmt::format("input.{}.url", inputs[i])));
    if (error_handler_ != nullptr)
      error_handler_->debug(fmt::format("Input #{} {} does not answer: {}", inputs[i], url, reasons[i]));
    all += fmt::format("{} #{} {}: {}", all.empty() ? "" : ";", inputs[i], url, reasons[i]);
  }
  return all;
}

}  // namespace weir
