#include "backend/web/router.h"

#include <gtest/gtest.h>

#include "tests/support/test_loop.h"

namespace weir {
namespace {

Async<Response> echo(const Request&, const PathParameters& parameters) {
  std::string text;
  for (const std::string& parameter : parameters) text += "[" + parameter + "]";
  return immediate(text_response(text));
}

std::string header(const Response& response, const std::string& name) {
  for (const auto& [key, value] : response.headers)
    if (key == name) return value;
  return {};
}

class RouterTest : public testing::Test {
 protected:
  RouterTest() {
    router_.add("GET", "/api/things", [](const Request&, const PathParameters&) { return echo({}, {"list"}); });
    router_.add("GET", "/api/things/{id}", echo);
    router_.add("DELETE", "/api/things/{id}", echo);
    router_.add("POST", "/api/refuse", [](const Request&, const PathParameters&) -> Async<Response> {
      throw HttpError(409, "not now");
      co_return Response();
    });
    router_.add("GET", "/{id:number}/{file}", echo);
  }

  Response ask(const std::string& method, const std::string& target, const std::string& origin = {}) {
    Request request;
    request.method = method;
    request.target = *parse_target(target);
    request.host = "localhost:8080";
    request.origin = origin;
    return loop_.run(router_.route(request));
  }

  test::TestLoop loop_;
  Router router_;
};

TEST_F(RouterTest, AnswersByTheFirstMatchingRoute) {
  const std::tuple<const char*, const char*, int, const char*, const char*> cases[] = {
      {"GET", "/api/things/7", 200, "[7]", ""},
      {"HEAD", "/api/things/7", 200, "[7]", ""},
      {"DELETE", "/api/things/a%20b", 200, "[a b]", ""},
      {"GET", "/7/index.m3u8", 200, "[7][index.m3u8]", ""},
      {"PATCH", "/api/things/7", 405, nullptr, "DELETE, GET, HEAD, OPTIONS"},
      {"OPTIONS", "/api/things/7", 204, "", "DELETE, GET, HEAD, OPTIONS"},
      {"POST", "/7/index.m3u8", 405, nullptr, "GET, HEAD, OPTIONS"},
      {"POST", "/api/unknown", 404, nullptr, ""},
      {"GET", "/api/things/", 404, nullptr, ""},
      {"GET", "//x", 404, nullptr, ""},
      {"GET", "/api/things/7/x", 404, nullptr, ""},
      {"POST", "/api/refuse", 409, "{\"error\":\"not now\"}\n", ""},
  };
  for (const auto& [method, target, status, body, allow] : cases) {
    const Response response = ask(method, target);
    EXPECT_EQ(response.status, status) << method << " " << target;
    if (body) EXPECT_EQ(response.body, body);
    EXPECT_EQ(header(response, "Allow"), allow) << method << " " << target;
  }
}

TEST_F(RouterTest, CrossSiteRequestsCanReadButNotChange) {
  EXPECT_EQ(ask("DELETE", "/api/things/7", "http://localhost:8080").status, 200);
  EXPECT_EQ(ask("DELETE", "/api/things/7", "http://evil.example").status, 403);
  EXPECT_EQ(ask("DELETE", "/api/things/7", "null").status, 403);
  EXPECT_EQ(ask("GET", "/7/index.m3u8", "http://player.example").status, 200);
}

}  // namespace
}  // namespace weir
