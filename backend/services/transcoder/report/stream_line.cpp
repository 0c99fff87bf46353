#include "backend/services/transcoder/report/stream_line.h"

#include <array>
#include <charconv>
#include <cmath>
#include <utility>
#include <vector>

namespace weir {

namespace {

/// Takes a text apart from the left.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : rest_(text) {}

  bool take(std::string_view literal) {
    if (!rest_.starts_with(literal)) return false;
    rest_.remove_prefix(literal.size());
    return true;
  }
  template <class Number>
  bool take_value(Number& number) {
    const auto result = std::from_chars(rest_.data(), rest_.data() + rest_.size(), number);
    if (result.ec != std::errc() || number < 0) return false;
    rest_.remove_prefix(static_cast<std::size_t>(result.ptr - rest_.data()));
    return true;
  }
  /// What stands before the closing character; empty, and nothing taken, when it does not come.
  std::string_view take_until(char closing) {
    const std::size_t end = rest_.find(closing);
    if (end == std::string_view::npos) return {};
    const std::string_view text = rest_.substr(0, end);
    rest_.remove_prefix(end + 1);
    return text;
  }
  std::string_view rest() const noexcept { return rest_; }

 private:
  std::string_view rest_;
};

/// "#0:1"
bool take_number(Scanner& scanner, int& file, int& index) {
  return scanner.take("#") && scanner.take_value(file) && scanner.take(":") && scanner.take_value(index);
}

char get_type(std::string_view name) {
  static constexpr std::array<std::pair<std::string_view, char>, 5> types = {
      {{"Video", 'v'}, {"Audio", 'a'}, {"Subtitle", 's'}, {"Data", 'd'}, {"Attachment", 't'}}};
  for (const auto& [known, type] : types) {
    if (name == known) return type;
  }
  return 0;
}

/// The fields between the commas that stand outside brackets.
std::vector<std::string_view> split_fields(std::string_view text) {
  std::vector<std::string_view> fields;
  int depth = 0;
  std::size_t begin = 0;
  for (std::size_t i = 0; i < text.size() && fields.size() < 32; ++i) {
    const char c = text[i];
    if (c == '(' || c == '[') ++depth;
    if ((c == ')' || c == ']') && depth > 0) --depth;
    if (c != ',' || depth > 0) continue;
    fields.push_back(text.substr(begin, i - begin));
    begin = text.find_first_not_of(' ', i + 1);
    if (begin == std::string_view::npos) return fields;
  }
  fields.push_back(text.substr(begin));
  return fields;
}

std::string_view first_word(std::string_view field) { return field.substr(0, field.find_first_of(" (")); }

/// "h264 (High) (avc1 / 0x31637661)"
void read_codec(std::string_view field, MediaStream& stream) {
  stream.codec = first_word(field);
  const std::size_t open = field.find(" (");
  if (open == std::string_view::npos) return;
  std::string_view remark = field.substr(open + 2);
  remark = remark.substr(0, remark.find(')'));
  const bool tag = remark.starts_with('[') || remark.find(" / ") != std::string_view::npos;
  if (!tag && remark != "default" && remark != "native") stream.profile = remark;
}

/// Pixels. FFmpeg itself goes up to half of it.
constexpr int max_side = 65'536;

/// "1280x720 [SAR 1:1 DAR 16:9]"
bool read_size(std::string_view field, MediaStream& stream) {
  Scanner scanner(field);
  int width = 0;
  int height = 0;
  if (!scanner.take_value(width) || !scanner.take("x") || !scanner.take_value(height)) return false;
  if (!scanner.rest().empty() && scanner.rest()[0] != ' ') return false;
  if (width > max_side || height > max_side) return false;
  stream.width = width;
  stream.height = height;
  return true;
}

/// A figure with its unit: "2500 kb/s", "29.97 fps", "1k tbr". The frame rate is the average where there is one, else
/// the base rate.
void read_figure(std::string_view field, MediaStream& stream) {
  Scanner scanner(field);
  scanner.take("max. ");
  double value = 0;
  if (!scanner.take_value(value)) return;
  if (scanner.take("k ")) {
    value *= 1000;
  } else if (!scanner.take(" ")) {
    return;
  }
  // A source can print anything: "nan", "inf", "1000000000k".
  if (!(value <= max_figure)) return;
  const std::string_view unit = first_word(scanner.rest());
  // Another thread's output may directly follow the last field.
  if (unit.starts_with("kb/s")) stream.bitrate = std::llround(value);
  if (unit == "Hz") stream.sample_rate = static_cast<int>(value);
  if (unit == "fps" || (unit == "tbr" && stream.fps == 0)) stream.fps = value;
}

void read_fields(const std::vector<std::string_view>& fields, MediaStream& stream) {
  read_codec(fields[0], stream);
  for (std::size_t i = 1; i < fields.size(); ++i) {
    if (stream.type == 'v' && stream.width == 0 && read_size(fields[i], stream)) continue;
    if (stream.type == 'v' && i == 1) stream.pix_fmt = first_word(fields[i]);
    // The layout of the channels follows the sample rate.
    if (stream.type == 'a' && stream.sample_rate != 0 && stream.channels.empty()) stream.channels = fields[i];
    read_figure(fields[i], stream);
  }
}

/// "[0x100](eng): Video: h264 (High), …"
bool read_description(Scanner scanner, MediaStream& stream) {
  if (scanner.take("[")) scanner.take_until(']');
  if (scanner.take("(")) stream.language = scanner.take_until(')').substr(0, 32);
  if (!scanner.take(": ")) return false;
  stream.type = get_type(scanner.take_until(':'));
  if (stream.type == 0 || !scanner.take(" ")) return false;
  read_fields(split_fields(scanner.rest()), stream);
  return true;
}

}  // namespace

std::optional<MediaStream> StreamLineReader::read(std::string_view line) {
  while (line.ends_with('\n') || line.ends_with('\r') || line.ends_with(' ')) line.remove_suffix(1);
  Scanner scanner(line);
  if (scanner.take("  Stream ")) {
    begun_.emplace();
    if (!take_number(scanner, begun_->file, begun_->index)) begun_.reset();
  }
  if (!begun_) return std::nullopt;
  MediaStream stream = *begun_;
  if (!read_description(scanner, stream)) return std::nullopt;
  begun_.reset();
  return stream;
}

std::optional<StreamMapping> parse_mapping_line(std::string_view line) {
  StreamMapping mapping;
  int output_file = 0;
  Scanner scanner(line);
  const bool matches = scanner.take("  Stream ") && take_number(scanner, mapping.input_file, mapping.input_index) &&
                       scanner.take(" -> ") && take_number(scanner, output_file, mapping.output_index);
  if (!matches) return std::nullopt;
  mapping.copied = scanner.rest().starts_with(" (copy)");
  return mapping;
}

}  // namespace weir
