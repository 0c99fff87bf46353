// A stream of about 4 Mbit/s for the benches of what viewers cost.
#pragma once

#include <fmt/core.h>
#include <sys/resource.h>

#include <cstdlib>
#include <string>

#include "bench/loopback_server.h"

namespace weir::bench {

inline void make_source(const std::string& file) {
  const std::string command = fmt::format(
      "ffmpeg -v error -y -f lavfi -i testsrc2=size=1280x720:rate=25 -f lavfi -i sine=sample_rate=48000 -t 30 -g 50 "
      "-c:v libx264 -preset ultrafast -b:v 3700k -minrate 3700k -maxrate 3700k -bufsize 3700k -x264-params "
      "nal-hrd=cbr -c:a aac -b:a 128k -f mpegts '{}'",
      file);
  if (std::system(command.c_str()) != 0) std::exit(1);
}

/// Adds a stream that copies the file at its own pace to the output, and waits until the target answers.
inline void start_copy(const std::string& source, const std::string& output, const std::string& target) {
  request("POST", "/api/streams",
          fmt::format(R"({{"input.0": {{"url": "{}", "re": true, "loop": -1}}, "video.codec": "copy",)"
                      R"("audio.codec": "copy", "output": {{"0": {}}}}})",
                      source, output));
  request("POST", "/api/streams/0/start");
  for (int i = 0; i < 500 && !request("HEAD", target).starts_with("HTTP/1.1 200"); ++i)
    std::this_thread::sleep_for(20ms);
}

/// Each viewer takes a descriptor.
inline void raise_descriptor_limit() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

inline void print_rounds(const std::vector<double>& times, const std::vector<double>& cpus) {
  fmt::print(
      "{} rounds: median {:.2f} ms, 99 % {:.2f} ms, longest {:.2f} ms; most CPU until an answer {:.2f} ms, 99 % {:.2f} "
      "ms\n",
      times.size(), times[times.size() / 2], times[times.size() * 99 / 100], times.back(), cpus.back(),
      cpus[cpus.size() * 99 / 100]);
}

}  // namespace weir::bench
