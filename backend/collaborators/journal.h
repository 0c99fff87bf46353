#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/platform/clock.h"

namespace weir {

/// Why a cycle of a stream ended. `to_word` gives the word under which the API, the metrics and the log show it.
enum class Cause {
  exited,          ///< the transcoder ended by itself with an exit code
  signalled,       ///< a signal that the server did not send ended the transcoder
  not_launched,    ///< no command could be made, or the program could not be started
  no_input,        ///< no input answered
  stalled,         ///< the media time stood still
  speed,           ///< the speed stayed outside its band
  memory,          ///< system or graphics memory outgrew its limit
  directory_lost,  ///< the HLS directory was removed
  timetable,       ///< the stream's timetable asked for a restart
  better_input,    ///< an input of higher priority answered again
  operator_asked,  ///< somebody stopped or restarted the stream: "operator"
  server_end,      ///< the server ended
  failed,          ///< the supervision itself failed
};
inline constexpr int cause_count = 13;
std::string_view to_word(Cause cause);
std::optional<Cause> parse_cause(std::string_view word);

enum class JournalKind {
  status,    ///< the status word changed: `text` is the new one
  started,   ///< the supervision task was started: `by` whom
  launched,  ///< a cycle's transcoder was launched: `cycle`, `input`, `process`
  running,   ///< its first progress; the same fields, and `cycle_seconds` since the launch
  ended,  ///< a cycle ended: all fields of a cycle, `cause`, `text` the transcoder's last error line or what was wrong
  stopped,    ///< the supervision task ended and the stream is off the air: `cause`, `by`, `on_air_seconds` of its last
              ///< cycle
  failed,     ///< the supervision could not go on: `text` why, `retry_seconds` until the server starts the stream again
  added,      ///< a stream was created: `by`
  changed,    ///< a document was changed: `by`, `text` the keys
  deleted,    ///< a stream was deleted: `by`
  set_aside,  ///< a stream file cannot be used: `text` its name and the reason
  notice,     ///< anything else that an operator should know: `text`
};
inline constexpr int journal_kind_count = 12;
std::string_view to_word(JournalKind kind);
std::optional<JournalKind> parse_journal_kind(std::string_view word);

/// One event in the life of a stream or of the server. Texts are as they came: whoever shows them masks passwords.
struct JournalEntry {
  std::uint64_t number = 0;  ///< ascending, also over restarts of the server; set by the journal
  WallTime time = {};        ///< set by the journal
  JournalKind kind = JournalKind::notice;
  std::optional<long long> stream_id = {};  ///< nothing: it concerns the server
  std::string label = {};                   ///< the stream's

  std::optional<long long> cycle = {};  ///< number of the cycle, from 1 on since the stream was loaded
  std::optional<int> input = {};        ///< index of the input in use
  std::optional<pid_t> process = {};    ///< the transcoder
  std::optional<Cause> cause = {};
  std::optional<int> exit_status = {};        ///< exit code, or the negative number of the signal
  std::optional<double> cycle_seconds = {};   ///< since the launch; 0 for a cycle that launched nothing
  std::optional<double> on_air_seconds = {};  ///< since the first progress; 0 without progress
  std::optional<double> retry_seconds = {};   ///< until the next launch, as planned

  std::string by = {};    ///< who asked: an address, "schedule", "server start" …; empty where nobody did
  std::string text = {};  ///< see the kinds; bounded by whoever tells it
};

class JournalReader;

/// What happens to streams is told here once, where it happens. Log, history, events, webhooks and metrics read it.
class Journal {
 public:
  /// Gives the entry its number and time and hands it to every reader.
  void record(JournalEntry entry);
  /// The next entry gets this number.
  void continue_from(std::uint64_t number) noexcept { next_number_ = number; }
  std::uint64_t next_number() const noexcept { return next_number_; }

 private:
  friend class JournalReader;
  std::vector<JournalReader*> readers_;
  std::uint64_t next_number_ = 1;
};

/// Reads every entry of the process's journal for as long as it lives.
class JournalReader {
 public:
  JournalReader();
  JournalReader(const JournalReader&) = delete;
  JournalReader& operator=(const JournalReader&) = delete;

  /// Is called where the event happens, in the middle of an operation on the stream: it must be quick, must not wait,
  /// change streams or record. What it throws is logged.
  virtual void read(const JournalEntry& entry) = 0;

 protected:
  virtual ~JournalReader();
};

/// The one of the process.
Journal& journal();

}  // namespace weir
