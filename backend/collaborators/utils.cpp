#include "backend/collaborators/utils.h"

namespace weir {

namespace {

bool between(char c, unsigned char low, unsigned char high) {
  const auto code = static_cast<unsigned char>(c);
  return code >= low && code <= high;
}

/// Finds the ends of console control sequences in one line (ECMA-48, sections 5.3 to 5.6).
class SequenceScanner {
 public:
  explicit SequenceScanner(std::string_view line) : line_(line) {}

  // The end of the sequence whose escape character is at `start`; `start` when there is none.
  std::size_t end_of_sequence(std::size_t start) {
    const std::size_t kind = start + 1;
    if (kind >= line_.size()) return start;
    if (line_[kind] == '[') return closed_by(skip(skip(kind + 1, 0x30, 0x3F), 0x20, 0x2F), 0x40, 0x7E, start);
    if (line_[kind] == ']') return end_of_string(kind + 1, start);
    if (between(line_[kind], 0x40, 0x5F)) return kind + 1;
    return closed_by(skip(kind, 0x20, 0x2F), 0x30, 0x7E, start);
  }

 private:
  std::size_t skip(std::size_t at, unsigned char low, unsigned char high) const {
    while (at < line_.size() && between(line_[at], low, high)) ++at;
    return at;
  }

  std::size_t closed_by(std::size_t at, unsigned char low, unsigned char high, std::size_t start) const {
    return at < line_.size() && between(line_[at], low, high) ? at + 1 : start;
  }

  // An operating system command ends at BEL or ST. Where there is no end, there is none for a later one either.
  std::size_t end_of_string(std::size_t at, std::size_t start) {
    if (no_string_end_) return start;
    const std::size_t bell = line_.find('\a', at);
    const std::size_t terminator = line_.substr(0, bell).find("\x1b\\", at);
    if (terminator != std::string_view::npos) return terminator + 2;
    if (bell != std::string_view::npos) return bell + 1;
    no_string_end_ = true;
    return start;
  }

  std::string_view line_;
  bool no_string_end_ = false;
};

}  // namespace

void StandardBuffer::write(std::string_view text) {
  text_ += text;
  if (text_.size() <= capacity) return;
  // An eighth more than necessary goes, so that not every line moves the whole buffer.
  const std::size_t line_end = text_.find('\n', text_.size() - capacity + capacity / 8);
  text_.erase(0, line_end == std::string::npos ? text_.size() - capacity : line_end + 1);
}

std::string StandardBuffer::read() const { return text_; }

bool StandardBuffer::truncate() {
  text_ = {};
  return true;
}

std::vector<std::string_view> ConsoleCodesPattern::findall(std::string_view line) const {
  std::vector<std::string_view> sequences;
  SequenceScanner scanner(line);
  std::size_t at = line.find('\x1b');
  while (at != std::string_view::npos) {
    const std::size_t end = scanner.end_of_sequence(at);
    if (end > at) sequences.push_back(line.substr(at, end - at));
    at = line.find('\x1b', end > at ? end : at + 1);
  }
  return sequences;
}

std::string strip_console_codes(std::string_view line) {
  std::string plain;
  plain.reserve(line.size());
  const char* at = line.data();
  for (const std::string_view sequence : console_codes_pattern.findall(line)) {
    plain.append(at, sequence.data());
    at = sequence.data() + sequence.size();
  }
  return plain.append(at, line.data() + line.size());
}

}  // namespace weir
