#pragma once

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

namespace weir {

// What an input of a document may be: the transcoder's command refuses the rest, and so do forms.

/// Protocols of an input's URL.
inline constexpr auto input_protocols = std::to_array<std::string_view>(
    {"file",  "http", "https", "udp", "rtp",  "rtmp", "rtmps", "rtmpt", "rtmpe", "rtsp",
     "rtsps", "tcp",  "tls",   "srt", "rist", "mms",  "mmsh",  "mmst",  "ftp",   "sftp"});

/// Formats whose address is no file but a filter graph or the name of a device.
inline constexpr auto device_input_formats =
    std::to_array<std::string_view>({"lavfi", "v4l2", "video4linux2", "alsa", "pulse", "x11grab", "fbdev", "kmsgrab",
                                     "jack", "oss", "openal", "iec61883", "libdc1394", "decklink"});

/// Settings of a reader that a document may use. A list of what is allowed, for some of FFmpeg's options write files.
inline constexpr auto input_reader_options = std::to_array<std::string_view>({"analyzeduration",
                                                                              "buffer_size",
                                                                              "ch_layout",
                                                                              "channels",
                                                                              "connect_timeout",
                                                                              "cookies",
                                                                              "err_detect",
                                                                              "fflags",
                                                                              "fifo_size",
                                                                              "flags",
                                                                              "framerate",
                                                                              "headers",
                                                                              "http_proxy",
                                                                              "ignore_loop",
                                                                              "latency",
                                                                              "listen",
                                                                              "live_start_index",
                                                                              "localaddr",
                                                                              "loop",
                                                                              "max_delay",
                                                                              "max_reload",
                                                                              "mode",
                                                                              "multiple_requests",
                                                                              "overrun_nonfatal",
                                                                              "passphrase",
                                                                              "pattern_type",
                                                                              "pbkeylen",
                                                                              "pixel_format",
                                                                              "pkt_size",
                                                                              "probesize",
                                                                              "protocol_whitelist",
                                                                              "reconnect",
                                                                              "reconnect_at_eof",
                                                                              "reconnect_delay_max",
                                                                              "reconnect_on_network_error",
                                                                              "reconnect_streamed",
                                                                              "referer",
                                                                              "reorder_queue_size",
                                                                              "rtbufsize",
                                                                              "rtsp_flags",
                                                                              "rtsp_transport",
                                                                              "rw_timeout",
                                                                              "sample_rate",
                                                                              "scan_all_pmts",
                                                                              "seekable",
                                                                              "sources",
                                                                              "start_number",
                                                                              "streamid",
                                                                              "strict",
                                                                              "threads",
                                                                              "timeout",
                                                                              "tls_verify",
                                                                              "ttl",
                                                                              "use_wallclock_as_timestamps",
                                                                              "user_agent",
                                                                              "video_size"});

/// Those that only the transcoder knows, not a probe.
inline constexpr auto input_adjustment_options =
    std::to_array<std::string_view>({"itsoffset", "ss", "thread_queue_size"});

template <std::size_t N>
constexpr bool holds(const std::array<std::string_view, N>& list, std::string_view text) {
  return std::ranges::find(list, text) != list.end();
}

/// The scheme of "scheme://…" in lower case; empty when the text has no such form: it is a local path then.
std::string get_url_scheme(std::string_view url);

}  // namespace weir
