#include "backend/services/transcoder/transcoder_command.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>

#include "backend/collaborators/config.h"
#include "tests/support/fake_publisher.h"
#include "tests/support/temporary_directory.h"
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
  test::FakePublisher publisher;
  TranscoderCommand builder(conf, input_index, &handler, publisher);
  const bool made = loop.run(builder.generate_command());
  EXPECT_EQ(made, handler.get_error_msg().empty());
  return {handler.get_error_msg(), builder.command, builder.hls_list_sizes, builder.hls_variants,
          builder.hls_master_playlist};
}

TEST(TranscoderCommandTest, RefusesWhatCannotBeAndSaysWhy) {
  const std::string long_name(252, 'x');
  const std::string long_filters = "drawtext=text=" + std::string(200'000, 'x');
  Value expensive = {{"audio.filters", long_filters.substr(0, 120'000)}, {"audio.map", Value::array()}};
  for (int i = 0; i < 10; ++i) expensive["audio.map"].push_back("a:" + std::to_string(i));
  const std::pair<Value, const char*> cases[] = {
      {{{"input", Value::object()}}, "The stream has no input"},
      {{{"input.0.url", "a\nb"}}, "input.0.url: has control characters"},
      {{{"input.0.url", "tee://x"}}, "input.0.url: tee://x: \"tee\" is not an allowed input protocol"},
      {{{"input.0.url", "pipe://u:secret@0"}},
       "input.0.url: pipe://u:***@0: \"pipe\" is not an allowed input protocol"},
      {{{"input.0.format", "-y"}}, "input.0.format: -y is not a name"},
      {{{"input.0.options", {{"report", "1"}}}}, "input.0.options.report: not an allowed input option"},
      {{{"input.0.url", "sine,zmq"}, {"input.0.format", "LavFi"}},
       "input.0.url: lavfi: the filter \"zmq\" is not allowed"},
      {{{"output", Value::object()}}, "The stream has no output"},
      {{{"output.0.protocol", "gopher"}},
       "output.0.protocol: gopher is not supported; use rtmp, rtsp, hls, http, srt, udp, rtp, tcp or file"},
      {{{"output.0", {{"protocol", "http"}, {"filename", "a.mp4"}}}},
       "output.0.filename: a.mp4 can't be joined while it runs; end it in .ts, .mp3 or .aac, or set \"format\" to "
       "mpegts, mp3 or adts"},
      {{{"output.0", {{"protocol", "file"}, {"filename", ".."}}}}, "output.0.filename: .. is not a file name"},
      {{{"input.0.url", "/srv/./a.ts"}, {"output.0", {{"protocol", "file"}, {"filename", "a.ts"}, {"path", "/srv"}}}},
       "The file /srv/a.ts is both input and output"},
      {{{"video.codec", "none"}, {"audio.codec", "none"}}, "Nothing to encode: video and audio are both \"none\""},
      {{{"video.filters", "hflip,ladspa=x"}}, "video.filters: the filter \"ladspa\" is not allowed"},
      {{{"audio.filters", "asendcmd=f=/etc/x"}}, "audio.filters: /etc/x: No such file or directory"},
      {{{"video.map", "w:1"}}, "video.map: w:1 is not a stream such as v:0"},
      {{{"output.0.rendition", 9}}, "output.0.rendition: there is no rendition 9"},
      {{{"video.codec", "mpeg4"}, {"video.bitrate", 900}, {"video.max_bitrate", 800}},
       "video.max_bitrate: 800 is below bitrate (900)"},
      {{{"video.codec", "libx265"}, {"video.tune", "zerolatency"}, {"video.bframes", 1}}, "video.bframes: libx265 "},
      {{{"video.map", "0:v:0 -y"}}, "video.map: 0:v:0 -y is not a stream such as v:0"},
      {{{"output.0.hostname", std::string("::1\0x", 5)}}, "output.0.hostname: "},
      {{{"output.0.hostname", "u:secret@h"}}, "output.0.hostname: not a host name or address"},
      {{{"video.filters", long_filters}}, "The value of -filter:v:0 is too long: 200048 bytes (at most 131071)"},
      {expensive, "The command is too long: 120"},
      {{{"output.0", {{"protocol", "hls"}, {"playlist_name", long_name.substr(5) + ".m3u8"}}}},
       "output.0.playlist_name: longer than 251 bytes"},
      {{{"output.0", {{"protocol", "file"}, {"filename", long_name + ".ts"}}}},
       "output.0.filename: longer than 234 bytes"},
  };
  for (const auto& [form, reason] : cases) EXPECT_TRUE(build(form).problem.starts_with(reason)) << build(form).problem;
  EXPECT_EQ(build(Value::object(), 1).problem, "No input #1: the stream has 1");
  EXPECT_EQ(build(Value::object(), -1).problem, "No input #-1: the stream has 1");
}

TEST(TranscoderCommandTest, NeverTakesADocumentsTextForAnOptionOrAProtocol) {
  const std::pair<const char*, const char*> cases[] = {
      {"-y", "file:-y"},
      {"concat:a|b", "file:concat:a|b"},
      {"pipe:0", "file:pipe:0"},
      {"/srv/a b's.ts", "file:/srv/a b's.ts"},
      {"HTTP://host/a?b=c://d", "http://host/a?b=c://d"},
      {"rtsp://u:p@h/x", "rtsp://u:p@h/x"},
  };
  for (const auto& [url, address] : cases) EXPECT_EQ(build({{"input.0.url", url}}).after("-i"), address);
  const Built built = build({{"output.0", {{"protocol", "file"}, {"filename", "-y.ts"}, {"path", "/srv"}}}});
  EXPECT_EQ(built.command.back(), "/srv/-y.ts");
}

TEST(TranscoderCommandTest, LimitsTheSilenceOfANetworkInputAndReadsUdpAsATransportStreamWhereItsDocumentDoesNot) {
  const std::tuple<const char*, Value, const char*, const char*> cases[] = {
      {"udp://h:1", {}, "-timeout", "8000000"},
      {"UDP://h:1", {{"timeout", 5}}, "-timeout", "5"},
      {"rtsp://h/x", {}, "-timeout", "8000000"},
      {"http://h/x", {}, "-rw_timeout", "8000000"},
      {"srt://h:1", {{"mode", "listener"}}, "-rw_timeout", "8000000"},
      {"rtmp://h/a", {{"timeout", 5}}, "-rw_timeout", "8000000"},
      {"rtp://h:1", {}, "-i", "rtp://h:1?timeout=8000000"},
      {"rtp://h:1?timeout=5", {}, "-i", "rtp://h:1?timeout=5"},
      {"udp://h:1", {}, "-f", "mpegts"},
      {"udp://h:1", {}, "-scan_all_pmts", "-1"},
  };
  for (const auto& [url, options, option, value] : cases)
    EXPECT_EQ(build({{"input.0.url", url}, {"input.0.options", options}}).after(option), value) << url << options;
  const Built other = build({{"input.0.format", "h264"}});
  EXPECT_EQ(other.after("-f") + other.after("-scan_all_pmts"), "h264");
}

TEST(TranscoderCommandTest, AnInputOfAnotherProtocolTakesCommonOptionsOnlyFromTheFirst) {
  for (const auto& [url, transport] : {std::pair("/srv/a.ts", ""), {"rtsps://b/1", "tcp"}}) {
    const Value options = {{"rtsp_transport", "tcp"}, {"probesize", 5000}};
    const Built built = build(
        {{"input.0", {{"url", "rtsp://a/1"}, {"options", options}}}, {"input.1", {{"url", url}, {"options", options}}}},
        1);
    EXPECT_EQ(built.after("-rtsp_transport"), transport) << url << built.problem;
    EXPECT_EQ(built.after("-probesize"), "5000") << url;
  }
}

TEST(TranscoderCommandTest, PutsOneCleaningBeforeAllScalingsOfALadder) {
  const test::TemporaryDirectory root;
  const std::string logo = root.path() / "a:b,c.png";
  std::ofstream(logo) << "a picture";
  Config::FILE_ROOTS = {root.path()};
  const Built built = build({{"video.delogo", {{"x", "1"}, {"y", 2}, {"w", 3}, {"h", 4}}},
                             {"video.cvdelogo.filename", logo},
                             {"video.deinterlace", true},
                             {"video.filters", "hflip"},
                             {"video.renditions", {{"0", {{"height", 720}}}, {"1", {{"width", 640}, {"fps", 12.5}}}}}});
  EXPECT_EQ(built.after("-filter_complex"),
            "[0:V:0]yadif=deint=interlaced,delogo=x=1:y=2:w=3:h=4,removelogo=filename=" + root.path().string() +
                "/a\\\\:b\\,c.png,hflip,split=2[s0][s1];[s0]scale=-2:720[v0];[s1]fps=12.5,scale=640:-2[v1]")
      << built.problem;
  EXPECT_EQ(built.after("-b:v:0"), "2800k");
  EXPECT_EQ(build({{"video.max_bitrate", 700}}).after("-b:v:0"), "700k");
  Config::FILE_ROOTS.clear();
}

TEST(TranscoderCommandTest, PublishesTheVariantsOfAnHlsLadder) {
  const Value hls = {{"protocol", "hls"}, {"playlist_name", "x/index.m3u8"}, {"segment_time", "5"}, {"list_size", "3"}};
  const Value ladder = {
      {{"height", 720}, {"audio_bitrate", 128}}, {{"height", 360}, {"audio_bitrate", 64}}, {{"height", 180}}};
  const Built built = build({{"output.0", hls}, {"video.renditions", ladder}, {"audio.bitrate", 64}, {"video.gop", 2}});
  EXPECT_EQ(built.list_sizes, (std::vector{11, 11, 11})) << built.problem;
  EXPECT_EQ(built.master, "index.m3u8");
  std::string summary;
  for (const auto& variant : built.variants)
    for (const auto& stream : variant) summary += stream.stream_type + std::to_string(stream.stream_index) + " ";
  EXPECT_EQ(summary, "v0 a0 v1 a1 v2 a1 ");
  EXPECT_EQ(built.after("-b:a:0"), "128k");
  EXPECT_EQ(built.after("-b:a:1"), "64k");
  EXPECT_EQ(built.after("-force_key_frames:v:2"),
            "expr:if(lt(n_forced,2),gte(t,n_forced*1),gte(t,(n_forced-1)*1.6666666666666667))");
}

TEST(TranscoderCommandTest, ALaunchNumbersSegmentsAsThePublisherSaysAndACheckAsksNobody) {
  TestLoop loop;
  JsonConf conf;
  const Value hls = {{"protocol", "hls"}, {"playlist_name", "index.m3u8"}};
  ASSERT_TRUE(conf.load_json_conf(good_document()));
  ASSERT_TRUE(conf.load_json_conf({{"output.0", hls}, {"video.bitrate", 900}, {"audio.bitrate", 100}}));
  test::FakePublisher publisher;
  TranscoderCommand builder(conf, 0, nullptr, publisher);
  ASSERT_TRUE(loop.run(builder.generate_command()));
  builder.cleanup();
  EXPECT_FALSE(publisher.running);
  ASSERT_TRUE(loop.run(builder.generate_command(true)));
  EXPECT_EQ(*(std::ranges::find(builder.command, "-start_number") + 1), "100");
  ASSERT_TRUE(publisher.running);
  EXPECT_TRUE(publisher.running->has_fixed_segments && publisher.running->independent_segments);
  EXPECT_EQ(publisher.running->renditions.at(0).max_bitrate, 1'199'000);  // (990 + 100) kbit/s and the container
  builder.cleanup();
  EXPECT_FALSE(publisher.running);
}

TEST(TranscoderCommandTest, MakesNoMasterOverTheOnlyVariantsOwnPlaylist) {
  const Value hls = {{"protocol", "hls"}, {"playlist_name", "playlist_0.m3u8"}};
  EXPECT_EQ(build({{"output.0", hls}}).master, std::nullopt);
  const Built two = build({{"output.0", hls}, {"video.renditions", {{{"height", 720}}, {{"height", 360}}}}});
  EXPECT_EQ(two.problem, "\"playlist_name\" cannot be playlist_0.m3u8: it is the playlist of one of the renditions");
}

}  // namespace
}  // namespace weir
