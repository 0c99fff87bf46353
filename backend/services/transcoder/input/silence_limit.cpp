#include "backend/services/transcoder/input/silence_limit.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace weir {

namespace {

constexpr std::string_view limit = "8000000";  // microseconds

struct Reader {
  std::string_view scheme;
  std::string_view option;  ///< the one that FFmpeg heeds for this protocol
};

/// Tried with FFmpeg 5.1: a source that never sends, and (but for TLS, rist, mmst and ftp) one that falls silent. An
/// "rtmp" input listens when its "timeout" is set; "sftp" has a limit of its own; those that are missing here heed no
/// option.
constexpr auto readers = std::to_array<Reader>({{"udp", "timeout"},
                                                {"rtsp", "timeout"},
                                                {"rtsps", "timeout"},
                                                {"tcp", "rw_timeout"},
                                                {"tls", "rw_timeout"},
                                                {"http", "rw_timeout"},
                                                {"https", "rw_timeout"},
                                                {"rtmp", "rw_timeout"},
                                                {"rtmps", "rw_timeout"},
                                                {"srt", "rw_timeout"},
                                                {"rist", "rw_timeout"},
                                                {"mmst", "rw_timeout"},
                                                {"ftp", "rw_timeout"}});

/// Whether the document limits the silence itself. Of most protocols both options mean the same.
bool has_own_limit(const InputSource& source, const Reader& reader) {
  const bool both_mean_it = !reader.scheme.starts_with("rtmp");
  return std::ranges::any_of(source.options, [&](const auto& option) {
    return option.first == reader.option || (both_mean_it && option.first == "timeout");
  });
}

/// The option of the "rtp" protocol is part of the URL.
void limit_in_url(std::string& url) {
  if (url.find("timeout=") != std::string::npos) return;
  url += url.find('?') == std::string::npos ? '?' : '&';
  url.append("timeout=").append(limit);
}

}  // namespace

void limit_silence(InputSource& source) {
  const std::string scheme = get_network_scheme(source);
  if (scheme == "rtp") limit_in_url(source.url);
  const auto* reader = std::ranges::find(readers, scheme, &Reader::scheme);
  if (reader == readers.end() || has_own_limit(source, *reader)) return;
  source.options.emplace_back(reader->option, limit);
}

}  // namespace weir
