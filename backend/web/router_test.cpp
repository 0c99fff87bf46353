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
    router_.add("GET", "/api/probe", echo, {.role = Role::operator_, .starts_something = true});
    router_.add("POST", "/api/login", echo, {.role = Role::nobody});
    router_.add("GET", "/{id:number}/{file}", echo, {.role = Role::nobody});
  }

  Response ask(const std::string& method, const std::string& target, Identity identity = {.role = Role::admin},
               bool from_other_site = false) {
    Request request;
    request.method = method;
    request.target = *parse_target(target);
    request.host = "localhost:8080";
    request.identity = std::move(identity);
    request.from_other_site = from_other_site;
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
      {"PATCH", "/api/things/7", 405, nullptr, "DELETE, GET, HEAD, OPTIONS"},
      {"POST", "/api/unknown", 404, nullptr, ""},
      {"GET", "//x", 404, nullptr, ""},
      {"GET", "/api/things/7/x", 404, nullptr, ""},
      {"POST", "/api/refuse", 409, "{\"error\":\"not now\"}\n", ""}};
  for (const auto& [method, target, status, body, allow] : cases) {
    const Response response = ask(method, target);
    EXPECT_EQ(response.status, status) << method << " " << target;
    if (body) EXPECT_EQ(response.body, body);
    EXPECT_EQ(header(response, "Allow"), allow) << method << " " << target;
  }
}

TEST_F(RouterTest, CrossSiteRequestsCanReadButNotDoAnything) {
  const std::tuple<const char*, const char*, int> cases[] = {
      {"GET", "/7/index.m3u8", 200}, {"GET", "/api/things/7", 200}, {"DELETE", "/api/things/7", 403},
      {"GET", "/api/probe", 403},    {"HEAD", "/api/probe", 403},   {"POST", "/api/login", 403},
  };
  for (const auto& [method, target, status] : cases)
    EXPECT_EQ(ask(method, target, {.role = Role::admin}, true).status, status) << method << " " << target;
}

TEST_F(RouterTest, EachRouteNeedsItsRole) {
  const std::tuple<const char*, const char*, int, int> cases[] = {
      // nobody, viewer
      {"HEAD", "/7/index.m3u8", 200, 200}, {"HEAD", "/api/things/7", 401, 200}, {"DELETE", "/api/things/7", 401, 403},
      {"GET", "/api/unknown", 401, 404},   {"PATCH", "/api/things", 401, 405},  {"GET", "/unknown", 404, 404}};
  for (const auto& [method, target, nobody, viewer] : cases) {
    EXPECT_EQ(ask(method, target, {}).status, nobody) << method << " " << target;
    EXPECT_EQ(ask(method, target, {.role = Role::viewer}).status, viewer) << method << " " << target;
  }
  EXPECT_EQ(header(ask("GET", "/api/things", {.wrong_token = true}), "WWW-Authenticate"),
            "Bearer realm=\"weir\", error=\"invalid_token\"");
}

}  // namespace
}  // namespace weir
