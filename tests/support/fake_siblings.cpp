#include "tests/support/fake_siblings.h"

#include <fmt/core.h>

#include "backend/services/transcoder/transcoder.h"

namespace weir::test {

namespace {

class FakeBuilder : public FFmpeg {
 public:
  FakeBuilder(FakeSiblings& world, int requested, Error* error_handler) : world_(world), error_handler_(error_handler) {
    input_index = requested;
  }

  Async<bool> generate_command(bool probe) override {
    if (!world_.command_can_be_made) {
      if (error_handler_) error_handler_->set_error_msg("no command");
      co_return false;
    }
    if (probe) input_index = world_.choose_input(input_index);
    command = {"transcoder", std::to_string(input_index)};
    hls_list_sizes = world_.hls_list_sizes;
    hls_variants.assign(hls_list_sizes.size(), {FFmpegStreamSpecifier{""}});
    if (!hls_variants.empty()) hls_master_playlist = "index.m3u8";
    co_return true;
  }

  void cleanup() override {}

 private:
  FakeSiblings& world_;
  Error* error_handler_;
};

class FakeStreamInfo : public AVStreamInfo {
 public:
  explicit FakeStreamInfo(FakeSiblings& world) : world_(world) {}

  void parse(std::string_view line) override { world_.parsed_lines.emplace_back(line); }
  void follow_outputs(const JsonConf&, std::vector<OutputReceiver>) override {}
  void watch_outputs(std::string_view, bool) override {}
  const std::string& output_states() const override { return output_states_; }
  std::vector<StreamDescription> get_stream_by_specifier(const FFmpegStreamSpecifier&, bool) const override {
    return world_.input_streams;
  }
  Value dump_inputs() const override { return Value::array({"input"}); }
  Value dump_outputs() const override { return Value::array({"output"}); }
  Async<bool> probe(std::string arguments) override {
    world_.probes.push_back(arguments);
    co_return world_.probe_answers[arguments];
  }

 private:
  FakeSiblings& world_;
  std::string output_states_ = "[]";
};

const char* level_name(LogLevel level) {
  constexpr std::array names{"debug", "info", "warning", "error"};
  return names[static_cast<std::size_t>(level)];
}

}  // namespace

FakeSiblings::FakeSiblings() {
  const auto in_directory = [this](const char* name) { return (directory.path() / name).string(); };
  Config::STREAM_DIRECTORY = in_directory("streams");
  Config::HLS_DIRECTORY = in_directory("hls");
  Config::MMCB_DIRECTORY = in_directory("mmcb");
  Config::UPLOAD_DIRECTORY = in_directory("uploads");
  std::filesystem::create_directories(Config::STREAM_DIRECTORY);

  Siblings& bundle = siblings();
  bundle.ffmpeg = [this](const JsonConf&, int requested, Error* error_handler) {
    return std::make_unique<FakeBuilder>(*this, requested, error_handler);
  };
  bundle.streaminfo = [this] { return std::make_unique<FakeStreamInfo>(*this); };
  bundle.rtmp_output = make_rtmp_output;
  bundle.profile_description = [](const JsonConf& conf) { return std::make_unique<DocumentProfile>(conf); };
  bundle.profile_manager = &profiles;
  bundle.nginx_manager = &nginx_;
  bundle.nvidia_process_manager = &graphics_;
  bundle.spawn_child = [this](const SpawnOptions& options) {
    auto script = std::make_shared<ChildScript>();
    script->command = options.command;
    script->pid = static_cast<pid_t>(1000 + children.size());
    if (on_launch) on_launch(*script);
    children.push_back(script);
    return std::make_unique<ScriptedChild>(script);
  };
  bundle.process_info = [this](pid_t) { return std::make_unique<ScriptedProcessInfo>(children.back()); };
  set_log_sink([this](LogLevel level, std::string_view name, std::string_view text) {
    log_lines.push_back(fmt::format("{} {}: {}", level_name(level), name, text));
  });
}

FakeSiblings::~FakeSiblings() {
  set_log_sink({});
  siblings() = {};
}

void FakeSiblings::add_profile(long long id, Value members) {
  std::filesystem::create_directories(directory.path() / "profiles");
  members["name"] = "P";
  std::ofstream(profiles.path(id)) << members;
  profiles.load();
}

std::string progress_line(std::string_view time, std::string_view speed) {
  return fmt::format("frame=  100 fps= 25 q=28.0 size=    1024kB time={} bitrate=2097.2kbits/s speed={}\r", time,
                     speed);
}

}  // namespace weir::test
