#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace weir {

// What a member of a document may be. One table of rules makes the JSON Schemas, the checks of forms and the tables of
// docs/stream-document.md. It lies beside the forms: only they are checked. Documents that are stored are loaded as
// they are, and what makes the transcoder's command refuses what it can't use by itself.

enum class MemberKind {
  text,       ///< a text on one line
  name,       ///< the same; a whole number is stored as its text
  digits,     ///< a whole number, stored as a text of digits: its readers take no other
  word,       ///< a name such as that of an encoder, or a number
  whole,      ///< a whole number or its text
  number,     ///< a number or its text, fractions included
  flag,       ///< yes or no
  loop,       ///< a whole number or a flag
  url,        ///< the address of an input
  host,       ///< a host name or address
  port,       ///< 1 to 65535
  timetable,  ///< "0,15,30-45" or "*", up to `max`
  map,        ///< streams of the input: "v:1", or a list of such
  box,        ///< x, y, w and h: a mapping, or "10:10:100:40"
  tags,       ///< a list of texts
  option,     ///< a setting of the input's reader
  mapping,    ///< of the members that the table lists
  numbered,   ///< a mapping of mappings "0", "1", …
  ladder,     ///< the same, or a list
};

/// A member of a document.
struct MemberRule {
  std::string_view key;  ///< dotted; "*" stands for a number
  MemberKind kind = MemberKind::text;
  std::string_view title;
  std::string_view description;    ///< a sentence in Markdown
  std::string_view unit = {};      ///< "kbit/s"
  std::optional<double> min = {};  ///< of numbers, or the bytes of a text
  std::optional<double> max = {};
  std::string_view forbidden = {};  ///< characters that the text can't hold, and no blanks then
  std::string_view choices = {};    ///< the texts that are possible, separated by blanks; empty: any
  std::string_view fallback = {};   ///< the default in words
  std::string_view example = {};    ///< JSON
  std::string_view protocols = {};  ///< of an output's member: those that have it; empty: all
  bool required = false;
  bool secret = false;   ///< never shown in a message
  bool at_once = false;  ///< a change takes effect without a new run of the transcoder
};

/// Of a stream's document, in the order in which they are shown. Members of inputs' "options" are not listed: see
/// `input_reader_options`.
std::span<const MemberRule> stream_rules();

/// Of a profile's document: its own, then those of the stream that it may set.
std::span<const MemberRule> profile_rules();

/// The words of a text that blanks separate.
std::vector<std::string> split_words(std::string_view text);

/// Whether an output of the protocol has the member.
bool has_protocol(const MemberRule& rule, std::string_view protocol);

/// The protocols that an output can have.
inline constexpr std::string_view output_protocols = "hls rtmp rtsp udp rtp tcp srt file http";

}  // namespace weir
