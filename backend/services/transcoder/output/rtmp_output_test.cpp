#include "backend/services/transcoder/output/rtmp_output.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "backend/base/members.h"

namespace weir {
namespace {

/// The address, or the name of the field that was refused.
std::string compose(const Value& output) {
  RtmpOutput rtmp;
  if (!rtmp.set_server(member(output, "server"))) return "server";
  if (!rtmp.set_port(member(output, "port"))) return "port";
  if (!rtmp.set_app(member(output, "app"))) return "app";
  if (!rtmp.set_playpath(member(output, "playpath"))) return "playpath";
  if (!rtmp.set_username(member(output, "username"))) return "username";
  if (!rtmp.set_password(member(output, "password"))) return "password";
  return rtmp.get_url();
}

TEST(RtmpOutputTest, ComposesAnAddressOrRefusesTheFieldThatCannotBe) {
  const Value good = {{"server", "a.example"}, {"port", 1935}, {"app", "live"}, {"playpath", "cam"}};
  struct Case {
    Value changes;
    const char* result;
  };
  const Case cases[] = {
      {Value::object(), "rtmp://a.example:1935/live/cam"},
      {{{"server", "::1"}}, "rtmp://[::1]:1935/live/cam"},
      {{{"app", "a/b"}, {"playpath", "c/d?key=x&y=z"}}, "rtmp://a.example:1935/a/b/c/d?key=x&y=z"},
      {{{"username", "u"}, {"password", "p:@w"}}, "rtmp://u:p:@w@a.example:1935/live/cam"},
      {{{"username", "u"}, {"password", nullptr}}, "rtmp://u@a.example:1935/live/cam"},
      {{{"username", ""}, {"password", ""}}, "rtmp://a.example:1935/live/cam"},
      {{{"server", 5}}, "server"},
      {{{"server", "a b"}}, "server"},
      {{{"server", "a/../b"}}, "server"},
      {{{"server", "evil@host"}}, "server"},
      {{{"port", 0}}, "port"},
      {{{"port", 65536}}, "port"},
      {{{"port", "99999999999999999999999"}}, "port"},
      {{{"port", "19x"}}, "port"},
      {{{"port", 1.5}}, "port"},
      {{{"app", ""}}, "app"},
      {{{"playpath", "a b"}}, "playpath"},
      {{{"playpath", "a\nb"}}, "playpath"},
      {{{"username", "a:b"}}, "username"},
      {{{"username", "u"}, {"password", "a/b"}}, "password"},
  };
  for (const Case& c : cases) {
    Value output = good;
    output.update(c.changes);
    EXPECT_EQ(compose(output), c.result) << c.changes;
  }
}

}  // namespace
}  // namespace weir
