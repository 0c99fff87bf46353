// A transcoder that does nothing but talk: a description at the start, then two progress lines a second. Its phase
// follows from its process id, so that many of them are spread over the second. With FAKE_SEGMENTS in its environment
// it also completes an HLS segment every four seconds, beside the playlist that its arguments name; with FAKE_FIGURES
// its figures change from line to line.

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

const char* playlist_among(int argc, char** argv) {
  if (!std::getenv("FAKE_SEGMENTS")) return nullptr;
  for (int i = 1; i < argc; ++i) {
    const char* name = std::strstr(argv[i], "/playlist_0.m3u8");
    if (name && argv[i][0] == '/') return argv[i];
  }
  return nullptr;
}

void write_file(const char* path) {
  const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (file < 0 || write(file, "x", 1) != 1) std::exit(1);
  close(file);
}

void write_segment(const char* playlist, long number) {
  char path[4096];
  const int directory = static_cast<int>(std::strlen(playlist) - std::strlen("playlist_0.m3u8"));
  std::snprintf(path, sizeof path, "%.*splaylist_0_%ld.ts", directory, playlist, number);
  write_file(path);
}

}  // namespace

int main(int argc, char** argv) {
  const char description[] =
      "Input #0, lavfi, from 'testsrc2':\n  Stream #0:0: Video: rawvideo, yuv420p, 320x240, 25 fps\n";
  if (write(STDERR_FILENO, description, sizeof description - 1) < 0) return 1;
  const char* playlist = playlist_among(argc, argv);
  if (playlist) write_file(playlist);
  const bool varies = std::getenv("FAKE_FIGURES") != nullptr;
  timespec pause{0, (getpid() * 7919L) % 500 * 1000000L};
  for (long tick = 0;; ++tick) {
    nanosleep(&pause, nullptr);
    pause = {0, 500000000L};
    const long change = varies ? (tick * 7919 + getpid()) % 97 : 0;
    char line[160];
    const int size = std::snprintf(line, sizeof line,
                                   "frame=%5ld fps= 25 q=28.0 size=%8ldkB time=%02ld:%02ld:%02ld.%02ld "
                                   "bitrate=%ld.2kbits/s speed=1.%02ldx    \r",
                                   tick * 12, tick * 128, tick / 7200, tick / 120 % 60, tick / 2 % 60, tick % 2 * 50,
                                   2097 + change, change / 10);
    if (write(STDERR_FILENO, line, static_cast<size_t>(size)) < 0) return 1;
    if (playlist && (tick + getpid()) % 8 == 0) write_segment(playlist, tick / 8);
  }
}
