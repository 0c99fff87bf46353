#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace weir {

/// One packet of an MPEG transport stream (ISO 13818-1, 2.4.3). Its fields may be hostile: what they point at is
/// bounded by the packet.
class TsPacket {
 public:
  static constexpr std::size_t size = 188;
  static constexpr char sync_byte = 0x47;
  static constexpr int null_pid = 0x1fff;

  /// Copies the first `size` bytes, which are there.
  explicit TsPacket(std::string_view bytes) { std::copy_n(bytes.begin(), size, bytes_.begin()); }

  int pid() const { return (byte(1) & 0x1f) << 8 | byte(2); }
  bool starts_unit() const { return byte(1) & 0x40; }
  bool has_payload() const { return byte(3) & 0x10; }
  int continuity() const { return byte(3) & 0x0f; }
  void set_continuity(int counter) { bytes_[3] = static_cast<char>((byte(3) & 0xf0) | (counter & 0x0f)); }

  /// Whether there are flags in the adaptation field.
  bool has_flags() const { return (byte(3) & 0x20) && byte(4) > 0; }
  bool is_random_access() const { return has_flags() && (byte(5) & 0x40); }
  bool has_clock() const { return has_flags() && (byte(5) & 0x10); }
  /// The flags have to be there.
  void set_discontinuity() { bytes_[5] = static_cast<char>(byte(5) | 0x80); }

  /// Empty when there is none.
  std::string_view payload() const {
    const int begin = 4 + (byte(3) & 0x20 ? 1 + byte(4) : 0);
    return has_payload() && begin < static_cast<int>(size) ? text().substr(static_cast<std::size_t>(begin))
                                                           : std::string_view();
  }
  std::string_view text() const { return {bytes_.data(), size}; }

 private:
  int byte(std::size_t at) const { return static_cast<unsigned char>(bytes_[at]); }

  std::array<char, size> bytes_;
};

}  // namespace weir
