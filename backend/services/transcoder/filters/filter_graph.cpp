#include "backend/services/transcoder/filters/filter_graph.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "backend/base/text.h"
#include "backend/platform/failure.h"

namespace weir {

namespace {

constexpr std::string_view white_space = " \n\t\r";

bool is_one_of(char c, std::string_view characters) { return characters.find(c) != std::string_view::npos; }

bool is_key_character(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || is_one_of(c, "-_/.");
}

/// Takes a text apart from the left, as FFmpeg's `av_get_token` and `av_opt_get_key_value` do.
class Reader {
 public:
  explicit Reader(std::string_view text) : rest_(text) {}

  std::string_view rest() const { return rest_; }
  /// Whether the text ended within quotes or after a backslash.
  bool ended_open() const { return ended_open_; }

  bool take(char c) {
    if (!rest_.starts_with(c)) return false;
    rest_.remove_prefix(1);
    return true;
  }

  void skip_white_space() { rest_.remove_prefix(std::min(rest_.find_first_not_of(white_space), rest_.size())); }

  /// The text up to one of the terminators, its quotes and escapes resolved, without white space at its ends that is
  /// neither quoted nor escaped.
  std::string take_token(std::string_view terminators) {
    skip_white_space();
    std::string token;
    std::size_t kept = 0;
    while (!rest_.empty() && !is_one_of(rest_[0], terminators)) {
      const char c = take_character();
      if (c == '\'') {
        if (take_quoted(token)) kept = token.size();
      } else if (c == '\\' && !rest_.empty()) {
        token += take_character();
        kept = token.size();
      } else {
        token += c;
        ended_open_ = c == '\\';
      }
    }
    while (token.size() > kept && is_one_of(token.back(), white_space)) token.pop_back();
    return token;
  }

  /// "name="; takes nothing when something else follows.
  std::optional<std::string> take_key() {
    Reader ahead(rest_);
    ahead.skip_white_space();
    std::string key;
    while (!ahead.rest_.empty() && is_key_character(ahead.rest_[0])) key += ahead.take_character();
    ahead.skip_white_space();
    if (!ahead.take('=')) return std::nullopt;
    rest_ = ahead.rest_;
    return key;
  }

 private:
  char take_character() {
    const char c = rest_[0];
    rest_.remove_prefix(1);
    return c;
  }

  /// False when the closing quote is missing.
  bool take_quoted(std::string& token) {
    const std::size_t end = std::min(rest_.find('\''), rest_.size());
    token += rest_.substr(0, end);
    rest_.remove_prefix(end);
    ended_open_ = rest_.empty();
    return take('\'');
  }

  std::string_view rest_;
  bool ended_open_ = false;
};

void skip_labels(Reader& reader) {
  for (reader.skip_white_space(); reader.take('['); reader.skip_white_space()) {
    const std::string label = reader.take_token("]");
    if (label.empty() || !reader.take(']')) throw ValueError("a label is empty or not closed by \"]\"");
  }
}

std::vector<FilterOption> read_options(const std::string& filter, std::string_view text) {
  Reader reader(text);
  std::vector<FilterOption> options;
  while (!reader.rest().empty()) {
    const bool named = !options.empty() && !options.back().name.empty();
    const std::optional<std::string> key = reader.take_key();
    if (key ? key->empty() : named) {
      throw ValueError(fmt::format("an option of the filter \"{}\" has no name: \"{}\"", filter, reader.rest()));
    }
    options.push_back({key.value_or(""), reader.take_token(":")});
    reader.take(':');
  }
  return options;
}

FilterCall read_call(Reader& reader) {
  FilterCall call;
  call.name = reader.take_token("=,;[");
  const std::size_t instance = call.name.find('@');
  if (instance != std::string::npos && instance + 1 < call.name.size()) call.name.resize(instance);
  if (reader.take('=')) call.options = read_options(call.name, reader.take_token("[],;"));
  return call;
}

}  // namespace

std::vector<FilterCall> read_filter_graph(std::string_view graph) {
  // FFmpeg takes what stands ahead of the first ";" for the flags of all scalers then, whatever it is.
  if (trim(graph).starts_with("sws_flags=")) {
    throw ValueError("\"sws_flags=\" is not allowed; set the flags of each filter");
  }
  Reader reader(graph);
  std::vector<FilterCall> calls;
  do {
    skip_labels(reader);
    calls.push_back(read_call(reader));
    skip_labels(reader);
  } while (reader.take(',') || reader.take(';'));
  if (!reader.rest().empty()) throw ValueError(fmt::format("unexpected text after a filter: \"{}\"", reader.rest()));
  if (reader.ended_open()) throw ValueError("it ends within quotes or after a backslash");
  return calls;
}

std::string escape_filter_value(std::string_view value) { return escape(escape(value, "\\':"), "\\'[],;"); }

}  // namespace weir
