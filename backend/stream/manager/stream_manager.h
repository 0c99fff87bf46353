#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "backend/base/value.h"
#include "backend/collaborators/error.h"
#include "backend/platform/task.h"
#include "backend/stream/config/stream_config.h"
#include "backend/stream/runtime/stream.h"

namespace weir {

/// Whether the status word means that a supervision task is at work: "starting", "running" or "restarting".
bool is_active(const Value& status);

/// The registry of all streams and the one object through which the web layer reaches them.
///
/// Stream ids are JSON values as the caller has them: an integer, or a text holding one. Operations that fail are false
/// or null and leave the reason as the manager's last error message.
class StreamManager : public Error {
 public:
  StreamManager();
  ~StreamManager() override;

  // --- registry, files and start-up ---

  /// Creates the stream directory, loads every stream file and starts again what was active,
  /// `Config::RESTORE_INTERVAL` apart. False when the directory cannot be created. Failures that a file's load raises
  /// are passed on.
  Async<bool> init();
  /// Kills the batch-restart task, if one runs, and waits for its end.
  Async<> stop_thread();
  /// Starts what was active when the server last ran, `interval` seconds apart. Returns true.
  Async<bool> restore_streams(double interval = 3);
  /// The same for one stream, `delay` seconds from now. False when it was not active.
  static Async<bool> restore_stream(std::shared_ptr<Stream> stream, double delay);
  /// Whether the registry is in the order of the ids, which it keeps by itself: true.
  bool sort_streams();
  /// An empty document for a file of the stream directory.
  std::shared_ptr<StreamConfig> new_stream_config(const std::string& filename);
  /// Registers the stream of a stream file ("12.conf"); other names are skipped. False with the reason when it fails.
  virtual bool load_stream_from_file(const std::string& filename);
  /// The stream, or null with the reason.
  std::shared_ptr<Stream> get_stream(const Value& stream_id);
  /// Applies a form to the stream's document and writes its file. The stream runs on as it is.
  bool save_stream(const Value& stream_id, const Value& form);
  /// Creates a stream of a form. Its id is the `stream_next_id` of before the call.
  bool add_stream(const Value& form);
  /// Removes the stream and its file; refused while it is active.
  bool delete_stream(const Value& stream_id);

  // --- control ---

  // `by`: who asks, for the journal.
  Async<bool> start_stream(const Value& stream_id, std::string by = {});
  Async<bool> stop_stream(const Value& stream_id, std::string by = {});
  Async<bool> restart_stream(const Value& stream_id, std::string by = {});
  /// The log's text; nothing for a bad id.
  std::optional<std::string> get_stream_log(const Value& stream_id);
  bool delete_stream_log(const Value& stream_id);
  /// The live document; null for a bad id.
  std::shared_ptr<StreamConfig> get_stream_config(const Value& stream_id);
  /// See `StreamClientInfo::add` and `remove`.
  bool add_stream_client_info(const Value& stream_id, const Value& filename, const Value& addr, const Value& port,
                              const Value& timeout);
  bool remove_stream_client_info(const Value& stream_id, const Value& filename, const Value& addr, const Value& port);

  /// Starts the stopped ones, `interval` seconds apart. Returns true.
  Async<bool> batch_start_streams(std::vector<Value> stream_ids, double interval = 3, std::string by = {});
  /// Stops them all. Returns true.
  Async<bool> batch_stop_streams(std::vector<Value> stream_ids, std::string by = {});
  /// Restarts the active ones in a background task, `interval` seconds apart. With a `log_format`, which may hold the
  /// fields {id} and {label}, a line is logged for each. Returns true at once. A later batch call ends the task.
  Async<bool> batch_restart_streams(std::vector<Value> stream_ids, double interval = 3,
                                    std::optional<std::string> log_format = std::nullopt, std::string by = {});

  // --- queries ---

  /// The information record of a stream, false for a bad id; with null the records of all streams, ordered by id.
  Value get_stream_info(std::string_view host, const Value& stream_id);
  Value get_stream_info(std::string_view host);
  /// The record of one stream.
  static Value stream_info(const Stream& stream, std::string_view host);
  /// Numbers of streams per status; only of those on a graphics processor, if one is given. A stream whose status is
  /// none of the four words counts as "stopped".
  Value get_all_stream_stats(const Value& gpu);
  Value get_stream_name_list() const;
  std::vector<std::shared_ptr<Stream>> get_all_stream_by_profile_id(const Value& profile_id) const;
  /// The addresses of a stream's outputs; nothing for a bad id.
  std::optional<std::vector<std::string>> get_stream_output_urls(
      const Value& stream_id, std::string_view host,
      const std::optional<std::set<std::string>>& protocols = std::nullopt);
  std::vector<std::string> get_stream_output_urls(const StreamConfig& conf, std::string_view host,
                                                  const std::optional<std::set<std::string>>& protocols = std::nullopt);

  /// The streams that are registered now, held: for loops that wait.
  std::vector<std::shared_ptr<Stream>> all_streams() const;

  std::map<long long, std::shared_ptr<Stream>> streams;  ///< the registry, ascending by id
  long long stream_next_id = 0;                          ///< never decreases while the process runs
  Task thread;                                           ///< the batch-restart task, running or ended

 private:
  Async<> restart_each(std::vector<Value> stream_ids, double interval, std::optional<std::string> log_format,
                       std::string by);
};

/// The manager of the process: the first one that was made; null before.
extern StreamManager* stream_manager;

}  // namespace weir
