#include "backend/web/publishing/ts_table.h"

#include <array>

namespace weir {

namespace {

constexpr std::size_t max_section = 1024;
constexpr std::size_t header_size = 8;  // up to and with last_section_number
constexpr std::size_t crc_size = 4;
constexpr int association_table = 0;
constexpr int program_map_table = 2;

unsigned byte(std::string_view bytes, std::size_t at) { return static_cast<unsigned char>(bytes[at]); }
unsigned number(std::string_view bytes, std::size_t at) { return byte(bytes, at) << 8 | byte(bytes, at + 1); }

std::size_t section_size(std::string_view section) { return 3 + (number(section, 1) & 0x0fff); }

constexpr std::array<std::uint32_t, 256> crc_table = [] {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t i = 0; i < 256; ++i) {
    std::uint32_t crc = i << 24;
    for (int bit = 0; bit < 8; ++bit) crc = crc << 1 ^ (crc & 0x80000000 ? 0x04c11db7 : 0);
    table[i] = crc;
  }
  return table;
}();

// One section that says all of its table.
bool is_table(std::string_view section, unsigned id) {
  return section.size() >= header_size + crc_size && byte(section, 0) == id && number(section, 6) == 0;
}

std::string_view without_crc(std::string_view section) { return section.substr(0, section.size() - crc_size); }

void set_version(std::string& section, int version) {
  section[5] = static_cast<char>((byte(section, 5) & 0xc1) | static_cast<unsigned>(version << 1));
  const std::uint32_t crc = section_crc(without_crc(section));
  for (std::size_t i = 0; i < crc_size; ++i)
    section[section.size() - crc_size + i] = static_cast<char>(crc >> (24 - 8 * i));
}

bool is_video(unsigned stream_type) {
  // MPEG-1, MPEG-2, MPEG-4, H.264, H.265, H.266, AVS, AVS3, Dirac, VC-1
  constexpr std::array<unsigned, 10> video_types{0x01, 0x02, 0x10, 0x1b, 0x24, 0x33, 0x42, 0xd4, 0xd1, 0xea};
  return std::ranges::find(video_types, stream_type) != video_types.end();
}

}  // namespace

std::uint32_t section_crc(std::string_view bytes) {
  std::uint32_t crc = 0xffffffff;
  for (const char c : bytes) crc = crc << 8 ^ crc_table[crc >> 24 ^ static_cast<unsigned char>(c)];
  return crc;
}

std::optional<int> read_association(std::string_view section) {
  if (!is_table(section, association_table)) return std::nullopt;
  for (std::size_t at = header_size; at + 4 + crc_size <= section.size(); at += 4)
    if (number(section, at) != 0) return static_cast<int>(number(section, at + 2) & 0x1fff);
  return std::nullopt;
}

std::optional<TsProgram> read_program_map(std::string_view section) {
  constexpr std::size_t fixed_size = header_size + 4;
  if (!is_table(section, program_map_table) || section.size() < fixed_size + crc_size) return std::nullopt;
  TsProgram program;
  std::size_t at = fixed_size + (number(section, 10) & 0x0fff);
  while (at + 5 + crc_size <= section.size()) {
    const int pid = static_cast<int>(number(section, at + 1) & 0x1fff);
    program.pids.push_back(pid);
    if (!program.video && is_video(byte(section, at))) program.video = pid;
    at += 5 + (number(section, at + 3) & 0x0fff);
  }
  return program;
}

bool TsTable::add(const TsPacket& packet) {
  std::string_view payload = packet.payload();
  if (packet.starts_unit()) {
    unfinished_.clear();
    if (payload.empty() || 1 + byte(payload, 0) >= payload.size()) return false;
    payload.remove_prefix(1 + byte(payload, 0));
  } else if (unfinished_.empty()) {
    return false;
  }
  unfinished_ += payload;
  if (unfinished_.size() < 3) return false;
  const std::size_t size = section_size(unfinished_);
  const bool possible = size >= header_size + crc_size && size <= max_section;
  if (possible && unfinished_.size() < size) return false;
  std::string section = unfinished_.substr(0, size);
  unfinished_.clear();
  if (!possible || section_crc(section) != 0) return false;
  publish(std::move(section));
  return true;
}

void TsTable::publish(std::string section) {
  set_version(section, version_);
  if (section == section_) return;
  if (!section_.empty()) version_ = (version_ + 1) % 32;
  set_version(section, version_);
  section_ = std::move(section);
}

const std::string& TsTable::next_packets() {
  std::string_view rest = section_;
  packets_.clear();
  while (!rest.empty()) {
    const bool first = packets_.empty();
    const std::size_t room = TsPacket::size - (first ? 5 : 4);
    const std::string_view part = rest.substr(0, room);
    packets_ += {TsPacket::sync_byte, static_cast<char>((first ? 0x40 : 0) | pid_ >> 8), static_cast<char>(pid_),
                 static_cast<char>(0x10 | continuity_)};
    if (first) packets_ += '\0';
    packets_ += part;
    packets_.append(room - part.size(), '\xff');
    continuity_ = (continuity_ + 1) % 16;
    rest.remove_prefix(part.size());
  }
  return packets_;
}

}  // namespace weir
