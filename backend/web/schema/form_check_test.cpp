#include "backend/web/schema/form_check.h"

#include <fmt/core.h>
#include <gtest/gtest.h>

#include "backend/base/bounded_json.h"
#include "backend/platform/files.h"
#include "backend/services/transcoder/transcoder.h"
#include "backend/stream/manager/stream_manager.h"
#include "backend/web/schema/command_trial.h"
#include "backend/web/schema/json_schema.h"
#include "backend/web/schema/likely_name.h"
#include "backend/web/schema/rule_tree.h"
#include "backend/web/stream_form.h"
#include "tests/support/fake_publisher.h"
#include "tests/support/fake_siblings.h"

namespace weir {
namespace {

/// Forms as a server checks them: with the real command.
class FormCheckTest : public testing::Test {
 protected:
  FormCheckTest() {
    siblings().ffmpeg = [this](const JsonConf& conf, int input, Error* handler) {
      return make_ffmpeg(conf, input, handler, publisher_);
    };
  }

  static std::string show(const FormFindings& findings) {
    std::string text;
    for (const auto& [key, message] : findings) text += fmt::format("{}: {}\n", key, message);
    return text;
  }
  // The findings; those of an accepted form are empty.
  std::string check(Async<Value> prepared) {
    try {
      form_ = world_.loop.run(std::move(prepared));
      return {};
    } catch (const FormError& refusal) {
      return show(refusal.findings());
    }
  }
  std::string post(const std::string& form) {
    return check(prepare_new_stream(manager_.stream_next_id, parse_json(form), &details_));
  }
  std::string patch(const std::string& form) {
    return check(prepare_change(manager_.streams.at(0)->conf, parse_json(form), &details_));
  }
  // A stream with the document, whatever it is.
  void store(const std::string& document) {
    replace_file(join_path(Config::STREAM_DIRECTORY, "0.conf"), document);
    ASSERT_TRUE(manager_.load_stream_from_file("0.conf"));
  }

  test::FakeSiblings world_;
  test::FakePublisher publisher_;
  StreamManager manager_;
  FormDetails details_;
  Value form_;
};

constexpr const char* good = R"({"input":{"0":{"url":"udp://239.0.0.1:1234"}},
                                 "output":{"0":{"protocol":"hls","playlist_name":"index.m3u8"}})";

std::string good_and(const std::string& members) { return std::string(good) + "," + members + "}"; }

TEST_F(FormCheckTest, EveryFaultOfAFormIsAFindingWithItsKey) {
  const std::pair<std::string, std::vector<const char*>> cases[] = {
      {R"("audio.bitrate":"fast","video.bitrate":"2M","min_speed":2,"max_speed":"1")",
       {"max_speed: no speed lies", "video.bitrate: 2M is not a whole number from 1 to 1000000 (kbit/s)",
        "audio.bitrate: fast is not a whole number from 1 to 10000 (kbit/s)"}},
      {R"("input.0.url":"htp://a")", {"input.0.url: \"htp\" is not an allowed input protocol"}},
      {R"("input.0.url":"/etc/passwd","input.0.options":{"dump":"x"})",
       {"input.0.url: /etc/passwd is not below", "input.0.options.dump: not an allowed input option"}},
      {R"("input.1":{"url":"../x"},"input.2":{"format":"mpegts"})",
       {"input.1.url: ../x is not below", "input.2.url: missing"}},
      {R"("input.switch.hours":"25","input.restart":{"weekdays":7,"minutes":"60"})",
       {"input.switch.hours: 25 is not a number from 0 to 23", "input.restart.weekdays: 7 is not",
        "input.restart.minutes: invalid number \"60\""}},
      {R"("output.1":{"protocol":"hls","playlist_name":"b.m3u8"},"output.2":{"protocol":"smoke"})",
       {"output.1.protocol: an hls output has to be output 0, not 1", "output.2.protocol: smoke is not one of"}},
      {R"("output.1":{"protocol":"rtmp","port":"99999","app":"a b"},"output.2":{"hostname":"h"})",
       {"output.1.port: 99999 is not a port", "output.1.server: missing", "output.1.playpath: missing",
        "output.1.app: not a text", "output.2.protocol: missing"}},
      {R"("video":{"codec":"x;y","deinterlace":"maybe","renditions":{"0":{"width":1}}},"max_sys_mem":"4G")",
       {"video.codec: x;y is not a name", "video.deinterlace: maybe is not yes or no", "video.renditions.0.width: 1 is",
        "max_sys_mem: 4G is not"}},
      // What only the command's builder knows.
      {R"("video.filters":"movie=x")", {"video.filters: the filter \"movie\" is not allowed"}},
      {R"("input.1":{"url":"movie=x","format":"lavfi"})", {"input.1.url: lavfi: the filter \"movie\" is not allowed"}},
      {R"("video.width":641)", {"video.width: 641 is not even"}},
      {R"("id":3,"status":"running")", {"id: \"id\" is kept", "status: \"status\" is kept"}},
  };
  for (const auto& [members, findings] : cases) {
    const std::string found = post(good_and(members));
    EXPECT_EQ(static_cast<std::size_t>(std::ranges::count(found, '\n')), findings.size()) << members << "\n" << found;
    for (const char* finding : findings) EXPECT_NE(found.find(finding), std::string::npos) << finding << "\n" << found;
  }
}

TEST_F(FormCheckTest, NumbersAndTextsAreStoredAsTheirReadersTakeThem) {
  world_.add_profile(2, Value::object());
  ASSERT_EQ(post(good_and(R"("max_sys_mem":4096,"profile":2,"label":7,
      "output.1":{"protocol":"rtmp","server":"h","port":"1935","app":"live","playpath":123})")),
            "");
  for (const char* member : {"max_sys_mem", "profile", "label"}) EXPECT_TRUE(form_.at(member).is_string()) << member;
  EXPECT_EQ(form_.at("output").at("1").at("playpath"), "123");
  ASSERT_EQ(post(good_and(R"("profile":"")")), "");
  EXPECT_EQ(form_.at("profile"), nullptr);
}

TEST_F(FormCheckTest, WhatIsUnknownIsKeptAndNamedWithWhatWasMeant) {
  ASSERT_EQ(post(good_and(R"("vidoe":{"bitrate":1},"audio.bitrat":5,"site":"x","output.0.hostname":"h")")), "");
  EXPECT_EQ(show(details_.warnings),
            "output.0.hostname: not used by hls outputs\n"
            "vidoe: unknown; kept, and not used; did you mean \"video\"?\n"
            "audio.bitrat: unknown; kept, and not used; did you mean \"bitrate\"?\n"
            "site: unknown; kept, and not used\n")
      << "in the order of the document";
  EXPECT_EQ(form_.at("vidoe").at("bitrate"), 1);
  ASSERT_EQ(post(R"({"input":{},"output":{}})"), "");
  EXPECT_EQ(details_.warnings.size(), 2U) << "a draft";
}

TEST_F(FormCheckTest, TheShownCommandHidesSecretsAndNothingElse) {
  ASSERT_EQ(post(R"({"input.0":{"url":"srt://h:9710","options":{"streamid":"read/news","passphrase":"ten-bytes-or-more",
      "latency":20}},"video.renditions":[{"height":720,"bitrate":1800},{"height":360,"audio_bitrate":64}],
      "output.0":{"protocol":"hls","playlist_name":"index.m3u8"}})"),
            "");
  std::string hidden;
  const std::vector<std::string> shown = mask_command(details_.command);
  for (std::size_t i = 1; i < shown.size(); ++i)
    if (shown[i] != details_.command[i]) hidden += fmt::format("{} {}, ", shown[i - 1], shown[i]);
  EXPECT_EQ(hidden, "-streamid ***, -passphrase ***, ");
}

