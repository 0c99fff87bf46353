#pragma once

#include <fmt/core.h>

#include <filesystem>
#include <fstream>

/// Writes the documents of streams 0 to `streams` - 1, each with a UDP input and an HLS output, into `directory`.
inline void write_stream_files(const std::filesystem::path& directory, int streams) {
  for (int i = 0; i < streams; ++i) {
    std::ofstream(directory / fmt::format("{}.conf", i))
        << fmt::format(R"({{"label":"Channel {}","status":"stopped","input":{{"0":{{"url":"udp://127.0.0.1:{}"}}}},)"
                       R"("output":{{"0":{{"protocol":"hls","playlist_name":"index.m3u8"}}}}}})",
                       i, 20000 + i);
  }
}
