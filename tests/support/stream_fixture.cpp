#include "tests/support/stream_fixture.h"

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "backend/base/text_form.h"
#include "backend/collaborators/config.h"
#include "backend/platform/files.h"

namespace weir::test {

StreamFixture::StreamFixture() {
  std::filesystem::create_directories(Config::STREAM_DIRECTORY);
  conf = std::make_shared<StreamConfig>(join_path(Config::STREAM_DIRECTORY, "7.conf"));
  conf->load_json_conf(Value::parse(R"({"id":7,"label":"Lobby","min_speed":"","max_speed":"abc","max_sys_mem":"",
      "max_gpu_mem":"","input":{"0":{"url":"udp://a"},"1":{"url":"udp://b"},"2":{"url":"udp://c"}},
      "output":{"0":{"protocol":"hls","playlist_name":"index.m3u8"}}})"));
  stream = std::make_shared<Stream>(7, conf);
}

std::string StreamFixture::status() const { return to_text(stream->get_status()); }

void StreamFixture::start() { ASSERT_TRUE(world.loop.run(stream->start())); }

void StreamFixture::run_to_first_progress() {
  start();
  world.loop.advance(10ms);
  say(progress_line("00:00:01.00"));
}

void StreamFixture::say(std::string_view text) {
  world.child().print(text);
  world.loop.settle();
}

bool StreamFixture::logged(std::string_view text) const {
  return std::ranges::any_of(world.log_lines,
                             [&](const std::string& line) { return line.find(text) != std::string::npos; });
}

}  // namespace weir::test
