#include "backend/web/publishing/transport_stream.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

#include "tests/support/transport_packets.h"

namespace weir {
namespace {

using test::counter_errors;
using test::is_discontinuous;
using test::packets_of;

constexpr int map_pid = 0x1000;
constexpr int video_pid = 0x100;
constexpr int audio_pid = 0x101;
constexpr char h264 = 0x1b;
constexpr char aac = 0x0f;

std::string big_endian(std::uint32_t number, int bytes) {
  std::string text;
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) text += static_cast<char>(number >> shift);
  return text;
}

/// A section of version 0 with its CRC.
std::string section(int table, const std::string& body) {
  std::string text = big_endian(static_cast<std::uint32_t>(table), 1) +
                     big_endian(0xb000 + static_cast<std::uint32_t>(body.size()) + 9, 2) + big_endian(1, 2) +
                     std::string{'\xc1', 0, 0} + body;
  return text + big_endian(section_crc(text), 4);
}
std::string map(const std::vector<std::pair<char, int>>& streams, std::size_t descriptors = 0) {
  std::string body =
      big_endian(0xe000 + video_pid, 2) + big_endian(0xf000 + static_cast<std::uint32_t>(descriptors), 2);
  body += std::string(descriptors, 'd');
  for (const auto& [type, pid] : streams)
    body += type + big_endian(0xe000 + static_cast<std::uint32_t>(pid), 2) + big_endian(0xf000, 2);
  return section(2, body);
}

/// Sends as one run of a transcoder does: its counters begin at 0. The begin of one ends the one before.
class Transcoder {
 public:
  explicit Transcoder(TransportStream& stream) : stream_(stream) { stream_.begin_run(); }

  void send_table(int pid, std::string text) {
    text.insert(text.begin(), '\0');
    for (bool first = true; !text.empty(); first = false) {
      send(pid, first, "", text.substr(0, 184));
      text.erase(0, 184);
    }
  }
  void send_tables(const std::vector<std::pair<char, int>>& streams, std::size_t descriptors = 0) {
    send_table(0, section(0, big_endian(1, 2) + big_endian(0xe000 + map_pid, 2)));
    send_table(map_pid, map(streams, descriptors));
  }
  void send_keyframe() { send(video_pid, true, std::string("\x50") + std::string(6, '\0'), "key"); }
  /// A packet; `flags` are what the adaptation field holds, which is there when they are not empty.
  void send(int pid, bool starts, const std::string& flags, const std::string& payload) {
    int& counter = counters_[pid];
    std::string packet = std::string(1, 0x47) + big_endian(static_cast<std::uint32_t>((starts ? 0x4000 : 0) | pid), 2);
    const std::size_t stuffing = 184 - payload.size();
    if (!payload.empty()) ++counter;
    packet += static_cast<char>((stuffing > 0 ? 0x20 : 0) | (payload.empty() ? 0 : 0x10) | counter % 16);
    if (stuffing > 0) packet += static_cast<char>(stuffing - 1);
    packet += flags.empty() && stuffing > 1 ? std::string(1, '\0') : flags;
    packet.resize(188 - payload.size(), '\xff');
    stream_.add(packet + payload, chunk);
  }

  LiveChunk chunk;

