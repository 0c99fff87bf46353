#include "tests/integration/server_fixture.h"

namespace weir::test {
namespace {

class AccessProcessTest : public testing::Test {
 protected:
  std::string weir(const std::string& arguments, const std::string& input = {}) const {
    return run(fmt::format("printf '%s\\n' '{}' | {} {} --data {}", input, WEIR_PROGRAM, arguments, data_));
  }
  std::unique_ptr<ServerProcess> serve(const std::string& bind) const {
    return std::make_unique<ServerProcess>(std::vector<std::string>{"--data", data_, "--port", "0", "--bind", bind},
                                           log_);
  }

  const TemporaryDirectory directory_;
  const std::string data_ = directory_.path() / "data";
  const std::string log_ = directory_.path() / "log";
};

TEST_F(AccessProcessTest, OtherMachinesReachTheServerOnceThereIsAUser) {
  auto server = serve("0.0.0.0");
  EXPECT_EQ(server->wait(), 1);
  EXPECT_NE(server->log().find("weir user add NAME --role admin --data " + data_), std::string::npos) << server->log();
  EXPECT_NE(weir("user add anna --role admin", "short").find("8 to 1024"), std::string::npos);
  EXPECT_EQ(weir("user add anna --role admin", "correct horse"), "User anna is added with the role admin\n");
  server = serve("0.0.0.0");
  EXPECT_TRUE(eventually([&] { return server->log().find("Listening on http://0.0.0.0:") != std::string::npos; }))
      << server->log();
}

TEST_F(AccessProcessTest, ARunningServerNoticesUsersAndTokens) {
  const auto server = serve("127.0.0.1");
  ASSERT_TRUE(server->is_ready());
  const std::string api = fmt::format("http://127.0.0.1:{}/api", server->port());
  const std::string jar = directory_.path() / "cookies";
  const auto curl = [&](const std::string& arguments) {
    return run(fmt::format("curl -sS -m 10 -o /dev/null -w '%{{http_code}}' {}", arguments));
  };
  EXPECT_EQ(curl(api + "/streams"), "200");
  weir("user add anna --role admin", "correct horse");
  EXPECT_EQ(curl(api + "/streams"), "401");

  std::string secret = weir("token add backup --role viewer --expires 1d");
  secret = secret.substr(0, secret.find('\n'));
  const std::string header = fmt::format("-H 'Authorization: Bearer {}' ", secret);
  EXPECT_EQ(curl(header + api + "/streams"), "200");
  EXPECT_EQ(curl(header + "-d '{}' " + api + "/profiles"), "403");
  weir("token remove backup");
  EXPECT_EQ(curl(header + api + "/streams"), "401");

  curl(fmt::format(R"(-c {} -d '{{"name": "anna", "password": "correct horse"}}' {}/login)", jar, api));
  EXPECT_EQ(curl(fmt::format("-b {} -d '{{\"name\": \"P\"}}' {}/profiles", jar, api)), "201");
  const std::string history = run(fmt::format("curl -sS -b {} {}/history", jar, api));
  EXPECT_NE(history.find("anna (127.0.0.1)"), std::string::npos) << history;
  weir("user remove anna");
  EXPECT_EQ(curl(fmt::format("-b {} {}/me", jar, api)), "401");
}

}  // namespace
}  // namespace weir::test
