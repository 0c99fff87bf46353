#include "tests/support/fake_siblings.h"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "backend/collaborators/config.h"
#include "backend/platform/failure.h"
#include "backend/platform/sleep.h"

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
    hls_variants = world_.hls_variants;
    hls_master_playlist = world_.hls_master_playlist;
    co_return true;
  }

  void cleanup() override { ++world_.builder_cleanups; }

 private:
  FakeSiblings& world_;
  Error* error_handler_;
};

class FakeStreamInfo : public AVStreamInfo {
 public:
  explicit FakeStreamInfo(FakeSiblings& world) : world_(world) {}

  void parse(std::string_view line) override { world_.parsed_lines.emplace_back(line); }
  std::vector<StreamDescription> get_stream_by_specifier(const FFmpegStreamSpecifier& specifier,
                                                         bool from_outputs) const override {
    if (!from_outputs) return world_.input_streams;
    const auto found = world_.output_streams.find({specifier.stream_type, specifier.stream_index});
    return found == world_.output_streams.end() ? std::vector<StreamDescription>() : found->second;
  }
  Value dump_inputs() const override { return Value::array({"input"}); }
  Value dump_outputs() const override { return Value::array({"output"}); }
  Async<bool> probe(std::string arguments) override {
    world_.probes.push_back(arguments);
    if (world_.probe_duration.count() > 0) co_await sleep(world_.probe_duration);
    const auto answer = world_.probe_answers.find(arguments);
    co_return answer != world_.probe_answers.end() && answer->second;
  }

 private:
  FakeSiblings& world_;
};

class FakeAddress : public FFmpegRTMPOutput {
 public:
  bool set_server(const Value& server) override { return add("rtmp://", server); }
  bool set_port(const Value& port) override { return to_text(port) != "0" && add(":", port); }
  bool set_app(const Value& app) override { return add("/", app); }
  bool set_playpath(const Value& playpath) override { return add("/", playpath); }
  bool set_username(const Value&) override { return true; }
  bool set_password(const Value&) override { return true; }
  std::string get_url() const override { return url_; }

 private:
  bool add(std::string_view before, const Value& part) {
    url_ += before;
    url_ += to_text(part);
    return true;
  }
  std::string url_;
};

class FakeProfile : public ProfileDescription {
 public:
  explicit FakeProfile(Value members) : members_(std::move(members)) {}
  void copy_to(JsonConf& conf, const std::vector<std::string>& ignore_keys) const override {
    for (const auto& [key, value] : members_.items()) {
      if (std::ranges::find(ignore_keys, key) == ignore_keys.end()) conf.set_json_conf(key, value);
    }
  }
  Value get_hwaccel() const override { return nullptr; }
  Value get_encoders() const override { return Value::array({"libx264"}); }

 private:
  Value members_;
};

class FakeProfiles : public ProfileManager {
 public:
  std::shared_ptr<const ProfileDescription> get_profile(long long id) override {
    const auto found = members.find(id);
    if (found == members.end()) return nullptr;
    return std::make_shared<FakeProfile>(found->second);
  }
  std::string get_error_msg() const override { return "no such profile"; }

  std::map<long long, Value> members;
};

struct FakePort : NginxConfig {
  int get_http_port() const override { return 8080; }
};

struct FakeDriver : NvidiaDriverManager {
  std::string get_patch_library() const override { return "/opt/patch.so"; }
};

struct FakeGraphics : NvidiaProcessManager {
  Value query_gpu(pid_t) override { return memory.is_null() ? Value() : Value(0); }
  Value query_dec(pid_t) override { return 1; }
  Value query_sm(pid_t) override { return 2; }
  Value query_enc(pid_t) override { return 3; }
  Value query_fb(pid_t) override { return memory; }

  Value memory;
};

const char* level_name(LogLevel level) {
  constexpr std::array names{"debug", "info", "warning", "error"};
  return names[static_cast<std::size_t>(level)];
}

}  // namespace

struct FakeSiblings::Services {
  FakeProfiles profiles;
  FakePort port;
  NginxManager nginx{port};
  FakeDriver driver;
  FakeGraphics graphics;
};

FakeSiblings::FakeSiblings() : services_(std::make_unique<Services>()) {
  const auto in_directory = [this](const char* name) { return (directory.path() / name).string(); };
  Config::STREAM_DIRECTORY = in_directory("streams");
  Config::HLS_DIRECTORY = in_directory("hls");
  Config::MMCB_DIRECTORY = in_directory("mmcb");
  Config::UPLOAD_DIRECTORY = in_directory("uploads");

  Siblings& bundle = siblings();
  bundle.ffmpeg = [this](const JsonConf&, int requested, Error* error_handler) {
    return std::make_unique<FakeBuilder>(*this, requested, error_handler);
  };
  bundle.streaminfo = [this] { return std::make_unique<FakeStreamInfo>(*this); };
  bundle.rtmp_output = [] { return std::make_unique<FakeAddress>(); };
  bundle.profile_description = [](const JsonConf&) { return std::make_unique<FakeProfile>(Value::object()); };
  bundle.profile_manager = &services_->profiles;
  bundle.nginx_manager = &services_->nginx;
  bundle.nvidia_driver_manager = &services_->driver;
  bundle.nvidia_process_manager = &services_->graphics;
  bundle.spawn_child = [this](const SpawnOptions& options) {
    auto script = std::make_shared<ChildScript>();
    script->command = options.command;
    script->pid = static_cast<pid_t>(1000 + children.size());
    if (on_launch) on_launch(*script);
    children.push_back(script);
    return std::make_unique<ScriptedChild>(script);
  };
  bundle.process_info = [this](pid_t) {
    if (process_is_gone) throw NoSuchProcess("gone");
    return std::make_unique<ScriptedProcessInfo>(children.back());
  };
  set_log_sink([this](LogLevel level, std::string_view name, std::string_view text) {
    log_lines.push_back(fmt::format("{} {}: {}", level_name(level), name, text));
  });
}

FakeSiblings::~FakeSiblings() {
  set_log_sink({});
  siblings() = {};
}

Value& FakeSiblings::graphics_memory() { return services_->graphics.memory; }

std::map<long long, Value>& FakeSiblings::profiles() { return services_->profiles.members; }

std::string progress_line(std::string_view time, std::string_view speed) {
  return fmt::format("frame=  100 fps= 25 q=28.0 size=    1024kB time={} bitrate=2097.2kbits/s speed={}\r", time,
                     speed);
}

}  // namespace weir::test