TEST_F(FormCheckTest, StoredFaultsStandInTheWayOfTheirOwnMembersOnly) {
  store(R"({"label":"Old","input":{"0":{"url":"/etc/passwd"}},"audio":{"bitrate":"fast"},"min_speed":"2","tags":"x",
            "max_speed":"1","output":{"0":{"protocol":"file","filename":"a.ts","path":"/etc"}},"vidoe":{}})");
  EXPECT_EQ(patch(R"({"label":"New","video.bitrate":"2000"})"), "");
  EXPECT_TRUE(details_.warnings.empty()) << show(details_.warnings);
  EXPECT_EQ(patch(R"({"video.bitrate":"2M"})"), "video.bitrate: 2M is not a whole number from 1 to 1000000 (kbit/s)\n");
  EXPECT_NE(patch(R"({"audio.bitrate":"fast"})"), "");
  EXPECT_NE(patch(R"({"input.0.url":"/etc/passwd"})"), "");
  EXPECT_NE(patch(R"({"output.0.protocol":"file"})"), "");
  EXPECT_EQ(patch(R"({"audio.bitrate":96,"output.0.path":""})"), "") << "what mends it";
}

// Each bound of the table is that of the command's builder.
TEST_F(FormCheckTest, TheBoundsAreThoseOfWhatIsLaunched) {
  const auto launches = [&](const std::string& key, double value, const std::string& protocol) {
    JsonConf conf;
    conf.replace_document(parse_json(R"({"id":1,"input":{"0":{"url":"udp://h"}},"output":{}})"));
    const Value output = {{"protocol", protocol}, {"hostname", "h"}, {"port", 1}, {"playlist_name", "a.m3u8"}};
    EXPECT_TRUE(conf.set_json_conf("output.0", output));
    EXPECT_TRUE(conf.set_json_conf(key, static_cast<long long>(value)));
    Error reason;
    const auto builder = siblings().ffmpeg(conf, 0, &reason);
    return world_.loop.run(builder->generate_command(false));
  };
  int tried = 0;
  for (const MemberRule& rule : stream_rules()) {
    const bool number = rule.kind == MemberKind::whole || rule.kind == MemberKind::port;
    if (!number || !rule.min || rule.key.ends_with(".rendition")) continue;
    std::string key(rule.key);
    if (const std::size_t star = key.find('*'); star != std::string::npos) key.replace(star, 1, "0");
    const std::string protocol = has_protocol(rule, "hls") ? "hls" : has_protocol(rule, "udp") ? "udp" : "srt";
    const bool even = key.ends_with("width") || key.ends_with("height");
    EXPECT_TRUE(launches(key, *rule.min, protocol)) << key;
    EXPECT_TRUE(launches(key, *rule.max, protocol)) << key;
    EXPECT_FALSE(launches(key, *rule.min - (even ? 2 : 1), protocol)) << key;
    EXPECT_FALSE(launches(key, *rule.max + (even ? 2 : 1), protocol)) << key;
    ++tried;
  }
  EXPECT_GT(tried, 20);
}

}  // namespace
}  // namespace weir
