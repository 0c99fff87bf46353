#include "backend/web/access/access.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <ranges>

#include "backend/base/log.h"
#include "backend/web/access/access_routes.h"
#include "backend/web/access/secrets.h"
#include "backend/web/access/user_routes.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_loop.h"

namespace weir {
namespace {

using namespace std::chrono_literals;

Request request_for(const std::string& target, const std::string& host = "192.0.2.1:8080") {
  Request request;
  request.method = "GET";
  request.target = *parse_target(target);
  request.host = host;
  request.local_address = "192.0.2.1";
  request.client_address = "203.0.113.9";
  return request;
}

class AccessTest : public testing::Test {
 protected:
  AccessTest() {
    set_log_sink([](auto...) {});
    file_.change([](UserList& list) {
      list.add(User{"anna", Role::admin, hash_password("correct horse")});
      list.add(ApiToken{"backup", Role::viewer, hash_secret("weir_secret"), {}});
    });
  }
  ~AccessTest() override { set_log_sink({}); }

  void routes_to(Access& access) {
    routes_.emplace(access, passwords_);
    routes_->add_to(router_);
  }
  static Request login_request(const std::string& password, const std::string& address) {
    Request request = request_for("/api/login");
    request.method = "POST";
    request.client_address = address;
    request.body = R"({"name": "anna", "password": ")" + password + "\"}";
    return request;
  }
  static Async<> answer(Request request, const Router& router, int& status) {
    const Response response = co_await router.route(std::move(request));
    status = response.status;
  }
  Response log_in(Access& access, const std::string& password, const std::string& address = "203.0.113.9") {
    Request request = login_request(password, address);
    access.examine(request);
    return loop_.run(router_.route(std::move(request)));
  }
  Identity identify(Access& access, const std::string& cookie, const std::string& authorization = {}) {
    Request request = request_for("/api/streams");
    request.cookie = cookie;
    request.authorization = authorization;
    access.examine(request);
    return request.identity;
  }

  test::TestLoop loop_;
  test::TemporaryDirectory directory_;
  UsersFile file_{directory_.path()};
  Router router_;
  PasswordChecker passwords_;
  std::optional<AccessRoutes> routes_;
};

std::string cookie_of(const Response& response) {
  for (const auto& [name, value] : response.headers)
    if (name == "Set-Cookie") return value;
  return {};
}

TEST_F(AccessTest, ATokenGivesItsRoleUntilItIsRemoved) {
  Access access({.data = directory_.path()});
  EXPECT_EQ(identify(access, {}).role, Role::nobody);
  EXPECT_TRUE(identify(access, {}, "Bearer weir_other").wrong_token);
  const Identity backup = identify(access, {}, "bearer weir_secret");
  EXPECT_EQ(std::tie(backup.role, backup.name), std::tuple(Role::viewer, "backup"));
  Request rebound = request_for("/api/streams", "rebound.example");
  rebound.authorization = "Bearer weir_secret";
  EXPECT_THROW(access.examine(rebound), HttpError);
  file_.change([](UserList& list) { list.remove_token("backup"); });
  EXPECT_TRUE(identify(access, {}, "Bearer weir_secret").wrong_token);
}

TEST_F(AccessTest, ASessionEndsWithItsUserItsPasswordAndItsTime) {
  Access access({.data = directory_.path(), .public_urls = {"https://192.0.2.1"}});
  routes_to(access);
  const auto begin = [&] {
    const std::string header = cookie_of(log_in(access, "correct horse"));
    EXPECT_NE(header.find("; HttpOnly; SameSite=Strict; Secure"), std::string::npos) << header;
    return "other=1; " + header.substr(0, header.find(';'));
  };
  std::string cookie = begin();
  EXPECT_EQ(identify(access, cookie).name, "anna");
  EXPECT_EQ(identify(access, cookie + "x").role, Role::nobody);
  for (int i = 0; i < 16; ++i) {
    EXPECT_EQ(identify(access, cookie).role, Role::admin) << i;
    loop_.advance(11h);
  }
  EXPECT_EQ(identify(access, cookie).role, Role::nobody) << "a week has passed";
  cookie = begin();
  loop_.advance(12h);
  EXPECT_EQ(identify(access, cookie).role, Role::nobody) << "it was not used";
  cookie = begin();
  file_.change([](UserList& list) { list.find_user("anna")->password_hash = hash_password("another one"); });
  EXPECT_EQ(identify(access, cookie).role, Role::nobody);
}

TEST_F(AccessTest, WhoGuessesIsRefusedButNotTheOwner) {
  Access access({.data = directory_.path()});
  routes_to(access);
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(log_in(access, "guess").status, 401) << i;
    loop_.advance(std::chrono::seconds(i < 4 ? 0 : 1 << (i - 4)));
  }
  EXPECT_EQ(log_in(access, "guess").status, 401);
  const Response refused = log_in(access, "correct horse");
  EXPECT_EQ(refused.status, 429);
  EXPECT_EQ(refused.headers.back(), std::pair(std::string("Retry-After"), std::string("4")));
  EXPECT_EQ(log_in(access, "correct horse", "198.51.100.1").status, 200);
}

