#include "backend/web/request_source.h"

#include <gtest/gtest.h>

namespace weir {
namespace {

TEST(RequestSourceTest, OnlyTrustedProxiesNameTheClient) {
  const std::set<std::string> trusted = {"127.0.0.1", "10.0.0.1", "::1"};
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"127.0.0.1", "", "127.0.0.1"},
      {"127.0.0.1", "192.0.2.7", "192.0.2.7"},
      {"::1", "2001:DB8::7", "2001:db8::7"},
      {"127.0.0.1", "203.0.113.9, 192.0.2.7", "192.0.2.7"},             // the client wrote the first one
      {"127.0.0.1", "203.0.113.9, 192.0.2.7 , 10.0.0.1", "192.0.2.7"},  // two proxies
      {"192.0.2.7", "203.0.113.9", "192.0.2.7"},                        // no proxy of ours
      {"127.0.0.1", "192.0.2.7, unknown", "127.0.0.1"},
  };
  for (const auto& [connection, header, client] : cases)
    EXPECT_EQ(find_client_address(connection, header, trusted), client) << header;
}

TEST(RequestSourceTest, KnowsTheNamesOfTheLoopbackAddress) {
  for (const char* host : {"localhost", "LocalHost:8080", "127.0.0.1", "127.9.9.9:1", "[::1]", "[::1]:8080"})
    EXPECT_TRUE(is_loopback_host(host)) << host;
  for (const char* host :
       {"", "weir.example", "localhost.example", "127.0.0.1.example", "10.0.0.1", "[::2]:80", "[", "0"})
    EXPECT_FALSE(is_loopback_host(host)) << host;
}

}  // namespace
}  // namespace weir
