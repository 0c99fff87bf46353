#include "backend/web/http_server.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <boost/asio/ip/tcp.hpp>

#include "backend/platform/sleep.h"
#include "tests/support/certificate.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_loop.h"

namespace weir {
namespace {

using namespace std::chrono_literals;

/// A client's end of a connection; it never waits.
class Client {
 public:
  explicit Client(int port, const std::string& request = {}) {
    socket_.connect({boost::asio::ip::address_v4::loopback(), static_cast<std::uint16_t>(port)});
    send(request);
  }
  void send(const std::string& bytes) { ::send(socket_.native_handle(), bytes.data(), bytes.size(), MSG_NOSIGNAL); }
  /// Everything that came so far.
  const std::string& read() {
    std::string chunk(1 << 16, '\0');
    for (;;) {
      const ssize_t size = ::recv(socket_.native_handle(), chunk.data(), chunk.size(), MSG_DONTWAIT);
      if (size == 0) closed_ = true;
      if (size <= 0) return received_;
      received_.append(chunk, 0, static_cast<std::size_t>(size));
    }
  }
  bool closed() {
    read();
    return closed_;
  }

 private:
  boost::asio::io_context context_;
  boost::asio::ip::tcp::socket socket_{context_};
  std::string received_;
  bool closed_ = false;
};

/// A live body: a tick every two seconds, of which there are three.
class Ticker : public LiveBody {
 public:
  static inline int count = 0;
  Ticker() { ++count; }
  ~Ticker() override { --count; }
  Async<std::vector<LiveSlice>> next() override {
    co_await sleep(2s);
    std::vector<LiveSlice> slices;
    if (ticks_++ < 3) slices.assign(2, {nullptr, "tick"});
    co_return slices;
  }

 private:
  int ticks_ = 0;
};

// "/slow" takes 5 s, "/large" sends 8 MiB, everything else says what it was asked.
Async<Response> answer(Request request) {
  if (request.target.path[0] == "live") {
    Response response;
    response.is_live = true;
    response.live = std::make_unique<Ticker>();
    co_return response;
  }
  if (request.target.path[0] == "slow") co_await sleep(5s);
  if (request.target.path[0] == "large") co_return text_response(std::string(8 << 20, 'x'));
  co_return text_response(request.method + " " + request.target.path[0] + " " + request.host + " " + request.body);
}

class HttpServerTest : public testing::Test {
 protected:
  HttpServerTest() {
    limits_.connections = 3;
    limits_.total_body_bytes = 2 * limits_.body_bytes;
    server_ = std::make_unique<HttpServer>(answer, limits_);
    server_->listen("127.0.0.1", 0);
    server_->start();
  }
  ~HttpServerTest() override { loop_.run(server_->stop(0ms)); }

  bool wait(const std::function<bool()>& condition) { return loop_.run_until(condition, 10s); }
  bool receives(Client& client, std::string_view text) {
    return wait([&] { return client.read().find(text) != std::string::npos; });
  }
  bool ends(Client& client) {
    return wait([&] { return client.closed(); });
  }
  // What a client has sent is there already; a connection takes a few turns of the loop to be accepted and read.
  void let_server_read() {
    for (int turn = 0; turn < 10; ++turn) loop_.settle();
  }
  int port() const { return server_->port(); }

