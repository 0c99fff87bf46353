#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/base/value.h"
#include "backend/collaborators/error.h"
#include "backend/collaborators/siblings.h"
#include "backend/collaborators/utils.h"
#include "backend/platform/semaphore.h"
#include "backend/platform/sleep.h"
#include "backend/platform/task.h"
#include "backend/stream/clients/stream_client_info.h"
#include "backend/stream/config/stream_config.h"
#include "backend/stream/runtime/cycle.h"
#include "backend/stream/runtime/findings.h"
#include "backend/stream/runtime/stream_stats.h"

namespace weir {

/// One configured stream at run time: its document, the supervision task that launches its transcoder cycle after
/// cycle, the monitors of the current cycle, and the queries about it.
///
/// The status word is the document's member "status":
/// - "starting": the supervision task runs, no progress line yet
/// - "running": the transcoder makes progress
/// - "restarting": a cycle has ended and the next is due, or the loop is about to end
/// - "stopped": no supervision task
///
/// Shared by the registry, the supervision task and whoever waits inside one of the operations.
class Stream : public Error, public std::enable_shared_from_this<Stream> {
 public:
  /// Empties and creates the stream's working directories. Throws when that fails. `error_handler` outlives the stream.
  Stream(long long id, std::shared_ptr<StreamConfig> conf, Error* error_handler = nullptr);
  ~Stream() override;

  /// "Stream", the id and the label.
  std::string get_class_name() const override;
  LogFields get_log_fields() const override;

  /// The status word; null while the document has none.
  const Value& get_status() const;
  /// Stores the status in the document and saves it at once; a failed save is ignored.
  void set_status(std::string_view status);

  /// Spawns the supervision task, which launches after `delay` seconds. True when it runs after the call, also when it
  /// ran before; false with the reason when no command can be made of the document (unless `check_config` is false).
  /// `by`: who asked, for the journal.
  Async<bool> start(double delay = 0, bool check_config = true, std::string by = {});
  /// Asks the supervision task to end. Returns true without waiting for that.
  Async<bool> stop(std::string by = {});
  /// Asks the supervision task to end the cycle and to launch again at once, with this input. Returns true without
  /// waiting for that.
  Async<bool> restart(int input_next = 0, Reason reason = {});

  /// What `stop` and `restart` are made of: raises the exception in the supervision task, and sets the input of the
  /// next launch if one is given. Returns true.
  Async<bool> kill(Kill exception, std::optional<int> input_next = std::nullopt, Reason reason = {});

  /// Says that the transcoder makes progress.
  void tell_running();
  /// Says that the supervision failed, now or in the server before: it is started again.
  void tell_failed(std::string_view reason);

  /// Keeps what a probe told of an input, with the URL that the document gives it now.
  void note_input(InputAnswer answer);

  /// Whether the supervision task waits for the next launch's time.
  bool awaits_launch() const noexcept;
  /// Ends that wait: the launch follows at once.
  void launch_now() noexcept;

  /// Resource use of the transcoder; empty between runs. Figures that are not known are absent.
  Value get_process_info() const;
  /// Input and output URLs and the index of the input in use. `host`: see `StreamConfig::get_output_urls`.
  Value get_url_info(std::string_view host) const;
  /// Media streams of input and output.
  Value get_codec_info() const;
  /// The clients that watch the outputs: `StreamClientInfo::dumps`.
  Value get_client_info() const;

  /// Empties and creates the HLS and the MMCB directory. Throws when that fails.
  void cleanup_dirs() const;

  Semaphore lock{1};  ///< serialises start, kill, launch, clean-up and the change to "running"; not re-entrant

  const long long id;
  const std::shared_ptr<StreamConfig> conf;
  StandardBuffer stdbuf;  ///< the transcoder's output lines

  Task thread;               ///< the supervision task, or none
  std::vector<Task> spawns;  ///< the monitors of the current cycle, in spawn order
  std::unique_ptr<ChildProcess> proc;
  double delay = 0;    ///< seconds before the next cycle
  int input_next = 0;  ///< the input that the next launch asks for
  StreamStats stats;
  std::unique_ptr<FFmpeg> ffmpeg;  ///< the command builder of the current or last cycle
  std::unique_ptr<ProcessInfo> procinfo;
  std::unique_ptr<AVStreamInfo> streaminfo;
  std::unique_ptr<StreamClientInfo> clientinfo;
  Findings findings;                         ///< of the current cycle
  std::map<int, KnownInput> known_inputs;    ///< by index; what is not probed is not there
  std::unique_ptr<LineReader> stderr_lines;  ///< of `proc`; goes before it
  Cycle cycle;                               ///< the current or last one
  std::optional<JournalEntry> last_end;      ///< of a cycle
  std::optional<TimePoint> next_launch;      ///< while the supervision task waits for it

 private:
  // The supervision task; its monitors are in monitors.h.
  static Async<> supervise(std::shared_ptr<Stream> self);
  Async<> run();
  Async<> run_cycles(std::shared_ptr<const std::vector<std::string>> environment);
  Async<Reason> run_transcoder(std::shared_ptr<const std::vector<std::string>> environment);
  Async<> launch(std::shared_ptr<const std::vector<std::string>> environment);
  void spawn_monitors();
  Async<> clean_up_cycle();
  Async<> end_transcoder();
  Async<> drain_for_a_while();
  static Async<> drain_stderr(std::shared_ptr<Stream> self);
  Async<> sleep_until_launch();

  void note_reason(const Kill& exception, Reason reason);
  Reason take_reason();

  // What the journal is told.
  void tell(JournalEntry entry) const;
  JournalEntry describe_cycle(JournalKind kind) const;
  JournalEntry make_end(const Reason& reason) const;
  void tell_launched();
  void tell_launched_early(const Reason& reason) const;
  void tell_ended(JournalEntry end, bool goes_on);
  void tell_stopped(const Reason& reason, std::optional<double> on_air = std::nullopt);
  std::string find_error() const;

  SleepWait* launch_delay_ = nullptr;  ///< the wait that the supervision task is in
  std::optional<Reason> reason_;       ///< of the kill that is on its way to the supervision task
  int reason_rank_ = 0;                ///< of that kill
  int failures_ = 0;                   ///< of the supervision since the last progress
};

}  // namespace weir
