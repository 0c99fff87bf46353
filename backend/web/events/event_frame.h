#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace weir {

/// One server-sent event, encoded once for all who receive it. It never changes once it is in a ring.
struct EventFrame {
  /// Of an event about many streams: where one stream's part lies in `text`. Ascending by stream.
  struct Part {
    long long stream_id = 0;
    std::size_t begin = 0;
    std::size_t size = 0;
  };

  std::string text;
  std::uint64_t number = 0;                 ///< in the journal; 0 for other events
  std::optional<long long> stream_id = {};  ///< the one stream that it is about
  std::vector<Part> parts = {};
  std::size_t head = 0;  ///< the size of what stands before the parts
};

using EventFramePointer = std::shared_ptr<const EventFrame>;

/// The latest frames, bounded in number and bytes. Readers keep the position of the frame that they read next.
class EventRing {
 public:
  struct Limits {
    std::size_t frames = 0;
    std::size_t bytes = 0;
  };
  explicit EventRing(Limits limits) : limits_(limits) {}

  void push(EventFrame frame);
  void clear();
  /// The position of the frame to come.
  std::uint64_t end() const { return first_ + frames_.size(); }
  bool has_lost(std::uint64_t position) const { return position < first_; }
  /// The position has to be below the end, and not lost.
  const EventFramePointer& at(std::uint64_t position) const { return frames_[position - first_]; }
  /// The position of the entry of the journal with that number; nothing when it is not there.
  std::optional<std::uint64_t> find(std::uint64_t number) const;

 private:
  static std::size_t size_of(const EventFrame& frame);

  Limits limits_;
  std::deque<EventFramePointer> frames_;
  std::uint64_t first_ = 0;
  std::size_t bytes_ = 0;
};

}  // namespace weir
