#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "backend/collaborators/journal.h"
#include "backend/platform/wait_queue.h"
#include "backend/stream/manager/stream_manager.h"
#include "backend/web/events/event_frame.h"
#include "backend/web/events/figure_deltas.h"
#include "backend/web/live_body.h"

namespace weir {

/// Gives events to any number of subscribers: each is encoded once, and nothing is done while nobody subscribes. The
/// hub is shared by its owner and the subscriptions.
class EventHub : public JournalReader, public std::enable_shared_from_this<EventHub> {
 public:
  static constexpr std::size_t max_subscribers = 400;

  explicit EventHub(FigureFeed feed) : feed_(std::move(feed)) {}
  ~EventHub() override { end(); }

  /// Begins to serve. The manager outlives the time until `end`.
  void start(const StreamManager& manager);
  /// Ends every subscription.
  void end();

  /// What a subscriber asks for.
  struct Wish {
    std::optional<std::vector<long long>> streams = {};  ///< ascending; nothing: all streams, and the server's events
    std::optional<std::uint64_t> last_number = {};       ///< of the journal, that the subscriber has seen
  };
  /// Null when there are too many.
  std::unique_ptr<LiveBody> subscribe(Wish wish);

  std::size_t subscribers() const noexcept { return subscribers_; }
  std::uint64_t lost_subscribers() const noexcept { return lost_; }

  void read(const JournalEntry& entry) override;

 private:
  class Subscription;

  static Async<> send_figures(std::shared_ptr<EventHub> self, const StreamManager& manager);
  Async<> send_figures_while_subscribed(const StreamManager& manager);
  static Async<> wake_subscribers(std::shared_ptr<EventHub> self);
  void announce();
  void add_subscriber();
  void remove_subscriber();
  bool keeps_entries();
  EventFramePointer snapshot();

  FigureFeed feed_;
  std::shared_ptr<void> seat_;  ///< while somebody subscribes
  FigureDeltas deltas_;
  EventRing entries_{{.frames = 2000, .bytes = 1 << 20}};  ///< of the journal: for those who come back, too
  EventRing figures_{{.frames = 6, .bytes = 4 << 20}};     ///< and heartbeats
  EventFramePointer snapshot_;                             ///< null when it has to be made anew
  std::optional<TimePoint> left_;                          ///< when the last subscriber left
  std::size_t subscribers_ = 0;
  std::uint64_t lost_ = 0;
  bool ended_ = false;
  bool has_news_ = false;
  WaitQueue waiting_;      ///< subscribers
  WaitQueue waker_waits_;  ///< the waker
  WaitQueue idle_;         ///< the sender of figures, for subscribers
  Task figures_task_;
  Task waker_;
};

}  // namespace weir
