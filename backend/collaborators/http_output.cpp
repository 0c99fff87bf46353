#include "backend/collaborators/http_output.h"

#include <fmt/core.h>

#include <array>
#include <boost/algorithm/string/predicate.hpp>
#include <locale>
#include <nlohmann/json.hpp>

#include "backend/base/members.h"
#include "backend/base/text_form.h"
#include "backend/collaborators/config.h"
#include "backend/platform/files.h"

namespace weir {

namespace {

struct Ending {
  std::string_view text;
  std::string_view format;
};
constexpr std::array endings{Ending{".ts", "mpegts"}, Ending{".mp3", "mp3"}, Ending{".aac", "adts"}};

}  // namespace

std::string_view get_http_format(const Value& output) {
  const Value& format = member(output, "format");
  const Value& filename = member(output, "filename");
  for (const Ending& ending : endings) {
    if (is_set(format) ? format == ending.format
                       : filename.is_string() && boost::iends_with(filename.get_ref<const std::string&>(), ending.text,
                                                                   std::locale::classic()))
      return ending.format;
  }
  return {};
}

std::string find_http_output_fault(const Value& output) {
  const std::string name = to_text(member(output, "filename"));
  if (name == "." || name == "..") return fmt::format("filename: {} is not a file name", name);
  if (!get_http_format(output).empty()) return {};
  if (const Value& format = member(output, "format"); is_set(format))
    return fmt::format("format: {} can't be joined while it runs; use mpegts, mp3 or adts", to_text(format));
  return fmt::format(
      "filename: {} can't be joined while it runs; end it in .ts, .mp3 or .aac, or set \"format\" to mpegts, mp3 or "
      "adts",
      name);
}

std::string get_http_socket(const Value& stream_id, int index) {
  return join_path(join_path(Config::MMCB_DIRECTORY, to_text(stream_id)), fmt::format("http_{}", index));
}

}  // namespace weir
