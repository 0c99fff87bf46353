#include "backend/web/access/access.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <ranges>

#include "backend/base/log.h"
#include "backend/web/access/access_routes.h"
#include "backend/web/access/authorised_body.h"
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
  EXPECT_EQ(identify(access, {}, "bearer weir_secret").role, Role::viewer);
  EXPECT_EQ(identify(access, {}, "Bearer " + hash_secret("weir_secret")).role, Role::nobody);
  file_.change([](UserList& list) { list.remove_token("backup"); });
  EXPECT_TRUE(identify(access, {}, "Bearer weir_secret").wrong_token);
}

class Endless : public LiveBody {
 public:
  Async<std::vector<LiveSlice>> next() override { co_return std::vector<LiveSlice>{{nullptr, "data"}}; }
};

TEST_F(AccessTest, AnAnswerThatGoesOnEndsWithTheTokenOrItsRole) {
  Access access({.data = directory_.path()});
  Request request = request_for("/api/events");
  request.authorization = "Bearer weir_secret";
  access.examine(request);
  AuthorisedBody body(std::make_unique<Endless>(), [&] { return access.still_knows(request); });
  const auto reads = [&] {
    loop_.advance(1s);
    return !loop_.run(body.next()).empty();
  };
  EXPECT_TRUE(reads());
  const auto replace = [&](Role role) {
    file_.change([&](UserList& list) {
      list.remove_token("backup");
      list.add(ApiToken{"backup", role, hash_secret("weir_secret"), {}});
    });
  };
  replace(Role::operator_);
  EXPECT_FALSE(reads());
  replace(Role::viewer);
  EXPECT_TRUE(reads());
  file_.change([](UserList& list) { list.remove_token("backup"); });
  EXPECT_FALSE(reads());
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
  Request request = request_for("/api/streams", "localhost:8080");
  Access({.data = empty.path()}).examine(request);
  EXPECT_EQ(request.identity.role, Role::admin);
  Access open({.data = empty.path(), .open_to_network = true});
  EXPECT_TRUE(open.lacks_users());
  request = request_for("/api/streams", "localhost:8080");
  open.examine(request);
  EXPECT_EQ(request.identity.role, Role::nobody) << "a Host header is easily forged";
}

TEST_F(AccessTest, MetricsAreForTokensAndThisMachine) {
  Access access({.data = directory_.path()});
  const auto may = [&](const char* client, const char* host, bool forwarded = false) {
    Request request = request_for("/metrics", host);
    request.client_address = client;
    request.forwarded = forwarded;
    access.examine(request);
    return request.identity.role == Role::viewer;
  };
  EXPECT_TRUE(may("127.0.0.1", "localhost:8080") && may("::1", "[::1]:8080"));
  EXPECT_FALSE(may("127.0.0.1", "localhost:8080", true));
  EXPECT_FALSE(may("203.0.113.9", "localhost:8080"));
  EXPECT_FALSE(may("127.0.0.1", "192.0.2.1"));
}

TEST_F(AccessTest, TheAdminChangesUsersAndTokens) {
  LiveUsers users(directory_.path());
  UserRoutes routes(users, passwords_);
  routes.add_to(router_);
  const auto ask = [&](const char* method, const char* target, const std::string& body) {
    Request request = request_for(target);
    request.method = method;
    request.body = body;
    request.identity = {.role = Role::admin, .name = "anna"};
    return loop_.run(router_.route(std::move(request)));
  };
  EXPECT_EQ(ask("POST", "/api/users", R"({"name": "bert", "role": "viewer", "password": "long enough"})").status, 201);
  EXPECT_EQ(ask("PATCH", "/api/users/bert", R"({"role": "operator", "password": "another one"})").status, 200);
  EXPECT_EQ(ask("DELETE", "/api/users/backup", "").status, 404) << "a token's name";
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
  for (const char* known : {"192.0.2.1", "192.0.2.1:1", "WEIR.example", "[2001:db8::1]:80", "localhost:80", "[::1]"})
    EXPECT_TRUE(hosts.has(request_for("/", known))) << known;
  for (const char* other : {"rebound.example", "192.0.2.2", "weir.example.evil", "evil.weir.example", ""})
    EXPECT_FALSE(hosts.has(request_for("/", other))) << other;
  EXPECT_TRUE(hosts.is_secure("weir.example"));
  EXPECT_FALSE(hosts.is_secure("[2001:db8::1]"));
}

TEST(KnownHostsTest, ABrowserTellsForWhosePageItAsks) {
  const KnownHosts hosts({"https://weir.example:8443", "https://usual.example:443"});
  const auto is_other = [&](const char* origin, const char* site) {
    Request request = request_for("/");
    request.origin = origin;
    request.fetch_site = site;
    return hosts.is_from_other_site(request);
  };
  for (const char* own : {"", "http://192.0.2.1:8080", "https://weir.example:8443", "https://usual.example"})
    EXPECT_FALSE(is_other(own, "")) << own;
  for (const char* other : {"https://weir.example", "http://192.0.2.1:81", "http://evil.example", "null"})
    EXPECT_TRUE(is_other(other, "")) << other;
  for (const char* site : {"cross-site", "same-site"}) EXPECT_TRUE(is_other("", site)) << site;
  EXPECT_FALSE(is_other("", "none"));
  EXPECT_FALSE(is_other("https://weir.internal", "same-origin"));
  Request by_tls = request_for("/");
  by_tls.secure = true;
  by_tls.origin = "https://192.0.2.1:8080";
  EXPECT_FALSE(hosts.is_from_other_site(by_tls));
  by_tls.origin = "http://192.0.2.1:8080";
  EXPECT_TRUE(hosts.is_from_other_site(by_tls));
}

TEST(LoginAttemptsTest, WaitsGrowWithTheFailuresAndPass) {
  LoginAttempts attempts;
  const TimePoint start(1h);
  const auto wait_after = [&](int failures, const std::string& address) {
    for (int i = 0; i < failures; ++i) attempts.fail(address, "anna", start);
    return attempts.refusal(address, start);
  };
  EXPECT_EQ(wait_after(4, "192.0.2.1"), 0s);
  EXPECT_EQ(wait_after(1, "192.0.2.1"), 1s);
  EXPECT_EQ(wait_after(3, "192.0.2.1"), 8s);
  EXPECT_EQ(attempts.refusal("192.0.2.1", start + 7500ms), 1s);
  EXPECT_EQ(attempts.refusal("192.0.2.1", start + 8s), 0s);
  EXPECT_EQ(wait_after(40, "192.0.2.1"), 900s);
  EXPECT_EQ(wait_after(5, "2001:db8::1"), 1s);
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