 private:
  TransportStream& stream_;
  std::map<int, int> counters_;
};

std::vector<int> map_versions(std::string_view bytes) {
  std::vector<int> versions;
  for (const TsPacket& packet : packets_of(bytes))
    if (packet.pid() == map_pid && packet.starts_unit()) versions.push_back(packet.text()[10] >> 1 & 31);
  return versions;
}

TEST(TransportStreamTest, CountersRiseOverRunsAndTheSeamIsMarkedOncePerStream) {
  TransportStream stream;
  std::string received;
  for (int i = 0; i < 3; ++i) {
    Transcoder run(stream);
    run.send_tables({{h264, video_pid}, {aac, audio_pid}});
    run.send(video_pid, false, std::string("\x10") + std::string(6, '\0'), "");  // a clock without payload
    run.send_keyframe();
    run.send(audio_pid, true, "", std::string(184, 'a'));  // without an adaptation field
    for (int k = 0; k < 20; ++k) run.send(video_pid, false, "", std::string(184, 'v'));
    run.send_keyframe();
    received += run.chunk.bytes;
    stream.add(std::string(received.end() - 188, received.end() - 88), run.chunk);  // breaks off within a packet
  }
  EXPECT_EQ(counter_errors(packets_of(received)), 0);
  std::map<int, int> marks;
  for (const TsPacket& packet : packets_of(received))
    if (is_discontinuous(packet)) ++marks[packet.pid()];
  EXPECT_EQ(marks, (std::map<int, int>{{video_pid, 2}, {audio_pid, 2}}));
  EXPECT_EQ(std::ranges::count(packets_of(received), 0, &TsPacket::pid), 3);
  EXPECT_EQ(map_versions(received), (std::vector{0, 0, 0}));
}

TEST(TransportStreamTest, MarksTheFirstClockOfARunWhereItComesLater) {
  TransportStream stream;
  Transcoder(stream).send_tables({{h264, video_pid}});
  Transcoder(stream).send(video_pid, true, "\x40", "key");
  Transcoder run(stream);
  run.send(video_pid, true, "\x40", "key");
  run.send(video_pid, true, "\x40", "key");
  run.send_keyframe();
  run.send_keyframe();
  std::vector<bool> marked;
  for (const TsPacket& packet : packets_of(run.chunk.bytes)) marked.push_back(is_discontinuous(packet));
  EXPECT_EQ(marked, (std::vector{true, false, true, false}));
}

TEST(TransportStreamTest, TheMapsVersionChangesWithItsContentAndOnlyThen) {
  TransportStream stream;
  std::string received;
  const std::vector<std::pair<char, int>> maps[] = {
      {{h264, video_pid}}, {{h264, video_pid}}, {{aac, audio_pid}}, {{aac, audio_pid}}, {{h264, video_pid}}};
  for (const auto& streams : maps) {
    Transcoder run(stream);
    run.send_tables(streams, 400);  // of several packets
    std::string damaged = map({{aac, audio_pid + 1}});
    damaged[12] ^= 1;
    run.send_table(map_pid, damaged);
    received += run.chunk.bytes;
  }
  EXPECT_EQ(map_versions(received), (std::vector{0, 0, 1, 1, 2}));
  EXPECT_EQ(counter_errors(packets_of(received)), 0);
  TransportStream again;
  LiveChunk chunk;
  again.add(received, chunk);
  EXPECT_EQ(map_versions(chunk.bytes).size(), 5u) << "the sections are valid";
}

TEST(TransportStreamTest, ViewersBeginWithTheTablesAndAKeyframeOrWithAnyUnitWithoutVideo) {
  const std::tuple<std::vector<std::pair<char, int>>, bool, int> cases[] = {
      {{{aac, audio_pid}, {h264, video_pid}}, true, video_pid},
      {{{aac, audio_pid}, {h264, video_pid}}, false, 0},
      {{{aac, audio_pid}}, false, audio_pid},
  };
  for (const auto& [streams, has_keyframe, begins_with] : cases) {
    TransportStream stream;
    Transcoder run(stream);
    run.send_tables(streams);
    run.send(video_pid, false, "\x40", "not the begin of a unit");
    run.send(video_pid, true, "\x10" + std::string(6, '\0'), "not a keyframe");
    if (has_keyframe) run.send_keyframe();
    run.send(audio_pid, true, "", "unit");
    run.send(audio_pid, false, "", "its rest");
    ASSERT_EQ(run.chunk.start.has_value(), begins_with != 0);
    if (!run.chunk.start) continue;
    std::vector<int> pids;
    const std::string joined = run.chunk.prologue + run.chunk.bytes.substr(*run.chunk.start);
    for (const TsPacket& packet : packets_of(joined)) pids.push_back(packet.pid());
    pids.resize(3);
    EXPECT_EQ(pids, (std::vector{0, map_pid, begins_with}));
    run.send_tables(streams);
    EXPECT_EQ(counter_errors(packets_of(run.chunk.prologue + run.chunk.bytes.substr(*run.chunk.start))), 0);
  }
}

TEST(TransportStreamTest, WhateverComesInOnlyWholePacketsComeOut) {
  std::minstd_rand random(7);
  TransportStream valid;
  Transcoder source(valid);
  source.send_tables({{h264, video_pid}, {aac, audio_pid}}, 300);
  for (int i = 0; i < 50; ++i) source.send_keyframe();
  for (int round = 0; round < 300; ++round) {
    TransportStream stream;
    LiveChunk chunk;
    for (int run = 0; run < 2; ++run) {
      std::string bytes = source.chunk.bytes;
      for (int i = 0; i < 300; ++i) bytes[random() % bytes.size()] = static_cast<char>(random());
      stream.begin_run();
      while (!bytes.empty()) {
        const std::size_t piece = std::min<std::size_t>(bytes.size(), random() % 1000);
        stream.add(bytes.substr(0, piece), chunk);
        bytes.erase(0, piece);
      }
    }
    packets_of(chunk.bytes);
    ASSERT_LE(chunk.start.value_or(0), chunk.bytes.size());
  }
}

}  // namespace
}  // namespace weir
