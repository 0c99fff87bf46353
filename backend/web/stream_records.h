#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "backend/stream/runtime/stream.h"

namespace weir {

/// A member that the web layer adds to the record of every stream, behind those of the module.
struct RecordMember {
  std::string name;
  /// Appends the value as JSON, passwords masked. It is part of every list of a thousand streams: what only a change of
  /// the document can change is best kept by `conf->revision()`. The value is null when it throws.
  std::function<void(std::string& json, const Stream&)> append;
  /// The stream is deleted: nothing need be kept of it.
  std::function<void(long long stream_id)> forget = [](long long) {};
};

/// The records of streams as the web layer answers them, as JSON, passwords masked. One whose record cannot be made
/// shows as "id", "label", "status" and "error", so that it hides no other. `host`: see
/// `StreamConfig::get_output_urls`.
///
/// Of running streams the text is kept that only a change of the document or another cycle can change, and filled in
/// with the figures of the moment.
class StreamRecords {
 public:
  static constexpr std::size_t live_members = 7;

  /// What stands before, between and behind the values of the live members, without the bracket at the end.
  using Parts = std::array<std::string, live_members + 1>;

  /// The next member of every record; see `RecordMember`.
  void add_member(RecordMember member);

  void append(std::string& text, const Stream& stream, const std::string& host);
  void forget(long long stream_id);

 private:
  struct Kept {
    std::uint64_t revision = 0;
    std::string host;
    Parts parts;
  };

  void append_module_record(std::string& text, const Stream& stream, const std::string& host);
  void append_added_members(std::string& text, const Stream& stream) const;

  std::unordered_map<long long, Kept> kept_;  ///< by stream id
  std::vector<RecordMember> added_;
};

}  // namespace weir
