#pragma once

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "backend/platform/async.h"
#include "backend/stream/runtime/stream.h"
#include "backend/web/events/event_frame.h"

namespace weir {

/// What the "figures" events show of a stream beside its status: "speed", "fps", "bitrate" (kbit/s), "cpu" (percent of
/// one processor), "memory" (MiB), "viewers"; in this order. Nothing where a figure is not known.
using EventFigures = std::array<std::optional<double>, 6>;

/// Where they come from.
struct FigureFeed {
  /// Somebody wants figures each second for as long as the result exists.
  std::function<std::shared_ptr<void>()> hold;
  /// Waits until there are new ones.
  std::function<Async<>()> next;
  std::function<EventFigures(const Stream&)> read;
};

/// Keeps what was shown of each stream, and makes "figures" events of what changed since.
class FigureDeltas {
 public:
  /// The event with what changed, nothing when nothing did. Others have their turn between parts of the streams.
  Async<std::optional<EventFrame>> next(std::vector<std::shared_ptr<Stream>> streams, const FigureFeed& feed);
  /// The event with all that was shown.
  EventFrame snapshot() const;
  void forget() { shown_.clear(); }

 private:
  struct Shown {
    std::string status;
    EventFigures figures;
    std::uint64_t round = 0;  ///< in which the stream was seen last
  };

  void append_change(EventFrame& frame, const Stream& stream, const FigureFeed& feed);
  void append_deleted(EventFrame& frame);

  std::map<long long, Shown> shown_;  ///< by stream id
  std::uint64_t round_ = 0;
};

/// The event for somebody who wants only these streams (ascending); empty when it holds nothing of them.
std::string narrow(const EventFrame& frame, const std::vector<long long>& stream_ids);

}  // namespace weir
