#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "backend/base/value.h"
#include "backend/platform/async.h"
#include "backend/platform/timers.h"
#include "backend/stream/config/stream_config.h"

namespace weir {

/// The clients that watch the HLS and HTTP outputs of one run of a stream, per output file. Clients that were not heard
/// of for longer than their own timeout are forgotten, on the first second of the loop's time at which they are.
class StreamClientInfo final : private Timer {
 public:
  /// Tracks the outputs that the document has now. `conf` has to be a `StreamConfig` (checked as an assertion) and to
  /// outlive the registry.
  explicit StreamClientInfo(const JsonConf& conf);
  ~StreamClientInfo();
  StreamClientInfo(const StreamClientInfo&) = delete;
  StreamClientInfo& operator=(const StreamClientInfo&) = delete;

  /// A client fetched the file. An untracked file changes nothing. A client is named by address and port; the timeout,
  /// in seconds, counts when it is an integer and comes with the client's first fetch. Returns true; throws `TypeError`
  /// when address or port is given but no text.
  bool add(const Value& filename, const Value& addr, const Value& port, const Value& timeout);
  /// Forgets a client, named exactly as it was added. Returns true; throws `TypeError` as `add`.
  bool remove(const Value& filename, const Value& addr, const Value& port);

  /// Per tracked output, under its index: its protocol and its clients' addresses and durations in seconds, in order of
  /// first arrival. In order of the outputs.
  Value dumps() const;

  /// The number of clients, of all outputs together.
  std::size_t size() const;

  /// Forgets no further client by itself. Returns true.
  Async<bool> cleanup();

 private:
  struct Client;
  struct Output;

  Output* find_output(const Value& filename);
  void track(const StreamConfig& conf);
  void sweep_after(std::chrono::seconds wait);
  std::optional<std::chrono::seconds> expire_clients();
  void expire() override;
  void cancel_sweep();

  std::vector<Output> outputs_;
  std::optional<Timers::Entry> sweep_;  ///< none while no client can expire
};

}  // namespace weir
