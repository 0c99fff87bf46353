#include "backend/stream/config/stream_config.h"

#include <fmt/core.h>
#include <gtest/gtest.h>

#include "tests/support/fake_siblings.h"

namespace weir {
namespace {

class StreamConfigTest : public testing::Test {
 protected:
  /// Loads a document of these members and gives it back as JSON.
  static Value loaded(const std::string& form) {
    StreamConfig conf;
    EXPECT_TRUE(conf.load_json_conf(Value::parse(form))) << conf.get_error_msg();
    return conf.document();
  }

  test::FakeSiblings world;
};

TEST_F(StreamConfigTest, NormalisesInputs) {
  const std::tuple<const char*, const char*, int> cases[] = {
      // Blank inputs go; the others inherit from input 0.
      {R"({"0":{"url":"udp://a","format":"mpegts"},"1":{"url":"   "},"2":{"url":"udp://b"}})",
       R"({"0":{"url":"udp://a","format":"mpegts"},"1":{"url":"udp://b","format":"mpegts"}})", 2},
      // Input 0 is blank, but its settings were the default already.
      {R"({"0":{"url":"","re":true},"1":{"url":"b"}})", R"({"0":{"url":"b","re":true}})", 1},
      // White space of Unicode is white space; U+200B is none.
      {R"({"0":{"url":"\u2007\u0085\u001d\u3000"},"1":{"url":"\u200b"}})", R"({"0":{"url":"\u200b"}})", 1},
      {R"({"7":{"url":"b"},"07":{"url":"c"},"6":{"url":"a"}})", R"({"0":{"url":"a"},"1":{"url":"b"},"2":{"url":"c"}})",
       3},
      // A url of the wrong kind drops its input only. The stored text is not trimmed.
      {R"({"0":{"url":null},"1":{"url":7},"2":{"url":" c "}})", R"({"0":{"url":" c "}})", 1},
      // A default that is no mapping can't be filled: null stays under the input's own key and is not counted.
      {R"({"0":null,"1":{"url":"b"}})", R"({"0":null,"1":null})", 0},
      {R"({"0":{"url":"a"},"-1":{"url":"x"},"1.5":5})", R"({"-1":{"url":"x"},"1.5":5,"0":{"url":"a"}})", 1},
  };
  for (const auto& [input, expected, count] : cases) {
    StreamConfig conf;
    ASSERT_TRUE(conf.load_json_conf({{"input", Value::parse(input)}, {"output", Value::object()}}));
    EXPECT_EQ(conf.get_json_conf("input").dump(), Value::parse(expected).dump()) << input;
    EXPECT_EQ(conf.nb_inputs, count) << input;
  }
}

TEST_F(StreamConfigTest, NormalisesOutputs) {
  const std::string uploads = std::filesystem::absolute(Config::UPLOAD_DIRECTORY).string();
  const std::pair<std::string, std::string> cases[] = {
      {R"({"protocol":"rtmp","server":"s","port":1935,"app":"/live","playpath":"//cam1"})",
       R"({"protocol":"rtmp","server":"s","port":1935,"app":"live","playpath":"cam1"})"},
      {R"({"protocol":"rtmp","server":"s","port":1935,"playpath":"cam1"})", ""},
      {R"({"protocol":"rtsp","hostname":"h","port":554,"path":"/a/b"})",
       R"({"protocol":"rtsp","hostname":"h","port":554,"path":"a/b"})"},
      {R"({"protocol":"file","filename":"/tmp/x/rec.ts"})",
       fmt::format(R"({{"protocol":"file","filename":"rec.ts","path":"{}"}})", uploads)},
      {R"({"protocol":"file","filename":"r.ts","path":"/a//b/./../c/"})",
       R"({"protocol":"file","filename":"r.ts","path":"/a/c"})"},
      {R"({"protocol":"http","filename":"a/b.ts"})", R"({"protocol":"http","filename":"b.ts"})"},
      {R"({"protocol":"hls","playlist_name":"a/b/index.m3u8"})", R"({"protocol":"hls","playlist_name":"index.m3u8"})"},
      {R"({"protocol":"udp","hostname":"h","port":""})", ""},
      {R"({"protocol":"RTP","hostname":"h","port":"5"})", R"({"protocol":"RTP","hostname":"h","port":"5"})"},
      {R"("text")", ""},
  };
  for (const auto& [output, expected] : cases) {
    const Value document = loaded(fmt::format(R"({{"input":{{}},"output":{{"0":{}}}}})", output));
    EXPECT_EQ(document["output"].dump(), expected.empty() ? "{}" : "{\"0\":" + expected + "}") << output;
  }
}

TEST_F(StreamConfigTest, RaisesForAnHlsOutputThatCannotBe) {
  const auto load = [](const char* output) {
    StreamConfig conf;
    conf.load_json_conf({{"input", Value::object()}, {"output", Value::parse(output)}});
  };
  EXPECT_THROW(load(R"({"1":{"protocol":"hls","playlist_name":"a"}})"), AssertionError);
  EXPECT_THROW(load(R"({"a":{"protocol":"hls","playlist_name":"a"}})"), ValueError);
  EXPECT_THROW(load(R"({"0":{"protocol":"hls"}})"), KeyError);
  EXPECT_THROW(load(R"({"0":{"protocol":"rtmp","server":"s","port":1,"app":5,"playpath":"p"}})"), AttributeError);
  enable_assertions(false);
  EXPECT_NO_THROW(load(R"({"a":{"protocol":"hls","playlist_name":"a"}})"));
  enable_assertions(true);
}

TEST_F(StreamConfigTest, AppliesTheProfileButKeepsTheStreamsOwn) {
  world.add_profile(12, Value::parse(R"({"version":1,"video":{"codec":"x","map":"p"},"audio":null,"extra":1})"));
  const Value document = loaded(R"({"id":3,"profile":"12","input":{},"output":{},"video":{"map":"m","crf":9},
                                    "audio":{"map":"a","codec":"old"}})");
  EXPECT_EQ(document["id"], 3);
  EXPECT_EQ(document["extra"], 1);
  EXPECT_EQ(document["video"].dump(),
            R"({"codec":"x","map":"m","cvdelogo":{"buffer_queue_size":"","filename":null},"delogo":null})");
  EXPECT_EQ(document["audio"].dump(), R"({"map":"a"})");
  EXPECT_EQ(document["subtitle"].dump(), R"({"map":null})");
}

TEST_F(StreamConfigTest, ReportsProfilesThatCannotBeApplied) {
  Value form = Value::parse(R"({"input":{},"output":{}})");
  for (const auto& [profile, message] : {std::pair("x12", "Invalid profile ID x12"),
                                         {"9", "There is no profile 9"},
                                         {"9223372036854775808", "There is no profile 9223372036854775808"}}) {
    StreamConfig conf;
    form["profile"] = profile;
    EXPECT_FALSE(conf.load_json_conf(form));
    EXPECT_EQ(conf.get_error_msg(), message);
  }
}

TEST_F(StreamConfigTest, GivesTheAddressesOfItsOutputs) {
  const auto urls = [](const Value& changes) {
    Value output = {
        {"protocol", "rtmp"}, {"server", "a.example"}, {"port", 1935}, {"app", "live"}, {"playpath", "cam"}};
    output.update(changes);
    StreamConfig conf;
    EXPECT_TRUE(conf.load_json_conf({{"id", 5}, {"input", Value::object()}, {"output", {{"0", output}}}}));
    EXPECT_TRUE(conf.get_output_urls("h", std::set<std::string>{"x"}).empty());
    return conf.get_output_urls("192.0.2.10:8081");
  };
  const std::pair<Value, const char*> cases[] = {
      {{{"protocol", "hls"}, {"playlist_name", "live feed.m3u8"}}, "http://192.0.2.10:8080/5/live%20feed.m3u8"},
      {{{"protocol", "http"}, {"filename", "\u00e9.ts"}}, "http://192.0.2.10:8081/stream/5/%C3%A9.ts"},
      {{{"protocol", "udp"}, {"hostname", "239.0.0.1"}, {"port", 1234}}, "udp://239.0.0.1:1234"},
      {{{"protocol", "file"}, {"filename", "a.ts"}, {"path", "/srv/rec"}}, "/srv/rec/a.ts"},
      {{{"port", "1935"}}, "rtmp://a.example:1935/live/cam"},
      {{{"server", "::1"}}, "rtmp://[::1]:1935/live/cam"},
      {{{"app", "a/b"}, {"playpath", "c/d?key=x&y=z"}}, "rtmp://a.example:1935/a/b/c/d?key=x&y=z"},
      {{{"username", "u"}, {"password", "p:@w"}}, "rtmp://u:p:@w@a.example:1935/live/cam"},
      {{{"username", "u"}, {"password", nullptr}}, "rtmp://u@a.example:1935/live/cam"},
      {{{"username", ""}, {"password", ""}}, "rtmp://a.example:1935/live/cam"},
  };
  for (const auto& [output, url] : cases) EXPECT_EQ(urls(output), std::vector<std::string>{url});
  for (const Value& output :
       {Value{{"protocol", "rtsp"}, {"hostname", "h"}, {"path", "x"}}, Value{{"server", 5}}, Value{{"server", "a b"}},
        Value{{"server", "a/../b"}}, Value{{"server", "evil@host"}}, Value{{"port", 0}}, Value{{"port", 65536}},
        Value{{"port", "19x"}}, Value{{"app", ""}}, Value{{"playpath", "a b"}}, Value{{"playpath", "a\nb"}},
        Value{{"username", "a:b"}}, Value{{"username", "u"}, {"password", "a/b"}}})
    EXPECT_TRUE(urls(output).empty()) << output;
}

TEST_F(StreamConfigTest, RefusesToGrowBeyondWhatCanBeReadAgain) {
  Value copies = Value::object();
  copies["0"] = {{"url", "a"}, {"options", std::string(60'000, 'x')}};
  for (int i = 1; i < 30; ++i) copies[std::to_string(i)] = {{"url", "b"}};
  Value many = Value::object();
  for (int i = 0; i <= 500; ++i) many[std::to_string(i)] = {{"url", "b"}};
  for (const Value& input : {copies, many}) {
    StreamConfig conf;
    EXPECT_FALSE(conf.load_json_conf({{"input", input}, {"output", Value::object()}}));
    EXPECT_TRUE(conf.get_error_msg().starts_with("Invalid ")) << conf.get_error_msg();
  }
}

}  // namespace
}  // namespace weir