  test::TestLoop loop_;
  HttpLimits limits_;
  std::unique_ptr<HttpServer> server_;
};

TEST_F(HttpServerTest, AnswersRequestAfterRequestOnOneConnection) {
  Client client(port(),
                "GET /a HTTP/1.1\r\nHost: h:1\r\n\r\nPOST /b HTTP/1.1\r\nHost: h:1\r\nContent-Length: 3\r\n\r\nxyz");
  EXPECT_TRUE(receives(client, "POST b h:1 xyz")) << client.read();
  client.send("GET http://other:2/c HTTP/1.1\r\nHost: h:1\r\n\r\n");
  EXPECT_TRUE(receives(client, "GET c other:2 "));
  client.send("GET /d HTTP/1.0\r\n\r\n");
  EXPECT_TRUE(receives(client, "GET d 127.0.0.1:" + std::to_string(port())));
  EXPECT_TRUE(ends(client));
}

TEST_F(HttpServerTest, SendsContinueWhereTheClientWaitsForIt) {
  Client client(port(), "POST /b HTTP/1.1\r\nHost: h\r\nContent-Length: 2\r\nExpect: 100-Continue\r\n\r\n");
  EXPECT_TRUE(receives(client, "HTTP/1.1 100 Continue\r\n\r\n"));
  client.send("ok");
  EXPECT_TRUE(receives(client, "POST b h ok"));
}

TEST_F(HttpServerTest, RefusesInvalidAndOversizedRequests) {
  const std::pair<std::string, const char*> cases[] = {
      {"GET /a HTTP/1.1\r\n\r\n", "400"},
      {"GET /a HTTP/1.1\r\nHost: h\r\nHost: h\r\n\r\n", "400"},
      {"GET /a HTTP/1.0\r\nHost: h\r\nHost: i\r\n\r\n", "400"},
      {"GET /../x HTTP/1.1\r\nHost: h\r\n\r\n", "400"},
      {"GET /a HTTP/1.1\r\nHost: h\r\nContent-Length: -1\r\n\r\n", "400"},
      {"GET /a HTTP/1.1\r\nHost: h\r\nX: " + std::string(limits_.header_bytes, 'x') + "\r\n\r\n", "431"},
      {"POST /a HTTP/1.1\r\nHost: h\r\nContent-Length: 1048577\r\n\r\n", "413"},
      {"POST /a HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n200000\r\n" + std::string(1 << 21, 'x'),
       "413"},
  };
  for (const auto& [request, status] : cases) {
    Client client(port(), request);
    EXPECT_TRUE(receives(client, std::string("HTTP/1.1 ") + status)) << request.substr(0, 60) << client.read();
  }
}

TEST_F(HttpServerTest, DisconnectsSilentClients) {
  Client idle(port());
  Client unfinished(port(), "GET /a HTTP/1.1\r\nHos");
  Client reader(port(), "GET /large HTTP/1.1\r\nHost: h\r\n\r\n");
  let_server_read();
  loop_.advance(limits_.read + 2s);
  EXPECT_TRUE(ends(unfinished));
  EXPECT_TRUE(ends(reader));
  EXPECT_LT(reader.read().size(), std::size_t{8} << 20);
  EXPECT_FALSE(idle.closed());
  loop_.advance(limits_.idle);
  EXPECT_TRUE(ends(idle));
}

TEST_F(HttpServerTest, DisconnectsClientsThatDoNotEndTheHandshake) {
  const test::TemporaryDirectory directory;
  test::make_certificate(directory.path(), "One");
  HttpServer server(answer, limits_);
  server.use_tls(directory.path() / "cert.pem", directory.path() / "key.pem", [](const Request&) { return true; });
  server.listen("127.0.0.1", 0);
  server.start();
  Client silent(server.port());
  Client unfinished(server.port(), "\x16\x03\x01");
  Client no_tls(server.port(), std::string("\x16\x03\x01\x00\x05hello", 10));
  EXPECT_TRUE(ends(no_tls));
  EXPECT_EQ(server.figures().connections, 2u);
  loop_.advance(limits_.handshake + 2s);
  EXPECT_TRUE(ends(unfinished));
  EXPECT_FALSE(silent.closed());
  loop_.advance(limits_.idle);
  EXPECT_TRUE(ends(silent));
  loop_.run(server.stop(0ms));
}

TEST_F(HttpServerTest, RefusesConnectionsBeyondTheLimit) {
  std::vector<std::unique_ptr<Client>> clients;
  for (int i = 0; i < 4; ++i) clients.push_back(std::make_unique<Client>(port()));
  EXPECT_TRUE(receives(*clients[3], "HTTP/1.1 503"));
  clients.erase(clients.begin(), clients.begin() + 2);
  let_server_read();
  Client next(port(), "GET /a HTTP/1.1\r\nHost: h\r\n\r\n");
  EXPECT_TRUE(receives(next, "GET a h"));
}

TEST_F(HttpServerTest, BoundsTheSumOfBodiesAndRefusesTheNewest) {
  const std::string head = "POST /b HTTP/1.1\r\nHost: h\r\nContent-Length: 1000000\r\n\r\n";
  const std::string chunked = "POST /b HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n";
  Client first(port(), head);
  auto second = std::make_unique<Client>(port(), chunked);
  let_server_read();
  for (const std::string& request : {head, chunked}) {
    Client third(port(), request);
    EXPECT_TRUE(receives(third, "HTTP/1.1 503"));
    EXPECT_TRUE(ends(third));
  }
  second.reset();
  let_server_read();
  Client fourth(port(), chunked + "2\r\nok\r\n0\r\n\r\n");
  EXPECT_TRUE(receives(fourth, "POST b h ok")) << fourth.read();
  first.send(std::string(1000000, 'x'));
  EXPECT_TRUE(receives(first, "POST b h xxx"));
}

TEST_F(HttpServerTest, LiveResponsesEndWithTheirSourceTheirClientOrTheServer) {
  Client viewer(port(), "GET /live HTTP/1.1\r\nHost: h\r\n\r\nGET /a HTTP/1.1\r\nHost: h\r\n\r\n");
  let_server_read();
  loop_.advance(5s);
  EXPECT_TRUE(receives(viewer, "\r\n\r\nticktickticktick")) << viewer.read();
  EXPECT_EQ(viewer.read().find("Content-Length"), std::string::npos);
  loop_.advance(4s);
  EXPECT_TRUE(ends(viewer));
  EXPECT_TRUE(viewer.read().ends_with("ticktick"));

  auto leaving = std::make_unique<Client>(port(), "GET /live HTTP/1.1\r\nHost: h\r\n\r\n");
  Client staying(port(), "GET /live HTTP/1.1\r\nHost: h\r\n\r\n");
  let_server_read();
  EXPECT_EQ(Ticker::count, 2);
  leaving.reset();
  loop_.advance(1s);
  EXPECT_EQ(Ticker::count, 1) << "it is noticed before anything is written";
  const Task stopping = spawn("stop", server_->stop(10s));
  EXPECT_TRUE(ends(staying));
}

TEST_F(HttpServerTest, StopWaitsForAnswersInProgress) {
  const int taken = port();
  Client idle(port());
  Client busy(port(), "GET /slow HTTP/1.1\r\nHost: h\r\n\r\n");
  let_server_read();
  const Task stopping = spawn("stop", server_->stop(10s));
  EXPECT_TRUE(ends(idle));
  EXPECT_FALSE(stopping.dead());
  loop_.advance(6s);
  EXPECT_TRUE(receives(busy, "Connection: close"));
  loop_.advance(1s);
  EXPECT_TRUE(wait([&] { return stopping.dead(); }));
  EXPECT_THROW(Client{taken}, boost::system::system_error);
}

}  // namespace
}  // namespace weir
