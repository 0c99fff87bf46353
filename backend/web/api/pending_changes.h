#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "backend/stream/runtime/stream.h"
#include "backend/web/stream_records.h"

namespace weir {

/// The dotted keys under which two documents differ, whatever the order of members; null, an empty text and an absent
/// member are the same. Of many the members of the document alone.
std::vector<std::string> list_changed_keys(Value before, Value after);

/// Of them those that a transcoder can tell: a label changes no command.
std::vector<std::string> list_pending_keys(Value launched, Value document);

/// What the running cycles do otherwise than the documents say now, because those were changed meanwhile: the member
/// "pending" of a stream's record. Of a stream that nobody edits nothing is kept.
class PendingChanges {
 public:
  /// The stream's document is about to change; this is what it is.
  void before_change(const Stream& stream, const Value& document);

  /// The keys as a JSON list; "[]" for a stream that no transcoder runs for.
  const std::string& list(const Stream& stream);

  /// This outlives the records that the member is added to.
  RecordMember make_member();

 private:
  struct Kept {
    long long cycle = 0;         ///< its transcoder was launched with this document
    std::string document = {};   ///< as JSON: a fraction of the value's memory
    std::uint64_t revision = 0;  ///< of the document of which `keys` was made
    std::string keys = {};
  };

  Kept* find(const Stream& stream);

  std::unordered_map<long long, Kept> kept_;  ///< by stream id
};

}  // namespace weir
