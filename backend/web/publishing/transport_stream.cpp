#include "backend/web/publishing/transport_stream.h"

namespace weir {

namespace {

// A packet without payload that only says that the stream's clock and counters may jump.
std::string make_discontinuity(int pid, int continuity) {
  std::string packet{TsPacket::sync_byte,
                     static_cast<char>(pid >> 8),
                     static_cast<char>(pid),
                     static_cast<char>(0x20 | continuity),
                     static_cast<char>(TsPacket::size - 5),
                     '\x80'};
  packet.resize(TsPacket::size, '\xff');
  return packet;
}

}  // namespace

void TransportStream::begin_run() {
  ++run_;
  unread_.clear();
  association_.forget_unfinished();
  map_.forget_unfinished();
}

void TransportStream::add(std::string_view bytes, LiveChunk& chunk) {
  unread_ += bytes;
  std::string_view rest = unread_;
  while (rest.size() >= TsPacket::size) {
    if (rest.front() == TsPacket::sync_byte) {
      add_packet(TsPacket(rest), chunk);
      rest.remove_prefix(TsPacket::size);
    } else {
      rest.remove_prefix(std::min(rest.find(TsPacket::sync_byte), rest.size()));
    }
  }
  unread_.erase(0, unread_.size() - rest.size());
}

void TransportStream::add_packet(TsPacket packet, LiveChunk& chunk) {
  if (packet.pid() != TsPacket::null_pid) {
    if (add_table(packet, chunk)) return;
    join_runs(packet, chunk);
    if (is_start(packet)) {
      chunk.start = chunk.bytes.size();
      chunk.prologue = association_.packets() + map_.packets();
    }
  }
  chunk.bytes += packet.text();
}

// False for packets of other streams.
bool TransportStream::add_table(const TsPacket& packet, LiveChunk& chunk) {
  const bool is_association = packet.pid() == association_.pid();
  if (!is_association && packet.pid() != map_.pid()) return false;
  TsTable& table = is_association ? association_ : map_;
  if (!table.add(packet)) return true;
  if (is_association) {
    const int map_pid = read_association(table.section()).value_or(TsPacket::null_pid);
    if (map_pid != map_.pid()) map_ = TsTable(map_pid);
  } else {
    program_ = read_program_map(table.section()).value_or(TsProgram{});
  }
  chunk.bytes += table.next_packets();
  return true;
}

void TransportStream::join_runs(TsPacket& packet, LiveChunk& chunk) {
  const auto [entry, is_new] = streams_.try_emplace(packet.pid());
  Stream& stream = entry->second;
  const bool begins = !is_new && stream.run != run_;
  if (begins) {
    stream.shift = stream.continuity + (packet.has_payload() ? 1 : 0) - packet.continuity();
    stream.clocked = false;
  }
  stream.run = run_;
  const bool first_clock = !stream.clocked && packet.has_clock();
  if (first_clock) stream.clocked = true;
  const bool in_program = std::ranges::find(program_.pids, packet.pid()) != program_.pids.end();
  if (begins && in_program && !packet.has_flags()) chunk.bytes += make_discontinuity(packet.pid(), stream.continuity);
  if (packet.has_flags() && ((begins && in_program) || first_clock)) packet.set_discontinuity();
  packet.set_continuity(packet.continuity() + stream.shift);
  stream.continuity = packet.continuity();
}

bool TransportStream::is_start(const TsPacket& packet) const {
  if (program_.pids.empty() || !packet.starts_unit()) return false;
  if (program_.video) return packet.pid() == *program_.video && packet.is_random_access();
  return packet.pid() == program_.pids.front();
}

}  // namespace weir