TEST_F(AccessTest, LoginsAtOnceAreBounded) {
  Access access({.data = directory_.path()});
  routes_to(access);
  std::map<std::string, int> statuses;
  std::vector<Task> tasks;
  for (int i = 0; i <= PasswordChecker::max_waiting; ++i) {
    const std::string address = "192.0.2." + std::to_string(i);
    tasks.push_back(spawn("login", answer(login_request("guess", address), router_, statuses[address])));
  }
  loop_.settle();
  EXPECT_EQ(log_in(access, "guess", "192.0.2.0").status, 429) << "one of an address";
  EXPECT_TRUE(test::run_until(loop_, [&] { return std::ranges::all_of(tasks, &Task::dead); }, 60s));
  EXPECT_EQ(std::ranges::count(statuses | std::views::values, 429), 1);
  EXPECT_EQ(std::ranges::count(statuses | std::views::values, 401), PasswordChecker::max_waiting);
}

TEST_F(AccessTest, AFileThatVanishesOrBreaksOpensNothing) {
  Access access({.data = directory_.path()});
  Request request = request_for("/api/streams", "localhost");
  std::ofstream(file_.path()) << "{";
  EXPECT_EQ(identify(access, {}, "Bearer weir_secret").name, "backup") << "as it was";
  std::filesystem::remove(file_.path());
  access.examine(request);
  EXPECT_EQ(request.identity.role, Role::nobody);
}

TEST_F(AccessTest, WithoutUsersOnlyThisMachineMay) {
  const test::TemporaryDirectory empty;
  Access local({.data = empty.path()});
  Request request = request_for("/api/streams", "localhost:8080");
  local.examine(request);
  EXPECT_EQ(request.identity.role, Role::admin);
  request.forwarded = true;
  EXPECT_THROW(local.examine(request), HttpError);
  request = request_for("/api/streams", "rebound.example");
  EXPECT_THROW(local.examine(request), HttpError);
  Access open({.data = empty.path(), .open_to_network = true});
  EXPECT_TRUE(open.lacks_users());
  request = request_for("/api/streams", "localhost:8080");
  open.examine(request);
  EXPECT_EQ(request.identity.role, Role::nobody) << "a Host header is easily forged";
}

TEST_F(AccessTest, MetricsAreForTokensAndThisMachine) {
  Access access({.data = directory_.path()});
  const std::tuple<const char*, const char*, bool, Role> cases[] = {
      {"127.0.0.1", "localhost:8080", false, Role::viewer}, {"::1", "[::1]:8080", false, Role::viewer},
      {"127.0.0.1", "localhost:8080", true, Role::nobody},  {"203.0.113.9", "localhost:8080", false, Role::nobody},
      {"127.0.0.1", "192.0.2.1", false, Role::nobody},
  };
  for (const auto& [client, host, forwarded, role] : cases) {
    Request request = request_for("/metrics", host);
    request.client_address = client;
    request.forwarded = forwarded;
    access.examine(request);
    EXPECT_EQ(request.identity.role, role) << client << " " << host;
  }
}

TEST_F(AccessTest, TheAdminChangesUsersAndTokens) {
  LiveUsers users(directory_.path());
  UserRoutes routes(users, passwords_);
  routes.add_to(router_);
  const auto ask = [&](const char* method, const char* target, const std::string& body, Role role = Role::admin) {
    Request request = request_for(target);
    request.method = method;
    request.body = body;
    request.identity = {.role = role, .name = "anna"};
    return loop_.run(router_.route(std::move(request)));
  };
  const std::tuple<const char*, const char*, const char*, int> cases[] = {
      {"POST", "/api/users", R"({"name": "bert", "role": "viewer", "password": "long enough"})", 201},
      {"POST", "/api/users", R"({"name": "bert", "role": "viewer", "password": "long enough"})", 409},
      {"POST", "/api/users", R"({"name": "carl", "role": "root", "password": "long enough"})", 400},
      {"POST", "/api/users", R"({"name": "carl", "role": "viewer", "password": "short"})", 400},
      {"PATCH", "/api/users/bert", R"({"role": "operator", "password": "another one"})", 200},
      {"PATCH", "/api/users/carl", R"({"role": "operator"})", 404},
      {"POST", "/api/tokens", R"({"name": "t", "role": "viewer", "expires": 0})", 400},
      {"PATCH", "/api/users/anna", R"({"role": "operator"})", 409},  // the only admin
      {"DELETE", "/api/users/anna", "", 409},
      {"DELETE", "/api/users/backup", "", 404},
      {"DELETE", "/api/tokens/backup", "", 204},
  };
  for (const auto& [method, target, body, status] : cases) {
    EXPECT_EQ(ask(method, target, body, Role::operator_).status, 403) << method << " " << target;
    EXPECT_EQ(ask(method, target, body).status, status) << method << " " << target << " " << body;
  }
  const Value added =
      Value::parse(ask("POST", "/api/tokens", R"({"name": "t", "role": "viewer", "expires": 60})").body);
  const WallTime wall = loop_.clock().wall();
  EXPECT_EQ(users.get().find_token(added.at("token").get<std::string>(), wall + 59s)->role, Role::viewer);
  EXPECT_EQ(users.get().find_token(added.at("token").get<std::string>(), wall + 60s), nullptr);
  const User* bert = users.get().find_user("bert");
  EXPECT_EQ(bert->role, Role::operator_);
  EXPECT_TRUE(verify_password(bert->password_hash, "another one"));
  for (const char* list : {"/api/users", "/api/tokens"}) {
    const std::string body = ask("GET", list, "").body;
    EXPECT_EQ(body.find("argon2"), std::string::npos) << body;
    EXPECT_EQ(body.find("hash"), std::string::npos) << body;
  }
}

