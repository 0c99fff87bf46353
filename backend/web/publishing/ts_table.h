#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/web/publishing/ts_packet.h"

namespace weir {

/// The CRC of sections (ISO 13818-1, annex A); 0 over a section with its CRC.
std::uint32_t section_crc(std::string_view bytes);

/// The map of one program: the streams that belong to it.
struct TsProgram {
  std::vector<int> pids;
  std::optional<int> video;
};

/// The number of the packets that hold the first program's map; nothing when the section is no program association.
std::optional<int> read_association(std::string_view section);
/// Nothing when the section is no program map.
std::optional<TsProgram> read_program_map(std::string_view section);

/// One table as viewers get it over all runs of a transcoder: its counters rise, its version changes with its content
/// and only then.
class TsTable {
 public:
  explicit TsTable(int pid) : pid_(pid) {}

  int pid() const noexcept { return pid_; }
  /// What an interrupted run left.
  void forget_unfinished() { unfinished_.clear(); }
  /// Takes the table's next packet. True when a section is whole and valid now.
  bool add(const TsPacket& packet);
  /// The latest section.
  std::string_view section() const noexcept { return section_; }
  /// The packets of the latest section, whose counters go on from those of the last call.
  const std::string& next_packets();
  /// Those of the last call.
  const std::string& packets() const noexcept { return packets_; }

 private:
  void publish(std::string section);

  int pid_;
  std::string unfinished_;
  std::string section_;
  std::string packets_;
  int version_ = 0;
  int continuity_ = 0;
};

}  // namespace weir
