#include "backend/services/transcoder/transcoder_command.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "backend/collaborators/config.h"
#include "backend/services/transcoder/encoding/video_arguments.h"
#include "tests/support/test_loop.h"

namespace weir {
namespace {

using test::TestLoop;

struct Built {
  std::string problem;  ///< empty when a command was made
  std::vector<std::string> command;
  std::vector<int> list_sizes;
  std::vector<std::vector<FFmpegStreamSpecifier>> variants;
  std::optional<std::string> master;

  std::string text() const {
    std::string joined;
    for (const std::string& argument : command) joined += argument + " ";
    return joined;
  }
  bool has(const std::string& part) const { return text().find(part) != std::string::npos; }
  std::string after(const std::string& option) const {
    const auto found = std::ranges::find(command, option);
    return found == command.end() || found + 1 == command.end() ? "" : *(found + 1);
  }
};

Value good_document() {
  return {{"id", 7},
          {"input", {{"0", {{"url", "udp://127.0.0.1:1"}}}}},
          {"output", {{"0", {{"protocol", "udp"}, {"hostname", "127.0.0.1"}, {"port", 2}}}}}};
}

Built build(const Value& form, int input_index = 0) {
  TestLoop loop;
  Error handler;
  JsonConf conf;
  EXPECT_TRUE(conf.load_json_conf(good_document()));
  EXPECT_TRUE(conf.load_json_conf(form)) << conf.get_error_msg();
  TranscoderCommand builder(conf, input_index, &handler);
  const bool made = loop.run(builder.generate_command());
  EXPECT_EQ(made, handler.get_error_msg().empty());
  return {handler.get_error_msg(), builder.command, builder.hls_list_sizes, builder.hls_variants,
          builder.hls_master_playlist};
}

TEST(TranscoderCommandTest, RefusesWhatCannotBeAndSaysWhy) {
  struct Case {
    Value form;
    const char* reason;
  };
  const Case cases[] = {
      {{{"input", Value::object()}}, "The stream has no input"},
      {{{"input.0.url", ""}}, "\"input.0.url\" is missing"},
      {{{"input.0.url", "a\nb"}}, "\"input.0.url\" holds control characters"},
      {{{"input.0.url", "tee://x"}}, "tee://x: the protocol \"tee\" is not for inputs"},
      {{{"input.0.url", "pipe://u:secret@0"}}, "pipe://u:***@0: the protocol \"pipe\" is not for inputs"},
      {{{"input.0.format", "-y"}}, "\"input.0.format\" cannot be \"-y\""},
      {{{"input.0.options", {{"report", "1"}}}}, "\"input.0.options.report\" is no option that an input may set"},
      {{{"input.0.options", "x"}}, "\"input.0.options\" has to be a mapping"},
      {{{"input.0.url", "sine,zmq"}, {"input.0.format", "lavfi"}}, "The filter \"zmq\" is not for inputs"},
      {{{"output", Value::object()}}, "The stream has no output"},
      {{{"output.0.port", 70000}}, "\"output.0.port\" has to be a number from 1 to 65535"},
      {{{"output.0.protocol", "gopher"}},
       "\"output.0.protocol\" \"gopher\" is not supported: use rtmp, rtsp, hls, udp, rtp, tcp or file"},
      {{{"output.0.protocol", "http"}}, "\"output.0.filename\" is missing: an \"http\" output is published under it"},
      {{{"output.0.protocol", "rtmp"}}, "\"output.0.server\" has to be a host name or an address"},
      {{{"output.1", {{"protocol", "hls"}, {"playlist_name", "a.m3u8"}}}},
       "\"output.1.protocol\" can be \"hls\" for output 0 only"},
      {{{"output.0.protocol", "hls"}}, "\"output.0.playlist_name\" has to be a name that ends in .m3u8"},
      {{{"output.0.rendition", 1}}, "There is no rendition 1"},
      {{{"output.0", {{"protocol", "file"}, {"filename", ".."}}}},
       "\"output.0.filename\" has to be the name of a file"},
      {{{"input.0.url", "/srv/./a.ts"}, {"output.0", {{"protocol", "file"}, {"filename", "a.ts"}, {"path", "/srv"}}}},
       "The file /srv/a.ts is both input and output"},
      {{{"video.codec", "none"}, {"audio.codec", "none"}}, "Neither picture nor sound: both codecs are \"none\""},
      {{{"video.codec", "copy"}, {"video.renditions", Value::array({Value::object(), Value::object()})}},
       "\"video.renditions\" need an encoder, the codec is \"copy\""},
      {{{"video.renditions", {{"0", {{"width", 641}}}}}}, "\"video.renditions.0.width\" has to be even"},
      {{{"video.bitrate", "many"}}, "\"video.bitrate\" has to be a number from 1 to 1000000, not many"},
      {{{"video.filters", "hflip,ladspa=x"}},
       "\"video.filters\" holds the filter \"ladspa\", which is not for documents"},
      {{{"video.map", "0:v:0 -y"}}, "\"video.map\" has to name a stream, such as \"v:0\""},
      {{{"video.delogo", "1:2:3"}}, "\"video.delogo\" has to be x, y, w and h"},
      {{{"audio.channels", 0}}, "\"audio.channels\" has to be a number from 1 to 16, not 0"},
  };
  for (const Case& c : cases) EXPECT_EQ(build(c.form).problem, c.reason) << c.form;
  EXPECT_EQ(build(Value::object(), 1).problem, "There is no input #1: the stream has 1 of them");
  EXPECT_EQ(build(Value::object(), -1).problem, "There is no input #-1: the stream has 1 of them");
}

TEST(TranscoderCommandTest, NeverTakesADocumentsTextForAnOptionOrAProtocol) {
  struct Case {
    const char* url;
    const char* address;
  };
  const Case cases[] = {
      {"-y", "file:-y"},
      {"-", "file:-"},
      {"concat:a|b", "file:concat:a|b"},
      {"pipe:0", "file:pipe:0"},
      {"/srv/a b's.ts", "file:/srv/a b's.ts"},
      {"file:///srv/a.ts", "file:/srv/a.ts"},
      {"HTTP://host/a?b=c://d", "http://host/a?b=c://d"},
      {"rtsp://u:p@h/x", "rtsp://u:p@h/x"},
  };
  for (const Case& c : cases) {
    const Built built = build({{"input.0.url", c.url}});
    EXPECT_EQ(built.after("-i"), c.address) << built.problem;
  }
  const Built built = build({{"output.0", {{"protocol", "file"}, {"filename", "-y.ts"}, {"path", "/srv"}}}});
  EXPECT_EQ(built.command.back(), "/srv/-y.ts");
}

TEST(TranscoderCommandTest, PutsOneCleaningBeforeAllScalingsOfALadder) {
  const Built built = build({{"video.delogo", {{"x", "1"}, {"y", 2}, {"w", 3}, {"h", 4}}},
                             {"video.cvdelogo.filename", "/a:b,c.png"},
                             {"video.deinterlace", true},
                             {"video.filters", "hflip"},
                             {"video.renditions", {{"0", {{"height", 720}}}, {"1", {{"width", 640}, {"fps", 12.5}}}}}});
  EXPECT_EQ(built.after("-filter_complex"),
            "[0:V:0]yadif=deint=interlaced,delogo=x=1:y=2:w=3:h=4,removelogo=filename=/a\\\\:b\\,c.png,hflip,split=2"
            "[s0][s1];[s0]scale=-2:720[v0];[s1]fps=12.5,scale=640:-2[v1]")
      << built.problem;
  EXPECT_EQ(built.after("-b:v:0"), "2800k");
}

TEST(TranscoderCommandTest, PublishesTheVariantsOfAnHlsLadder) {
  const Value hls = {{"protocol", "hls"}, {"playlist_name", "x/index.m3u8"}, {"segment_time", "5"}, {"list_size", "3"}};
  const Value ladder = {
      {{"height", 720}, {"audio_bitrate", 128}}, {{"height", 360}, {"audio_bitrate", 64}}, {{"height", 180}}};
  const Built built = build({{"output.0", hls}, {"video.renditions", ladder}, {"audio.bitrate", 64}, {"video.gop", 2}});
  EXPECT_EQ(built.list_sizes, (std::vector{3, 3, 3})) << built.problem;
  EXPECT_EQ(built.master, "index.m3u8");
  std::string summary;
  for (const auto& variant : built.variants) {
    for (const auto& stream : variant) summary += stream.stream_type + std::to_string(stream.stream_index) + " ";
  }
  EXPECT_EQ(summary, "v0 a0 v1 a1 v2 a1 ");
  EXPECT_EQ(built.after("-b:a:0"), "128k");
  EXPECT_EQ(built.after("-b:a:1"), "64k");
  EXPECT_EQ(built.after("-force_key_frames:v:2"), "expr:gte(t,n_forced*1.6666666666666667)");
}

TEST(TranscoderCommandTest, MakesNoMasterOverTheOnlyVariantsOwnPlaylist) {
  const Value hls = {{"protocol", "hls"}, {"playlist_name", "playlist_0.m3u8"}};
  EXPECT_EQ(build({{"output.0", hls}}).master, std::nullopt);
  const Built two = build({{"output.0", hls}, {"video.renditions", {{{"height", 720}}, {{"height", 360}}}}});
  EXPECT_EQ(two.problem, "\"playlist_name\" cannot be playlist_0.m3u8: it is the playlist of one of the renditions");
}

}  // namespace
}  // namespace weir
