// What Prometheus' own tool says of the metrics of a running server.

#include "backend/platform/child_process.h"
#include "tests/integration/server_fixture.h"

namespace weir {
namespace {

class MetricsTest : public test::ServerFixture {};

TEST_F(MetricsTest, PrometheusFindsNoFaultInThem) {
  if (!find_program("promtool")) GTEST_SKIP() << "promtool is not installed";
  server->request("PATCH", "/api/streams/0", R"({"label": "A \"hostile\" \\ {label}\n# TYPE x y"})");
  const std::string answer = server->request("GET", "/metrics");
  const std::string text = answer.substr(answer.find("\r\n\r\n") + 4);
  std::ofstream(at("metrics")) << text;
  const std::string command = "promtool check metrics <" + at("metrics") + " >" + at("faults") + " 2>&1";
  EXPECT_EQ(std::system(command.c_str()), 0) << read_file(at("faults"), 1 << 20);
}

}  // namespace
}  // namespace weir
