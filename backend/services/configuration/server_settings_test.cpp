#include "backend/services/configuration/server_settings.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>

#include "tests/support/temporary_directory.h"

namespace weir {
namespace {

class SettingsTest : public testing::Test {
 protected:
  void write(const std::string& text) const { std::ofstream(file_) << text; }
  using Variables = std::map<std::string, std::string>;
  static Invocation read(const std::vector<std::string>& arguments, const Variables& variables = {}) {
    return read_settings(arguments, [&](const char* name) {
      const auto found = variables.find(name);
      return found == variables.end() ? nullptr : found->second.c_str();
    });
  }
  static std::string failure(const std::vector<std::string>& arguments, const Variables& variables) {
    try {
      read(arguments, variables);
      return "none";
    } catch (const SettingsError& error) {
      return error.what();
    }
  }

  const test::TemporaryDirectory directory_;
  const std::string file_ = directory_.path() / "weir.conf";
};

TEST_F(SettingsTest, TheCommandLineGoesBeforeTheEnvironmentAndThatBeforeTheFile) {
  write(
      "# all three name the port\nport = 1\nffmpeg = \"/opt/my ffmpeg\"\nlog-level = error\nno-assertions = true\n"
      "hardware = nvenc,qsv\n");
  const ServerSettings settings =
      *read({"serve", "--port", "2", "--port", "3", "--config", file_, "--file-root", "/a", "--file-root", "/b:/c"},
            {{"WEIR_PORT", "2"}, {"WEIR_LOG_LEVEL", "debug"}})
           .serve;
  EXPECT_EQ(settings.port, 3);
  EXPECT_EQ(settings.hardware, (std::vector<std::string>{"nvenc", "qsv"}));
  EXPECT_EQ(settings.file_roots, (std::vector<std::string>{"/a", "/b", "/c"}));
  EXPECT_EQ(settings.log_level, LogLevel::debug);
  EXPECT_EQ(settings.ffmpeg, "/opt/my ffmpeg");
  EXPECT_FALSE(settings.assertions);
  EXPECT_EQ(settings.restore_interval, 3);
  EXPECT_EQ(read({"serve", "--restore-interval", "auto"}).serve->restore_interval, std::nullopt);
}

TEST_F(SettingsTest, AFailureNamesTheOptionItsValueAndItsPlace) {
  const std::tuple<std::vector<std::string>, Variables, std::string, std::vector<std::string>> cases[] = {
      {{"serve", "--port", "http"}, {}, "", {"--port", "\"http\"", "65535"}},
      {{"serve"}, {{"WEIR_PORT", "-1"}}, "", {"WEIR_PORT", "\"-1\""}},
      {{"serve", "--config", file_}, {}, "log-level = loud\n", {file_, "log-level", "\"loud\""}},
      {{"serve", "--config", file_}, {}, "prot = 1\n", {file_, "prot is not a setting"}},
      {{"serve", "--config", directory_.path()}, {}, "", {directory_.path()}},
      {{"serve", "--bind", "example.org"}, {}, "", {"example.org", "IP address"}},
      {{"serve", "--public-url", "weir.example"}, {}, "", {"--public-url", "weir.example", "https://"}},
      {{"serve", "--public-url", "https://user@weir.example"}, {}, "", {"--public-url"}},
      {{"serve", "--tls-cert", "/c.pem"}, {}, "", {"tls-key is missing"}},
      {{"serve"}, {{"WEIR_TLS_KEY", "/k.pem"}}, "", {"tls-cert is missing"}},
      {{"token", "add", "t", "--role", "viewer", "--expires", "30"}, {}, "", {"--expires", "\"30\"", "30d"}},
      {{"token", "add", "t", "--role", "viewer", "--expires", "99999999d"}, {}, "", {"--expires"}},
      {{"serve", "--hardware", "nvenc,vdpau"}, {}, "", {"--hardware", "vdpau", "qsv"}},
      {{"serve", "--trusted-proxy", "::1,nginx"}, {}, "", {"nginx", "IP address"}},
      {{"serve", "--data", ""}, {}, "", {"data"}},
  };
  for (const auto& [arguments, variables, file, parts] : cases) {
    write(file);
    const std::string message = failure(arguments, variables);
    for (const std::string& part : parts)
      EXPECT_NE(message.find(part), std::string::npos) << "expected " << part << " in: " << message;
  }
}

TEST_F(SettingsTest, KnowsWhichAddressesOtherMachinesReach) {
  const std::tuple<const char*, const char*, bool> cases[] = {
      {"127.0.0.1", "127.0.0.1", true},  {"127.3.2.1", "127.3.2.1", true}, {"::1", "::1", true},
      {"localhost", "127.0.0.1", true},  {"0.0.0.0", "0.0.0.0", false},    {"::", "::", false},
      {"192.0.2.1", "192.0.2.1", false},
  };
  for (const auto& [given, bound, is_local] : cases) {
    EXPECT_EQ(read({"serve", "--bind", given}).serve->bind, bound);
    EXPECT_EQ(is_loopback_address(bound), is_local) << bound;
  }
}

TEST_F(SettingsTest, CommandsOnUsersFindTheDataWhereTheServerDoes) {
  write("data = /from/file\nport = 1\n");
  const UserCommand token =
      *read({"token", "add", "backup", "--role", "viewer", "--expires", "12h", "--config", file_}).users;
  EXPECT_EQ(token.action, UserCommand::Action::add_token);
  EXPECT_EQ(std::tie(token.name, token.role, token.data), std::tuple("backup", "viewer", "/from/file"));
  EXPECT_EQ(token.expires, std::chrono::hours(12));
  EXPECT_EQ(read({"user", "list"}, {{"WEIR_DATA", "/from/environment"}}).users->data, "/from/environment");
  EXPECT_EQ(read({"user", "remove", "anna", "--data", "/given"}, {{"WEIR_DATA", "/x"}}).users->data, "/given");
}

}  // namespace
}  // namespace weir
