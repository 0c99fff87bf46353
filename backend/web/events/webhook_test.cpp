#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/stat.h>

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <cstring>
#include <fstream>

#include "backend/base/log.h"
#include "backend/base/text_form.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"
#include "backend/web/events/public_address.h"
#include "backend/web/events/webhooks.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_loop.h"

namespace weir {
namespace {

using namespace std::chrono_literals;
using boost::asio::ip::tcp;
namespace beast = boost::beast;
namespace http = beast::http;
using HookRequest = http::request<http::string_body>;

TEST(PublicAddressTest, OnlyAddressesOfTheInternetArePublic) {
  const std::vector<const char*> addresses[] = {
      {"0.0.0.0",           "10.1.2.3",        "127.0.0.1",   "169.254.169.254",
       "172.16.0.1",        "172.31.255.255",  "192.168.1.1", "100.64.0.1",
       "224.0.0.1",         "255.255.255.255", "::",          "::1",
       "fe80::1",           "fd00::1",         "ff02::1",     "::ffff:127.0.0.1",
       "64:ff9b::10.0.0.1", "2002:7f00:1::",   "2001:db8::1", "2001::1",
       "::127.0.0.1"},
      {"8.8.8.8", "172.15.255.255", "172.32.0.0", "100.128.0.0", "2606:4700::1111", "::ffff:8.8.8.8",
       "64:ff9b::8.8.8.8"}};
  const auto check = [](const char* text, bool expected) {
    sockaddr_storage address{};
    auto& v4 = reinterpret_cast<sockaddr_in&>(address);
    auto& v6 = reinterpret_cast<sockaddr_in6&>(address);
    const bool is_v6 = std::strchr(text, ':') != nullptr;
    address.ss_family = is_v6 ? AF_INET6 : AF_INET;
    void* const bytes = is_v6 ? static_cast<void*>(&v6.sin6_addr) : &v4.sin_addr;
    ASSERT_EQ(::inet_pton(address.ss_family, text, bytes), 1) << text;
    EXPECT_EQ(is_public_address(reinterpret_cast<const sockaddr&>(address)), expected) << text;
  };
  for (const char* text : addresses[0]) check(text, false);
  for (const char* text : addresses[1]) check(text, true);
}

TEST(WebhookTest, FormsAreReadOrRefusedByTheNameOfTheMember) {
  const std::pair<const char*, const char*> cases[] = {
      {R"({"url": "https://a/b", "kinds": ["ended"], "causes": ["operator"], "secret": "s"})", ""},
      {R"({"kinds": []})", "url: required"},
      {R"({"url": "http://u:secret@a b/"})", "url: \"http://u:***@a b/\" is not"},
      {R"({"url": "http://a", "kinds": ["ended", "x"]})", "kinds: x"},
      {R"({"url": "http://a", "colour": 1})", "colour: "},
  };
  for (const auto& [form, fault] : cases) {
    std::string message;
    try {
      const Webhook webhook = read_webhook(Value::parse(form));
      EXPECT_EQ(to_form(webhook, true), Value::parse(form));
    } catch (const ValueError& failure) {
      message = failure.what();
    }
    EXPECT_TRUE(message.starts_with(fault) && message.empty() == (*fault == '\0')) << form << " " << message;
  }
}

TEST(WebhookTest, AUrlThatIsSentBackAsItIsShownKeepsItsSecrets) {
  const Webhook stored{.url = "http://u:secret@a/?token=x"};
  const std::pair<const char*, const char*> cases[] = {
      {"http://u:***@a/?token=***", "http://u:secret@a/?token=x"},
      {"http://u:new@a/?token=y", "http://u:new@a/?token=y"},
      {"http://u:***@b/?token=***", nullptr},
      {"http://u:secret@a/?token=***", nullptr},
  };
  for (const auto& [url, kept] : cases) {
    Value form = {{"url", url}};
    if (!kept) {
      EXPECT_THROW(restore_url(form, stored), ValueError) << url;
      continue;
    }
    restore_url(form, stored);
    EXPECT_EQ(form["url"], kept) << url;
  }
}

TEST(WebhookTest, EachGetsWhatItAsksFor) {
  const JournalEntry ended{.kind = JournalKind::ended, .cause = Cause::stalled};
  const JournalEntry status{.kind = JournalKind::status};
  const Webhook any{};
  EXPECT_TRUE(any.wants(ended) && !any.wants(status));
  EXPECT_TRUE((Webhook{.url = {}, .kinds = {JournalKind::status}}).wants(status));
  const Webhook stalled{.url = {}, .kinds = {}, .causes = {Cause::stalled, Cause::speed}};
  EXPECT_TRUE(stalled.wants(ended) && !stalled.wants(status));
  EXPECT_FALSE((Webhook{.url = {}, .kinds = {JournalKind::ended}, .causes = {Cause::speed}}).wants(ended));
}

/// A server on loopback that takes one request a connection and answers as the test says.
class Receiver {
 public:
  explicit Receiver(Loop& loop) : acceptor_(loop.context(), {boost::asio::ip::address_v4::loopback(), 0}) { accept(); }

  std::string url() const { return "http://127.0.0.1:" + std::to_string(acceptor_.local_endpoint().port()) + "/hook"; }

  std::vector<HookRequest> requests;
  std::vector<int> statuses = {204};  ///< the last one for all further requests; 0: no answer at all

 private:
  struct Connection {
    tcp::socket socket;
    beast::flat_buffer buffer;
    HookRequest request;
  };

  void accept() {
    acceptor_.async_accept([this](boost::system::error_code error, tcp::socket socket) {
      if (error) return;
      Connection& connection = *connections_.emplace_back(std::make_unique<Connection>(std::move(socket)));
      http::async_read(connection.socket, connection.buffer, connection.request, [&](auto failure, std::size_t) {
        if (!failure) answer(connection);
      });
      accept();
    });
  }
  void answer(Connection& connection) {
    requests.push_back(connection.request);
    const int status = statuses[std::min(requests.size(), statuses.size()) - 1];
    if (status == 0) return;
    const std::string text = "HTTP/1.1 " + std::to_string(status) + " X\r\nLocation: http://127.0.0.1:1/\r\n" +
                             "Content-Length: 0\r\nConnection: close\r\n\r\n";
    connection.socket.send(boost::asio::buffer(text));
    connection.socket.close();
  }

  tcp::acceptor acceptor_;
  std::vector<std::unique_ptr<Connection>> connections_;
};

class WebhooksTest : public testing::Test {
 protected:
  WebhookSettings settings() const { return {.file = at("webhooks.json"), .private_addresses = true}; }
  std::string at(const std::string& name) const { return (directory_.path() / name).string(); }
  std::string add(Webhooks& webhooks, Webhook webhook) { return test::run(loop_, webhooks.add(std::move(webhook))); }
  static void tell(JournalKind kind, const std::string& text) { journal().record({.kind = kind, .text = text}); }
  bool wait(const std::function<bool()>& condition) { return loop_.run_until(condition, 10s); }

  test::TemporaryDirectory directory_;
  test::TestLoop loop_;
  Receiver receiver_{loop_};
};

TEST_F(WebhooksTest, AReceiverChecksTheSignatureByItself) {
  Webhooks webhooks(settings());
  add(webhooks, {.url = receiver_.url(), .secret = "it's $ecret"});
  tell(JournalKind::status, "running");
  tell(JournalKind::notice, "hello rtmp://u:pass@h");
  ASSERT_TRUE(wait([&] { return webhooks.find("1")->figures().delivered == 1; }));
  ASSERT_EQ(receiver_.requests.size(), 1U);
  const HookRequest& request = receiver_.requests[0];
  EXPECT_EQ(request.target(), "/hook");
  EXPECT_EQ(request["X-Weir-Event"], "notice");
  EXPECT_EQ(Value::parse(request.body()).at("text"), "hello rtmp://u:***@h");
  std::ofstream(at("signed")) << request["X-Weir-Timestamp"] << "." << request.body();
  const std::string signature(request["X-Weir-Signature"]);
  ASSERT_TRUE(signature.starts_with("sha256=") && signature.size() == 71) << signature;
  const std::string command = "openssl dgst -sha256 -hmac \"it's \\$ecret\" " + at("signed") + " >" + at("digest");
  ASSERT_EQ(std::system(command.c_str()), 0);
  EXPECT_NE(read_file(at("digest"), 4096).find(signature.substr(7)), std::string::npos)
      << read_file(at("digest"), 4096);
}

TEST_F(WebhooksTest, FailedDeliveriesAreRetriedInOrderAndRefusedOnesGivenUp) {
  Webhooks webhooks(settings());
  add(webhooks, {.url = receiver_.url()});
  receiver_.statuses = {500, 302, 429, 200, 404, 200};
  for (const char* text : {"first", "second", "third"}) tell(JournalKind::notice, text);
  const auto has = [&](std::size_t requests) {
    return wait([=, this] { return receiver_.requests.size() == requests; });
  };
  const WebhookTarget& target = *webhooks.find("1");
  const auto shows = [&](int status) {
    return wait([&, status] { return !target.latest().is_null() && target.latest().at("status") == status; });
  };
  ASSERT_TRUE(has(1) && shows(500));
  loop_.advance(1900ms);
  EXPECT_EQ(receiver_.requests.size(), 1U);
  loop_.advance(200ms);
  ASSERT_TRUE(has(2) && shows(302));
  loop_.advance(3800ms);
  EXPECT_EQ(receiver_.requests.size(), 2U);
  loop_.advance(400ms);
  ASSERT_TRUE(has(3) && shows(429));
  loop_.advance(8100ms);
  ASSERT_TRUE(wait([&] { return target.waiting() == 0; }));
  std::string order;
  for (const HookRequest& request : receiver_.requests)
    order += Value::parse(request.body()).at("text").get<std::string>() + " ";
  EXPECT_EQ(order, "first first first first second third ");
  EXPECT_EQ(target.figures().delivered, 2U);
  EXPECT_EQ(target.figures().given_up, 1U);
}

TEST_F(WebhooksTest, OfTooManyThatWaitTheOldestAreDropped) {
  Webhooks webhooks(settings());
  add(webhooks, {.url = receiver_.url()});
  receiver_.statuses = {0};
  tell(JournalKind::notice, "under way");
  ASSERT_TRUE(wait([&] { return receiver_.requests.size() == 1; }));
  for (int i = 0; i < 1200; ++i) tell(JournalKind::notice, std::to_string(i));
  EXPECT_EQ(webhooks.find("1")->waiting(), 1000U);
  EXPECT_EQ(webhooks.find("1")->figures().dropped, 201U);
  test::run(loop_, webhooks.remove("1"));
  EXPECT_EQ(webhooks.find("1"), nullptr);
}

TEST_F(WebhooksTest, APrivateAddressIsRefusedWhereItIsConnected) {
  Webhooks webhooks({.file = {}, .private_addresses = false});
  const std::string port = receiver_.url().substr(receiver_.url().rfind(':'));
  for (const std::string host : {"127.0.0.1", "localhost", "[::ffff:127.0.0.1]", "0x7f.1"}) {
    const std::string id = add(webhooks, {.url = "http://" + host + port});
    const auto answer = test::run(loop_, webhooks.find(id)->send(Webhooks::make_test()));
    EXPECT_TRUE(answer.refused) << host << " " << answer.error;
    EXPECT_EQ(judge(answer), Verdict::give_up);
  }
  EXPECT_TRUE(receiver_.requests.empty());
}

TEST_F(WebhooksTest, TheyAreKeptWithTheirSecretsForTheNextServer) {
  std::ofstream(at("settings.json")) << R"([{"url": "https://example.org/a", "kinds": ["failed"]}])";
  WebhookSettings both = settings();
  both.settings_file = at("settings.json");
  {
    Webhooks webhooks(both);
    for (const char* secret : {"first", "second"}) add(webhooks, {.url = "https://example.org/b", .secret = secret});
    test::run(loop_, webhooks.remove("1"));
    Webhook changed = webhooks.find("2")->webhook();
    changed.causes = {Cause::memory};
    test::run(loop_, webhooks.change("2", changed));
  }
  struct stat status{};
  ASSERT_EQ(::stat(at("webhooks.json").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
  Webhooks again(both);
  EXPECT_EQ(again.targets().size(), 2U);
  EXPECT_EQ(again.find("2")->webhook().secret, "second");
  EXPECT_EQ(again.find("2")->webhook().causes, std::vector{Cause::memory});
  EXPECT_EQ(again.find("settings-1")->webhook().kinds, std::vector{JournalKind::failed});
  std::ofstream(at("webhooks.json")) << "{";
  set_log_sink([](LogLevel, std::string_view, std::string_view) {});
  EXPECT_EQ(Webhooks(both).targets().size(), 1U);
  set_log_sink(nullptr);
  EXPECT_EQ(read_file(at("webhooks.json.broken"), 9), "{");
  std::ofstream(at("settings.json")) << R"([{"url": 1}])";
  EXPECT_THROW(Webhooks{both}, ValueError);
}

}  // namespace
}  // namespace weir
