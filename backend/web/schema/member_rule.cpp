#include "backend/web/schema/member_rule.h"

#include <algorithm>
#include <array>
#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>
#include <iterator>

namespace weir {

namespace {

using Kind = MemberKind;

constexpr double max_bitrate = 1'000'000;
constexpr double max_bytes = 131'071;

// clang-format off
const std::vector<MemberRule>& make_stream_rules() {
  static const std::vector<MemberRule> rules{
      // --- the stream ---
      {.key = "label", .kind = Kind::name, .title = "Label", .description = "the name in lists and in the log", .example = R"("News")", .at_once = true},
      {.key = "profile", .kind = Kind::digits, .title = "Profile", .description = "the id of the profile whose `video`, `audio` and `subtitle` replace those of the document on every load; `video.delogo`, `video.cvdelogo.filename`, `video.map`, `audio.map` and `subtitle.map` stay the stream's own", .fallback = "none", .example = R"("2")"},
      {.key = "tags", .kind = Kind::tags, .title = "Tags", .description = "at most 100 texts of at most 100 bytes, by which lists are filtered", .fallback = "none", .example = R"(["news", "hd"])", .at_once = true},
      {.key = "access", .kind = Kind::text, .title = "Access", .description = "who may watch: everybody, or whoever has a link", .choices = "open link", .fallback = "`open`", .example = R"("link")", .at_once = true},
      {.key = "min_speed", .kind = Kind::number, .title = "Lowest speed", .description = "the stream is restarted when its speed stays out of the band for more than 180 s", .unit = "x", .min = 0, .max = 1000, .fallback = "0.9", .example = "0.9"},
      {.key = "max_speed", .kind = Kind::number, .title = "Highest speed", .description = "above `min_speed`", .unit = "x", .min = 0, .max = 1000, .fallback = "1.2", .example = "1.2"},
      {.key = "max_sys_mem", .kind = Kind::digits, .title = "Memory limit", .description = "the transcoder's memory beyond which the stream is restarted", .unit = "MiB", .fallback = "by its use after the start", .example = R"("4096")"},
      {.key = "max_gpu_mem", .kind = Kind::digits, .title = "Graphics memory limit", .description = "the same for graphics memory", .unit = "MiB", .fallback = "by its use after the start", .example = R"("2048")"},
      {.key = "input", .kind = Kind::numbered, .title = "Inputs", .description = "in order of priority", .required = true},
      {.key = "input.switch", .kind = Kind::mapping, .title = "Return to a better input", .description = "when to go back to an earlier input that answers again"},
      {.key = "input.switch.minutes", .kind = Kind::timetable, .title = "Minutes", .description = "of the hours at which an earlier input is tried", .max = 59, .fallback = "0", .example = R"("0,15,30-45")"},
      {.key = "input.switch.hours", .kind = Kind::timetable, .title = "Hours", .description = "of the days", .max = 23, .fallback = "none", .example = R"("*")"},
      {.key = "input.switch.weekdays", .kind = Kind::timetable, .title = "Weekdays", .description = "0 is Monday", .max = 6, .fallback = "none", .example = R"("0-4")"},
      {.key = "input.restart", .kind = Kind::mapping, .title = "Restart", .description = "when to restart"},
      {.key = "input.restart.minutes", .kind = Kind::timetable, .title = "Minutes", .description = "of the hours at which the stream is restarted", .max = 59, .fallback = "0", .example = R"("30")"},
      {.key = "input.restart.hours", .kind = Kind::timetable, .title = "Hours", .description = "of the days", .max = 23, .fallback = "none", .example = R"("4")"},
      {.key = "input.restart.weekdays", .kind = Kind::timetable, .title = "Weekdays", .description = "0 is Monday", .max = 6, .fallback = "none", .example = R"("*")"},

      // --- inputs ---
      {.key = "input.*", .kind = Kind::mapping, .title = "Input", .description = "one source; what it does not set itself comes from input 0"},
      {.key = "input.*.url", .kind = Kind::url, .title = "URL", .description = "a URL, a local path below a file root or the upload directory, or what `format` calls for (a filter graph for `lavfi`, a device name)", .max = max_bytes, .example = R"("udp://239.0.0.1:1234")", .required = true},
      {.key = "input.*.format", .kind = Kind::word, .title = "Format", .description = "the input format, as `ffmpeg -formats` lists it", .fallback = "detected", .example = R"("mpegts")"},
      {.key = "input.*.re", .kind = Kind::flag, .title = "Real time", .description = "read at the rate of the media, not as fast as possible: for files and generated video", .fallback = "no", .example = "true"},
      {.key = "input.*.loop", .kind = Kind::loop, .title = "Repetitions", .description = "how many times to play a file again; -1 or yes: without end", .min = -1, .max = 1'000'000'000, .fallback = "0", .example = "-1"},
      {.key = "input.*.probe_timeout", .kind = Kind::number, .title = "Probe timeout", .description = "after which a probe of this input gives up", .unit = "s", .min = 0.1, .max = 3600, .fallback = "`--probe-timeout` (10)", .example = "5"},
      {.key = "input.*.options", .kind = Kind::mapping, .title = "Options", .description = "settings of the reader, from the list below", .fallback = "none", .example = R"({"fifo_size": 50000})"},

      // --- video ---
      {.key = "video", .kind = Kind::mapping, .title = "Video", .description = "how video is encoded"},
      {.key = "video.codec", .kind = Kind::word, .title = "Codec", .description = "an encoder of FFmpeg, `copy` (not re-encoded) or `none` (no video)", .fallback = "`libx264`", .example = R"("libx264")"},
      {.key = "video.bitrate", .kind = Kind::whole, .title = "Bitrate", .description = "average bit rate", .unit = "kbit/s", .min = 1, .max = max_bitrate, .fallback = "by height: 360 → 800, 480 → 1400, 720 → 2800, 1080 → 5000, more → 12000; 2500 when no height is set", .example = "2800"},
      {.key = "video.max_bitrate", .kind = Kind::whole, .title = "Highest bitrate", .description = "bound of its variation", .unit = "kbit/s", .min = 1, .max = max_bitrate, .fallback = "110 % of `bitrate`", .example = "3100"},
      {.key = "video.bufsize", .kind = Kind::whole, .title = "Rate buffer", .description = "over which `max_bitrate` holds", .unit = "kbit", .min = 1, .max = 10 * max_bitrate, .fallback = "twice `bitrate`", .example = "5600"},
      {.key = "video.crf", .kind = Kind::whole, .title = "Constant quality", .description = "in place of a fixed `bitrate`; `bitrate` is then no default, `max_bitrate` may bound it", .min = 0, .max = 63, .fallback = "none", .example = "23"},
      {.key = "video.width", .kind = Kind::whole, .title = "Width", .description = "an even number; with one of both sizes the other keeps the aspect ratio", .unit = "pixels", .min = 16, .max = 15'360, .fallback = "as the input", .example = "1280"},
      {.key = "video.height", .kind = Kind::whole, .title = "Height", .description = "an even number", .unit = "pixels", .min = 16, .max = 8640, .fallback = "as the input", .example = "720"},
      {.key = "video.fps", .kind = Kind::number, .title = "Frame rate", .description = "frames a second", .unit = "1/s", .min = 0.1, .max = 480, .fallback = "as the input", .example = "25"},
      {.key = "video.gop", .kind = Kind::number, .title = "Keyframe interval", .description = "seconds between keyframes; shortened so that a whole number of them fits an HLS segment", .unit = "s", .min = 0.04, .max = 60, .fallback = "2", .example = "2"},
      {.key = "video.preset", .kind = Kind::word, .title = "Preset", .description = "as the encoder names it", .fallback = "`veryfast` for `libx264` and `libx265`", .example = R"("veryfast")"},
      {.key = "video.tune", .kind = Kind::word, .title = "Tune", .description = "as the encoder names it", .fallback = "the encoder's", .example = R"("zerolatency")"},
      {.key = "video.profile", .kind = Kind::word, .title = "Profile", .description = "as the encoder names it", .fallback = "the encoder's", .example = R"("high")"},
      {.key = "video.level", .kind = Kind::word, .title = "Level", .description = "as the encoder names it", .fallback = "the encoder's", .example = R"("4.1")"},
      {.key = "video.bframes", .kind = Kind::whole, .title = "B-frames", .description = "between two others", .min = 0, .max = 16, .fallback = "the encoder's", .example = "2"},
      {.key = "video.refs", .kind = Kind::whole, .title = "Reference frames", .description = "that a frame may refer to", .min = 1, .max = 16, .fallback = "the encoder's", .example = "3"},
      {.key = "video.pix_fmt", .kind = Kind::word, .title = "Pixel format", .description = "as `ffmpeg -pix_fmts` lists it", .fallback = "`yuv420p`", .example = R"("yuv420p")"},
      {.key = "video.deinterlace", .kind = Kind::flag, .title = "Deinterlace", .description = "deinterlace frames marked as interlaced", .fallback = "no", .example = "true"},
      {.key = "video.filters", .kind = Kind::text, .title = "Filters", .description = "a chain of FFmpeg filters, before scaling; see [Filters](#filters)", .max = max_bytes, .fallback = "none", .example = R"("hqdn3d,eq=contrast=1.1")"},
      {.key = "video.delogo", .kind = Kind::box, .title = "Logo", .description = "blurs a logo: mapping `x`, `y`, `w`, `h`, or the text `x=10:y=10:w=100:h=40`, or `10:10:100:40`", .fallback = "none", .example = R"({"x": 10, "y": 10, "w": 100, "h": 40})"},
      {.key = "video.cvdelogo", .kind = Kind::mapping, .title = "Logo by bitmap", .description = "removes the logo that a bitmap shows (FFmpeg's `removelogo`)"},
      {.key = "video.cvdelogo.filename", .kind = Kind::text, .title = "Bitmap", .description = "a file below a file root, see [Filters](#filters)", .max = 4095, .fallback = "none", .example = R"("/srv/logos/news.png")"},
      {.key = "video.cvdelogo.buffer_queue_size", .kind = Kind::digits, .title = "Queue of the logo's removal", .description = "after which the memory limits count", .unit = "frames", .fallback = "768", .example = R"("768")"},
      {.key = "video.map", .kind = Kind::map, .title = "Video stream", .description = "which of the input's streams: `0:v:1`, `v:1`, `i:0x101`", .fallback = "the first that is not an attached picture (cover art)", .example = R"("v:0")"},
      {.key = "video.hwaccel", .kind = Kind::word, .title = "Hardware decoding", .description = "`auto`, `cuda`, `vaapi`, `qsv`, `vdpau` …", .fallback = "none", .example = R"("cuda")"},
      {.key = "video.gpu", .kind = Kind::digits, .title = "Graphics processor", .description = "for `hwaccel` and for `…_nvenc`, `…_vaapi`", .min = 0, .max = 64, .fallback = "the first", .example = R"("0")"},
      {.key = "video.renditions", .kind = Kind::ladder, .title = "Renditions", .description = "an adaptive ladder: one decode, scaled and encoded for each; at most 16, numbered from 0 without gaps", .fallback = "none"},
      {.key = "video.renditions.*", .kind = Kind::mapping, .title = "Rendition", .description = "what it does not set comes from `video`"},
      {.key = "video.renditions.*.width", .kind = Kind::whole, .title = "Width", .description = "as in `video`", .unit = "pixels", .min = 16, .max = 15'360, .example = "1280"},
      {.key = "video.renditions.*.height", .kind = Kind::whole, .title = "Height", .description = "as in `video`", .unit = "pixels", .min = 16, .max = 8640, .example = "720"},
      {.key = "video.renditions.*.bitrate", .kind = Kind::whole, .title = "Bitrate", .description = "as in `video`", .unit = "kbit/s", .min = 1, .max = max_bitrate, .example = "1800"},
      {.key = "video.renditions.*.max_bitrate", .kind = Kind::whole, .title = "Highest bitrate", .description = "not inherited beside an own `bitrate`", .unit = "kbit/s", .min = 1, .max = max_bitrate, .example = "2000"},
      {.key = "video.renditions.*.bufsize", .kind = Kind::whole, .title = "Rate buffer", .description = "not inherited beside an own `bitrate`", .unit = "kbit", .min = 1, .max = 10 * max_bitrate, .example = "3600"},
      {.key = "video.renditions.*.crf", .kind = Kind::whole, .title = "Constant quality", .description = "as in `video`", .min = 0, .max = 63, .example = "23"},
      {.key = "video.renditions.*.fps", .kind = Kind::number, .title = "Frame rate", .description = "as in `video`", .unit = "1/s", .min = 0.1, .max = 480, .example = "25"},
      {.key = "video.renditions.*.preset", .kind = Kind::word, .title = "Preset", .description = "as in `video`", .example = R"("veryfast")"},
      {.key = "video.renditions.*.tune", .kind = Kind::word, .title = "Tune", .description = "as in `video`", .example = R"("zerolatency")"},
      {.key = "video.renditions.*.profile", .kind = Kind::word, .title = "Profile", .description = "as in `video`", .example = R"("main")"},
      {.key = "video.renditions.*.level", .kind = Kind::word, .title = "Level", .description = "as in `video`", .example = R"("3.1")"},
      {.key = "video.renditions.*.bframes", .kind = Kind::whole, .title = "B-frames", .description = "as in `video`", .min = 0, .max = 16, .example = "2"},
      {.key = "video.renditions.*.refs", .kind = Kind::whole, .title = "Reference frames", .description = "as in `video`", .min = 1, .max = 16, .example = "3"},
      {.key = "video.renditions.*.audio_bitrate", .kind = Kind::whole, .title = "Audio bitrate", .description = "of the audio beside this rendition", .unit = "kbit/s", .min = 1, .max = 10'000, .fallback = "`audio.bitrate`", .example = "96"},

      // --- audio and subtitles ---
      {.key = "audio", .kind = Kind::mapping, .title = "Audio", .description = "how audio is encoded"},
      {.key = "audio.codec", .kind = Kind::word, .title = "Codec", .description = "an encoder of FFmpeg, `copy` or `none`", .fallback = "`aac`", .example = R"("aac")"},
      {.key = "audio.bitrate", .kind = Kind::whole, .title = "Bitrate", .description = "of each audio stream", .unit = "kbit/s", .min = 1, .max = 10'000, .fallback = "128", .example = "128"},
      {.key = "audio.sample_rate", .kind = Kind::whole, .title = "Sample rate", .description = "of the encoded audio", .unit = "Hz", .min = 4000, .max = 192'000, .fallback = "as the input", .example = "48000"},
      {.key = "audio.channels", .kind = Kind::whole, .title = "Channels", .description = "of the encoded audio", .min = 1, .max = 16, .fallback = "2", .example = "2"},
      {.key = "audio.filters", .kind = Kind::text, .title = "Filters", .description = "a chain of FFmpeg filters; see [Filters](#filters)", .max = max_bytes, .fallback = "none", .example = R"("volume=0.5")"},
      {.key = "audio.map", .kind = Kind::map, .title = "Audio streams", .description = "which of the input's streams, a list of texts for several languages", .fallback = "`a:0`", .example = R"(["a:0", "a:1"])"},
      {.key = "subtitle", .kind = Kind::mapping, .title = "Subtitles", .description = "they go into file outputs only"},
      {.key = "subtitle.codec", .kind = Kind::word, .title = "Codec", .description = "an encoder of FFmpeg, `copy` or `none`", .fallback = "`none`", .example = R"("copy")"},
      {.key = "subtitle.map", .kind = Kind::map, .title = "Subtitle streams", .description = "which of the input's streams, a list of texts for several", .fallback = "`s:0`", .example = R"("s:0")"},

      // --- outputs ---
      {.key = "output", .kind = Kind::numbered, .title = "Outputs", .description = "all share one encode", .required = true},
      {.key = "output.*", .kind = Kind::mapping, .title = "Output", .description = "where the stream goes"},
      {.key = "output.*.protocol", .kind = Kind::text, .title = "Protocol", .description = "how it is sent; `hls` for output 0 only", .choices = output_protocols, .example = R"("hls")", .required = true},
      {.key = "output.*.rendition", .kind = Kind::whole, .title = "Rendition", .description = "which rendition of a ladder this output carries (`hls` carries all)", .min = 0, .max = 100, .fallback = "0", .example = "1", .protocols = "rtmp rtsp udp rtp tcp srt file http"},
      {.key = "output.*.playlist_name", .kind = Kind::text, .title = "Playlist", .description = "a file name that ends in `.m3u8` and does not start with a dot; per rendition N there is `playlist_N.m3u8`, and this is the master playlist that lists them. With one rendition it may be `playlist_0.m3u8` itself: no master is made then", .max = 251, .example = R"("index.m3u8")", .protocols = "hls", .required = true},
      {.key = "output.*.segment_time", .kind = Kind::number, .title = "Segment length", .description = "of each segment but the first, which is short", .unit = "s", .min = 1, .max = 60, .fallback = "4", .example = "4", .protocols = "hls"},
      {.key = "output.*.list_size", .kind = Kind::whole, .title = "Playlist length", .description = "segments that viewers see", .min = 1, .max = 1000, .fallback = "6", .example = "6", .protocols = "hls"},
      {.key = "output.*.server", .kind = Kind::host, .title = "Server", .description = "a host name or address", .example = R"("live.example.org")", .protocols = "rtmp", .required = true},
      {.key = "output.*.hostname", .kind = Kind::host, .title = "Host", .description = "a host name or address; an SRT listener's default is 0.0.0.0, all interfaces", .example = R"("239.0.0.1")", .protocols = "rtsp udp rtp tcp srt", .required = true},
      {.key = "output.*.port", .kind = Kind::port, .title = "Port", .description = "of the receiver, or of the SRT listener", .min = 1, .max = 65'535, .example = "1935", .protocols = "rtmp rtsp udp rtp tcp srt", .required = true},
      {.key = "output.*.app", .kind = Kind::name, .title = "Application", .description = "may hold slashes, and a query at its end", .max = 4095, .forbidden = "#\\\"", .example = R"("live")", .protocols = "rtmp", .required = true},
      {.key = "output.*.playpath", .kind = Kind::name, .title = "Stream key", .description = "may hold slashes, and a query at its end", .max = 4095, .forbidden = "#\\\"", .example = R"("channel1")", .protocols = "rtmp", .required = true, .secret = true},
      {.key = "output.*.username", .kind = Kind::name, .title = "User", .description = "who publishes", .max = 1000, .forbidden = "/?#:@", .fallback = "none", .example = R"("u")", .protocols = "rtmp"},
      {.key = "output.*.password", .kind = Kind::name, .title = "Password", .description = "left out without a `username`", .max = 1000, .forbidden = "/?#", .fallback = "none", .example = R"("p")", .protocols = "rtmp", .secret = true},
      {.key = "output.*.path", .kind = Kind::name, .title = "Path", .description = "under which the server publishes it", .max = 4095, .forbidden = "#\\\"", .example = R"("cam1")", .protocols = "rtsp", .required = true},
      {.key = "output.*.transport", .kind = Kind::text, .title = "Transport", .description = "of the packets", .choices = "tcp udp", .fallback = "`tcp`", .example = R"("tcp")", .protocols = "rtsp"},
      {.key = "output.*.ttl", .kind = Kind::whole, .title = "Time to live", .description = "of multicast packets, in networks", .min = 1, .max = 255, .fallback = "the system's", .example = "4", .protocols = "udp rtp"},
      {.key = "output.*.mode", .kind = Kind::text, .title = "Mode", .description = "whether it calls its receiver or waits for it, see [SRT](#srt)", .choices = "caller listener", .fallback = "`caller`", .example = R"("caller")", .protocols = "srt"},
      {.key = "output.*.latency", .kind = Kind::whole, .title = "Latency", .description = "the larger one of both ends counts", .unit = "ms", .min = 0, .max = 60'000, .fallback = "120", .example = "200", .protocols = "srt"},
      {.key = "output.*.streamid", .kind = Kind::text, .title = "Stream id", .description = "without blanks; a caller tells it its listener", .min = 1, .max = 512, .forbidden = " ", .fallback = "none", .example = R"("publish/news")", .protocols = "srt"},
      {.key = "output.*.passphrase", .kind = Kind::text, .title = "Passphrase", .description = "without blanks; both ends have the same one", .min = 10, .max = 79, .forbidden = " ", .fallback = "none: not encrypted", .example = R"("ten-bytes-or-more")", .protocols = "srt", .secret = true},
      {.key = "output.*.filename", .kind = Kind::text, .title = "File name", .description = "by its ending: ts, m2ts, mp4, m4v, mov, m4a, mkv, webm, flv, mp3, aac, ogg, wav. An existing file is renamed with its time first", .max = 234, .example = R"("news.mp4")", .protocols = "file", .required = true},
      {.key = "output.*.path", .kind = Kind::text, .title = "Directory", .description = "of the file, below a file root or the upload directory", .max = 4095, .fallback = "the upload directory", .example = R"("/srv/recordings")", .protocols = "file"},
      {.key = "output.*.filename", .kind = Kind::text, .title = "Name", .description = "ends in `.ts`, `.mp3` or `.aac` unless `format` is set; no two outputs have the same. It is published at `/stream/{id}/{filename}`", .max = 255, .example = R"("live.ts")", .protocols = "http", .required = true},
      {.key = "output.*.format", .kind = Kind::word, .title = "Format", .description = "when the name's ending does not tell", .example = R"("mp4")", .protocols = "file"},
      {.key = "output.*.format", .kind = Kind::text, .title = "Format", .description = "when the name's ending does not tell", .choices = "mpegts mp3 adts", .example = R"("mpegts")", .protocols = "http"},
  };
  return rules;
}
// clang-format on

bool starts_section(std::string_view key, std::string_view section) {
  return key.starts_with(section) && (key.size() == section.size() || key[section.size()] == '.');
}

std::vector<MemberRule> make_profile_rules() {
  std::vector<MemberRule> rules{
      {.key = "name",
       .kind = Kind::text,
       .title = "Name",
       .description = "under which it is chosen",
       .max = 1000,
       .example = R"("720p H.264")",
       .required = true},
      {.key = "version",
       .kind = Kind::whole,
       .title = "Version",
       .description = "for its author",
       .min = 0,
       .max = 1e9,
       .fallback = "none",
       .example = "1"},
  };
  std::ranges::copy_if(make_stream_rules(), std::back_inserter(rules), [](const MemberRule& rule) {
    constexpr std::array own{"input", "output", "profile", "label"};
    return std::ranges::none_of(own, [&](const char* section) { return starts_section(rule.key, section); });
  });
  return rules;
}

}  // namespace

std::span<const MemberRule> stream_rules() { return make_stream_rules(); }

std::span<const MemberRule> profile_rules() {
  static const std::vector<MemberRule> rules = make_profile_rules();
  return rules;
}

std::vector<std::string> split_words(std::string_view text) {
  std::vector<std::string> words;
  boost::split(words, text, boost::is_any_of(" "));
  return words;
}

bool has_protocol(const MemberRule& rule, std::string_view protocol) {
  if (rule.protocols.empty()) return true;
  const std::vector<std::string> words = split_words(rule.protocols);
  return std::ranges::find(words, protocol) != words.end();
}

}  // namespace weir
