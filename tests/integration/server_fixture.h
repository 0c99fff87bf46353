#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/integration/server_process.h"
#include "tests/support/temporary_directory.h"

#include "backend/base/text_form.h"
#include "backend/base/value.h"

namespace weir::test {

/// The real server on the real clock; each stream's input names the program that stands in for its transcoder. Stream 0
/// is on the air, and is so with `first_pid` at the end.
class ServerFixture : public testing::Test {
 protected:
  void SetUp() override {
    serve();
    add("goes_on");
    server->request("POST", "/api/streams/0/start");
    expect_stream_0_on_air();
  }
  void TearDown() override {
    EXPECT_EQ(transcoder_of_stream_0(), first_pid) << server->log();
    server = nullptr;
  }

  void serve() {
    server = std::make_unique<ServerProcess>(
        std::vector<std::string>{"--data", data, "--port", "0", "--ffmpeg", WEIR_TEST_PROGRAMS "/runs_its_input"},
        at("log"));
    ASSERT_TRUE(server->is_ready()) << server->log();
  }
  void expect_stream_0_on_air() {
    ASSERT_TRUE(eventually_has(0, R"("status":"running")")) << server->log();
    first_pid = transcoder_of_stream_0();
    ASSERT_GT(first_pid, 0);
  }
  std::string add(const std::string& name) const {
    Value form = Value::parse(R"({"output":{"0":{"protocol":"udp","hostname":"127.0.0.1","port":9}}})");
    form["label"] = name;
    form["input"]["0"]["url"] = WEIR_TEST_PROGRAMS "/" + name;
    return server->request("POST", "/api/streams", to_json(form));
  }
  std::string get(int id, const std::string& what = "") const {
    return server->request("GET", "/api/streams/" + std::to_string(id) + what);
  }
  bool eventually_has(int id, const std::string& text) const {
    return eventually([&] { return get(id).find(text) != std::string::npos; }, std::chrono::seconds(10));
  }
  std::string at(const std::string& name) const { return (directory.path() / name).string(); }
  std::string file(int id) const { return data + "/streams/" + std::to_string(id) + ".conf"; }
  std::string saved_status(int id) const { return to_text(Value::parse(read_file(file(id), 1 << 20)).at("status")); }

  /// The oldest child of the server: stream 0 was started first.
  pid_t transcoder_of_stream_0() const {
    pid_t pid = 0;
    std::ifstream("/proc/" + std::to_string(server->pid()) + "/task/" + std::to_string(server->pid()) + "/children") >>
        pid;
    return pid;
  }

  TemporaryDirectory directory;
  const std::string data = at("data");
  std::unique_ptr<ServerProcess> server;
  pid_t first_pid = 0;
};

}  // namespace weir::test
