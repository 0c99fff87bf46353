#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "backend/base/value.h"
#include "backend/collaborators/jsonconf.h"
#include "backend/collaborators/profile.h"

namespace weir {

/// The document of one stream: inputs in priority order, outputs, codec settings (mostly copied from a profile),
/// timetables, limits, label and last status. After every load its inputs and outputs are numbered without gaps and in
/// the one shape that the rest of the system relies on.
class StreamConfig : public JsonConf {
 public:
  explicit StreamConfig(std::string filename = {}, Error* error_handler = nullptr);

  /// Loads the stream file, or applies a form, then normalises inputs and outputs and applies the profile. False with
  /// the reason; wrong kinds inside the normalisation are raised. Nothing is rolled back: after a failure the document
  /// keeps what has been applied. More than 500 inputs or outputs, and a document that would be too large to be read
  /// again, are refused.
  bool load_json_conf() override;
  bool load_json_conf(const Value& form) override;

  /// The inputs' URLs in priority order; null where one has none.
  std::vector<Value> get_input_urls() const;

  /// The addresses of the outputs in the order of their indexes; an output without one leaves no entry. `host` is the
  /// host under which the web client reached the server, with or without a port. With `protocols` only outputs of those
  /// count. Throws when a mapping or file name that is needed is missing.
  std::vector<std::string> get_output_urls(std::string_view host,
                                           const std::optional<std::set<std::string>>& protocols = std::nullopt) const;

  /// Drops blank inputs and fills every input with the members of input "0" that it does not set itself. Returns true.
  bool filter_input();
  /// Orders and renumbers the inputs and counts them; members whose keys are no numbers come first. Returns true.
  bool sort_input();
  /// Checks the outputs by protocol, normalises their fields and drops the rest. Returns true; throws `AssertionError`
  /// or `ValueError` for an "hls" output under another key than "0", `KeyError` for one without "playlist_name",
  /// `AttributeError` or `TypeError` for a field that is no text.
  bool filter_output();
  bool sort_output();

  /// Replaces "video", "audio" and "subtitle" by the profile's; the stream's own logo removal and maps survive. Without
  /// a profile given, the one that "profile" names is applied, if any. False with the reason when there is no such
  /// profile (the document is unchanged then), or when one of its members leaves no place for what survives.
  bool apply_profile(const ProfileDescription* profile = nullptr);

  int nb_inputs = 0;   ///< inputs "0" to `nb_inputs` - 1 exist since the last load
  int nb_outputs = 0;  ///< the same for the outputs

 private:
  bool normalise();
  bool sort_members(const char* name, int& count);
  bool check_growth();
  bool check_size();
  std::shared_ptr<const ProfileDescription> find_profile(const Value& profile_id);
  bool copy_profile(const ProfileDescription& profile);
};

/// The path of a file in the HLS directory of a stream.
std::string get_hls_path(long long stream_id, std::string_view filename);

}  // namespace weir
