#include "tests/scenario/day.h"

#include <fmt/core.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "backend/base/text_form.h"
#include "backend/collaborators/config.h"
#include "backend/platform/failure.h"

namespace weir::test {

namespace {

constexpr const char* document = R"({"id":7,"label":"Lobby","min_speed":"","max_speed":"","max_sys_mem":"",
    "max_gpu_mem":"",
    "input":{"0":{"url":"udp://a"},"1":{"url":"udp://b"},"2":{"url":"udp://c"},
             "restart":{"hours":"4","weekdays":"0-6"},
             "switch":{"minutes":"0,30","hours":"0-23","weekdays":"0-6"}},
    "output":{"0":{"protocol":"hls","playlist_name":"index.m3u8"}}})";

std::string clock_time(long long seconds) {
  return fmt::format("{:02}:{:02}:{:02}", seconds / 3600 % 24, seconds / 60 % 60, seconds % 60);
}

long long seconds_of(WallTime time) {
  return std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
}

}  // namespace

Day::Day() {
  std::filesystem::create_directories(Config::STREAM_DIRECTORY);
  conf_ = std::make_shared<StreamConfig>(Config::STREAM_DIRECTORY + "/7.conf");
  if (!conf_->load_json_conf(Value::parse(document))) throw ValueError(conf_->get_error_msg());
  stream_ = std::make_shared<Stream>(7, conf_);
  world.on_launch = [this](const ChildScript& script) { note("launch " + script.command.back()); };
  set_log_sink([this](LogLevel level, std::string_view, std::string_view text) {
    note(fmt::format("{} {}",
                     level == LogLevel::warning ? "warning"
                     : level == LogLevel::info  ? "info"
                                                : "error",
                     text));
  });
}

Day::~Day() {
  world.loop.run(stream_->stop());
  world.loop.settle();
}

void Day::live() {
  world.loop.run(stream_->start());
  world.loop.advance(10ms);
  pass(8 * 60);
  lose_first_input();
  pass_quietly(4);
  pass(4 * 60 - 4);
  pass(5, "0.5x");
  pass(4 * 60 - 5);
  world.child().rss = 600 << 20;
  pass(4 * 60);
  world.choose_input = [](int requested) { return requested; };
  world.probe_answers["-i 'udp://a'"] = true;
  pass(2 * 60);
  crash_three_times();
  pass(60);
  world.loop.run(stream_->stop());
  world.loop.settle();
  observe();
  world.loop.advance(10min);
  observe();
}

void Day::pass(int minutes, std::string_view speed) {
  for (int i = 0; i < minutes; ++i) {
    media_seconds_ += 60;
    world.child().print(progress_line(clock_time(media_seconds_) + ".00", speed));
    world.loop.settle();
    pass_quietly(1);
  }
}

void Day::pass_quietly(int minutes) {
  observe();
  world.loop.advance(std::chrono::minutes(minutes));
  observe();
}

void Day::lose_first_input() {
  world.choose_input = [](int requested) { return requested == 0 ? 1 : requested; };
}

void Day::crash_three_times() {
  for (int i = 0; i < 3; ++i) {
    world.child().exit(1);
    world.loop.settle();
    observe();
    world.loop.advance(3010ms);
  }
}

void Day::note(std::string_view what) {
  observe();
  journal.push_back(fmt::format("{} {}", clock_time(seconds_of(world.loop.clock().wall())), what));
}

// What a cycle's end leaves, in its order: the group is killed before the status is changed.
void Day::observe() {
  const std::string now = clock_time(seconds_of(world.loop.clock().wall()));
  signals_seen_.resize(world.children.size());
  for (std::size_t i = 0; i < signals_seen_.size(); ++i) {
    for (; signals_seen_[i] < world.children[i]->signals.size(); ++signals_seen_[i])
      journal.push_back(fmt::format("{} kill {}", now, world.children[i]->pid));
  }
  const std::string status = to_text(stream_->get_status());
  if (status == last_status_ || stream_->get_status().is_null()) return;
  last_status_ = status;
  journal.push_back(fmt::format("{} status {}", now, status));
}

}  // namespace weir::test
