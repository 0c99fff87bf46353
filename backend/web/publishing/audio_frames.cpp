#include "backend/web/publishing/audio_frames.h"

#include <array>

namespace weir {

namespace {

unsigned bits(std::string_view bytes, std::size_t at) { return static_cast<unsigned char>(bytes[at]); }

// kbit/s by index, from 1 to 14.
using BitRates = std::array<unsigned, 15>;
constexpr BitRates v1_layer1{0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448};
constexpr BitRates v1_layer2{0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384};
constexpr BitRates v1_layer3{0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
constexpr BitRates v2_layer1{0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256};
constexpr BitRates v2_layers23{0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
constexpr std::array<unsigned, 3> sample_rates{44100, 48000, 32000};

const BitRates& bit_rates(bool version1, unsigned layer) {
  if (version1) return layer == 1 ? v1_layer1 : layer == 2 ? v1_layer2 : v1_layer3;
  return layer == 1 ? v2_layer1 : v2_layers23;
}

}  // namespace

std::size_t mp3_frame_size(std::string_view header) {
  const unsigned version = bits(header, 1) >> 3 & 3;  // 0: 2.5, 2: 2, 3: 1
  const unsigned layer = 4 - (bits(header, 1) >> 1 & 3);
  const unsigned rate = bits(header, 2) >> 4;
  const unsigned sampling = bits(header, 2) >> 2 & 3;
  const bool synchronous = bits(header, 0) == 0xff && bits(header, 1) >> 5 == 7;
  if (!synchronous || version == 1 || layer == 4 || rate == 0 || rate == 15 || sampling == 3) return 0;
  const unsigned bit_rate = 1000 * bit_rates(version == 3, layer)[rate];
  const unsigned sample_rate = sample_rates[sampling] >> (version == 3 ? 0 : version == 2 ? 1 : 2);
  const unsigned padding = bits(header, 2) >> 1 & 1;
  if (layer == 1) return (12 * bit_rate / sample_rate + padding) * 4;
  const unsigned samples = layer == 3 && version != 3 ? 576 : 1152;
  return samples / 8 * bit_rate / sample_rate + padding;
}

std::size_t adts_frame_size(std::string_view header) {
  const bool synchronous = bits(header, 0) == 0xff && (bits(header, 1) & 0xf6) == 0xf0;
  const std::size_t size = (bits(header, 3) & 3) << 11 | bits(header, 4) << 3 | bits(header, 5) >> 5;
  return synchronous && size >= audio_header_size ? size : 0;
}

void AudioFrames::add(std::string_view bytes, LiveChunk& chunk) {
  unread_ += bytes;
  std::string_view rest = unread_;
  while (rest.size() >= audio_header_size) {
    const std::size_t size = frame_size_(rest);
    if (size > rest.size()) break;
    if (size > 0 && !chunk.start) chunk.start = chunk.bytes.size();
    chunk.bytes += rest.substr(0, size);
    rest.remove_prefix(size > 0 ? size : 1);
  }
  unread_.erase(0, unread_.size() - rest.size());
}

}  // namespace weir