TEST(KnownHostsTest, OtherNamesAreRefused) {
  const KnownHosts hosts({"https://weir.example:8443", "http://[2001:db8::1]"});
  const std::pair<const char*, bool> cases[] = {
      {"192.0.2.1", true},
      {"192.0.2.1:1", true},
      {"WEIR.example", true},
      {"[2001:db8::1]:80", true},
      {"localhost:80", true},
      {"[::1]", true},
      {"rebound.example", false},
      {"192.0.2.2", false},
      {"weir.example.evil", false},
      {"evil.weir.example", false},
      {"", false},
  };
  for (const auto& [host, known] : cases) EXPECT_EQ(hosts.has(request_for("/", host)), known) << host;
  EXPECT_TRUE(hosts.is_secure("weir.example"));
  EXPECT_FALSE(hosts.is_secure("[2001:db8::1]"));
}

TEST(KnownHostsTest, ABrowserTellsForWhosePageItAsks) {
  const KnownHosts hosts({"https://weir.example:8443", "https://usual.example:443"});
  const std::tuple<const char*, const char*, bool> cases[] = {
      // Origin, Sec-Fetch-Site
      {"", "", false},
      {"http://192.0.2.1:8080", "", false},
      {"https://weir.example:8443", "", false},
      {"https://weir.example", "", true},
      {"https://usual.example", "", false},
      {"http://192.0.2.1:81", "", true},
      {"http://evil.example", "", true},
      {"null", "", true},
      {"http://evil.example", "cross-site", true},
      {"", "cross-site", true},
      {"", "same-site", true},
      {"", "none", false},
      {"https://weir.internal", "same-origin", false},
  };
  for (const auto& [origin, site, other] : cases) {
    Request request = request_for("/");
    request.origin = origin;
    request.fetch_site = site;
    EXPECT_EQ(hosts.is_from_other_site(request), other) << origin << " " << site;
  }
}

TEST(LoginAttemptsTest, WaitsGrowWithTheFailuresAndPass) {
  LoginAttempts attempts;
  const TimePoint start(1h);
  const auto fail = [&](int count, const std::string& address) {
    for (int i = 0; i < count; ++i) attempts.fail(address, "anna", start);
  };
  fail(4, "192.0.2.1");
  EXPECT_EQ(attempts.refusal("192.0.2.1", start), 0s);
  fail(1, "192.0.2.1");
  EXPECT_EQ(attempts.refusal("192.0.2.1", start), 1s);
  fail(3, "192.0.2.1");
  EXPECT_EQ(attempts.refusal("192.0.2.1", start), 8s);
  EXPECT_EQ(attempts.refusal("192.0.2.1", start + 7500ms), 1s);
  EXPECT_EQ(attempts.refusal("192.0.2.1", start + 8s), 0s);
  fail(40, "192.0.2.1");
  EXPECT_EQ(attempts.refusal("192.0.2.1", start), 900s);
  EXPECT_EQ(attempts.refusal("192.0.2.1", start + 1h), 0s);
  fail(5, "2001:db8::1");
  EXPECT_EQ(attempts.refusal("2001:db8::ffff", start), 1s);
  EXPECT_EQ(attempts.refusal("2001:db8:0:1::1", start), 0s);
  EXPECT_EQ(attempts.delay("anna", start), 4s);
  EXPECT_EQ(attempts.delay("anna", start + 1h), 0s);
  EXPECT_EQ(attempts.delay("bert", start), 0s);
}

TEST(SessionsTest, AreBoundedForEachUser) {
  Sessions sessions;
  UserList users;
  users.add(User{"anna", Role::admin, "x"});
  users.add(User{"bert", Role::viewer, "y"});
  TimePoint time(1h);
  const std::string bert = sessions.begin(users.users[1], time);
  const std::string first = sessions.begin(users.users[0], time += 1s);
  const std::string second = sessions.begin(users.users[0], time += 1s);
  EXPECT_TRUE(sessions.find(first, users, time += 1s));
  for (std::size_t i = 2; i <= Sessions::max_of_user; ++i) sessions.begin(users.users[0], time);
  EXPECT_FALSE(sessions.find(second, users, time)) << "unused for longest";
  EXPECT_TRUE(sessions.find(first, users, time));
  EXPECT_TRUE(sessions.find(bert, users, time));
}

}  // namespace
}  // namespace weir
