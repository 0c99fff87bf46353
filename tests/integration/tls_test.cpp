#include <algorithm>
#include <filesystem>
#include <fstream>

#include "tests/integration/server_fixture.h"
#include "tests/support/certificate.h"

namespace weir::test {
namespace {

namespace fs = std::filesystem;

/// The real server with a certificate of its own, asked by curl.
class TlsTest : public testing::Test {
 protected:
  void serve() {
    server_ =
        std::make_unique<ServerProcess>(std::vector<std::string>{"--data", at("data"), "--port", "0", "--tls-cert",
                                                                 at("cert.pem"), "--tls-key", at("key.pem")},
                                        at("log"));
  }
  bool is_ready() {
    serve();
    return eventually([&] { return server_->port() != 0 && curl("/readyz").find("true") != std::string::npos; });
  }
  std::string curl(const std::string& path, const std::string& options = {}, const std::string& scheme = "https") {
    return run(fmt::format("curl -sS -m 20 --cacert {} {} {}://localhost:{}{}", at("cert.pem"), options, scheme,
                           server_->port(), path));
  }
  // Of the certificate that new connections get.
  std::string organisation() {
    const std::string text =
        run(fmt::format("openssl s_client -connect 127.0.0.1:{} </dev/null 2>/dev/null | openssl x509 -noout -subject",
                        server_->port()));
    return text.substr(std::min(text.find("O = "), text.size()), 7);
  }
  bool eventually_logs(const std::string& text) {
    return eventually([&] { return server_->log().find(text) != std::string::npos; });
  }
  std::string at(const std::string& name) const { return directory_.path() / name; }

  const TemporaryDirectory directory_;
  std::unique_ptr<ServerProcess> server_;
};

TEST_F(TlsTest, TheApiIsAnsweredOverTlsAndPlainHttpIsSentThere) {
  make_certificate(directory_.path(), "One");
  ASSERT_TRUE(is_ready()) << server_->log();
  std::string form = R"({"input": {}, "output": {})";
  for (int i = 0; i < 9; ++i) form += fmt::format(R"(,"k{}":"{}")", i, std::string(100'000, 'x'));
  std::ofstream(at("form")) << form << "}";
  EXPECT_NE(curl("/api/streams", "-d @" + at("form")).find("\"id\":0"), std::string::npos);
  EXPECT_GT(curl("/api/streams/0/config /api/streams/0/config").size(), 900'000u);

  const std::string status = "-o /dev/null -w '%{http_code} %{redirect_url}' ";
  EXPECT_EQ(curl("/healthz", status + "--tls-max 1.2"), "200 ");
  EXPECT_EQ(curl("/healthz", status + "--tls-max 1.2 --ciphers AES256-SHA:ECDHE-ECDSA-AES128-SHA").find("200"),
            std::string::npos);
  const std::string weak = run(fmt::format(
      "openssl s_client -tls1_1 -cipher DEFAULT@SECLEVEL=0 -connect 127.0.0.1:{} </dev/null", server_->port()));
  EXPECT_NE(weak.find("alert protocol version"), std::string::npos) << weak;

  const std::string location = fmt::format("308 https://localhost:{}/api/streams?a=%20b", server_->port());
  EXPECT_EQ(curl("/api/streams?a=%20b", status, "http"), location);
  EXPECT_EQ(curl("/api/streams?a=%20b", status + fmt::format("-x http://127.0.0.1:{}", server_->port()), "http"),
            location)
      << "a target in absolute form";
  EXPECT_EQ(curl("/api/streams", status + "-H 'Host: rebound.example'", "http"), "421 ");

  run(fmt::format("echo 'correct horse' | {} user add anna --role admin --data {}", WEIR_PROGRAM, at("data")));
  const std::string login = R"(-i -d '{"name": "anna", "password": "correct horse"}')";
  EXPECT_NE(curl("/api/login", login).find("; Secure"), std::string::npos);
}

TEST_F(TlsTest, NewCertificatesAreTakenUpAndUselessOnesAreNot) {
  make_certificate(directory_.path(), "One");
  ASSERT_TRUE(is_ready()) << server_->log();
  EXPECT_EQ(organisation(), "O = One");
  make_certificate(directory_.path(), "Two");
  EXPECT_TRUE(eventually([&] { return organisation() == "O = Two"; })) << server_->log();
  std::ofstream(at("cert.pem")) << "nothing";
  EXPECT_TRUE(eventually_logs("stays in use")) << server_->log();
  EXPECT_EQ(organisation(), "O = Two");
  make_certificate(directory_.path(), "Six");
  EXPECT_TRUE(eventually([&] { return organisation() == "O = Six"; })) << server_->log();
}

TEST_F(TlsTest, StartsWithAPairThatFitsOnly) {
  make_certificate(directory_.path(), "One", "rsa:2048");
  fs::copy(at("cert.pem"), at("other.pem"));
  const auto refuses = [&](const std::string& message) {
    serve();
    EXPECT_EQ(server_->wait(), 1);
    EXPECT_NE(server_->log().find(message), std::string::npos) << server_->log();
  };
  make_certificate(directory_.path(), "Two");
  fs::rename(at("other.pem"), at("cert.pem"));
  refuses("is not that of the certificate");
  fs::remove(at("key.pem"));
  refuses("(--tls-key) can't be used: No such file");
  make_certificate(directory_.path(), "Two");
  run(fmt::format("openssl x509 -in {0} -signkey {1} -days -1 -out {0}", at("cert.pem"), at("key.pem")));
  serve();
  EXPECT_TRUE(eventually_logs("Listening on https")) << server_->log();
  EXPECT_NE(server_->log().find("has expired"), std::string::npos) << server_->log();
}

TEST_F(TlsTest, StreamsArePublishedOverTls) {
  make_certificate(directory_.path(), "One");
  ASSERT_TRUE(is_ready()) << server_->log();
  std::ofstream(at("form")) << R"({"input.0": {"format": "lavfi", "re": true,
      "url": "testsrc2=size=640x360:rate=25[out0];sine=frequency=440:sample_rate=48000[out1]"},
      "output": {"0": {"protocol": "hls", "playlist_name": "index.m3u8"},
                 "1": {"protocol": "http", "filename": "live.ts"}}})";
  curl("/api/streams", "-d @" + at("form"));
  curl("/api/streams/0/start", "-X POST");
  EXPECT_NE(curl("/api/streams/0/urls").find(fmt::format("https://localhost:{}/0/index.m3u8", server_->port())),
            std::string::npos);
  std::vector<fs::path> segments;
  ASSERT_TRUE(eventually([&] {
    segments.clear();
    for (const auto& entry : fs::recursive_directory_iterator(at("data/hls")))
      if (entry.path().extension() == ".ts") segments.push_back(entry.path());
    return segments.size() > 1;
  })) << curl("/api/streams/0/log");
  const fs::path segment = std::ranges::min(segments);
  const std::string written = read_file(segment, 64 << 20);
  ASSERT_GT(written.size(), 200'000u) << "more than is encrypted at once";
  const std::string address = "/0/" + segment.lexically_relative(at("data/hls/0")).string();
  EXPECT_TRUE(curl(address) == written) << address;
  EXPECT_TRUE(curl(address, "-r 100000-180000") == written.substr(100'000, 80'001));
  const std::string live = run(
      fmt::format("curl -s -m 4 --cacert {} https://localhost:{}/stream/0/live.ts", at("cert.pem"), server_->port()));
  EXPECT_GT(live.size(), 100'000u);
  EXPECT_TRUE(live.starts_with('G')) << "a packet of a transport stream";
}

}  // namespace
}  // namespace weir::test
