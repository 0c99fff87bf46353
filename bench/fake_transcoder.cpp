// A transcoder that does nothing but talk: a description at the start, then two progress lines a second. Its phase
// follows from its process id, so that many of them are spread over the second.

#include <unistd.h>
#include <cstdio>
#include <cstring>
#include <ctime>

int main() {
  const char description[] =
      "Input #0, lavfi, from 'testsrc2':\n  Stream #0:0: Video: rawvideo, yuv420p, 320x240, 25 fps\n";
  if (write(STDERR_FILENO, description, sizeof description - 1) < 0) return 1;
  timespec pause{0, (getpid() * 7919L) % 500 * 1000000L};
  for (long tick = 0;; ++tick) {
    nanosleep(&pause, nullptr);
    pause = {0, 500000000L};
    char line[160];
    const int size = std::snprintf(line, sizeof line,
                                   "frame=%5ld fps= 25 q=28.0 size=%8ldkB time=%02ld:%02ld:%02ld.%02ld "
                                   "bitrate=2097.2kbits/s speed=1.00x    \r",
                                   tick * 12, tick * 128, tick / 7200, tick / 120 % 60, tick / 2 % 60, tick % 2 * 50);
    if (write(STDERR_FILENO, line, static_cast<size_t>(size)) < 0) return 1;
  }
}
