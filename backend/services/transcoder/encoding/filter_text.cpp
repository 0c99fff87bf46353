#include "backend/services/transcoder/encoding/filter_text.h"

#include <algorithm>
#include <array>

namespace weir {

namespace {

constexpr std::string_view white_space = " \n\t\r";

constexpr std::array<std::string_view, 21> forbidden = {
    "ametadata",      "azmq",       "derain",    "deshake", "dnn_classify",  "dnn_detect", "dnn_processing",
    "frei0r",         "frei0r_src", "ladspa",    "libvmaf", "lv2",           "metadata",   "openclsrc",
    "program_opencl", "psnr",       "signature", "ssim",    "vidstabdetect", "vmafmotion", "zmq"};

bool is_one_of(char c, std::string_view characters) { return characters.find(c) != std::string_view::npos; }

std::string escape(std::string_view text, std::string_view specials) {
  std::string escaped;
  for (char c : text) {
    if (is_one_of(c, specials)) escaped += '\\';
    escaped += c;
  }
  return escaped;
}

/// Reads a graph the way FFmpeg's parser does: labels, name, arguments, labels, separator.
class GraphReader {
 public:
  explicit GraphReader(std::string_view graph) : rest_(graph) {}

  bool at_end() {
    skip(white_space);
    return rest_.empty();
  }
  /// The name of the next filter without its instance ("scale@small").
  std::string next_filter() {
    skip_labels();
    std::string name = token("=,;[");
    if (rest_.starts_with('=')) {
      rest_.remove_prefix(1);
      token("[],;");
    }
    skip_labels();
    if (!rest_.empty()) rest_.remove_prefix(1);
    return name.substr(0, name.find('@'));
  }

 private:
  void skip(std::string_view characters) {
    rest_.remove_prefix(std::min(rest_.find_first_not_of(characters), rest_.size()));
  }

  void skip_labels() {
    for (skip(white_space); rest_.starts_with('['); skip(white_space)) {
      const std::size_t end = rest_.find(']');
      rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
    }
  }

  /// The text up to one of the terminators, its quotes and escapes resolved.
  std::string token(std::string_view terminators) {
    std::string text;
    skip(white_space);
    while (!rest_.empty() && !is_one_of(rest_[0], terminators)) {
      if (rest_[0] == '\'') {
        const std::size_t end = std::min(rest_.find('\'', 1), rest_.size());
        text += rest_.substr(1, end - 1);
        rest_.remove_prefix(std::min(end + 1, rest_.size()));
        continue;
      }
      if (rest_[0] == '\\' && rest_.size() > 1) rest_.remove_prefix(1);
      text += rest_[0];
      rest_.remove_prefix(1);
    }
    return text.substr(0, text.find_last_not_of(white_space) + 1);
  }

  std::string_view rest_;
};

}  // namespace

std::string escape_filter_value(std::string_view value) {
  // Two readers take it apart, one after the other: that of the graph, then that of the filter's options.
  return escape(escape(value, "\\':"), "\\'[],;");
}

std::string find_forbidden_filter(std::string_view graph) {
  GraphReader reader(graph);
  while (!reader.at_end()) {
    std::string name = reader.next_filter();
    if (std::ranges::find(forbidden, name) != forbidden.end()) return name;
  }
  return {};
}

}  // namespace weir
