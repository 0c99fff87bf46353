#include "backend/collaborators/journal.h"

#include <algorithm>
#include <array>

#include "backend/base/log.h"
#include "backend/platform/failure.h"
#include "backend/platform/loop.h"

namespace weir {

namespace {

constexpr std::array<std::string_view, cause_count> cause_words{
    "exited",         "signalled", "not_launched", "no_input", "stalled",    "speed", "memory",
    "directory_lost", "timetable", "better_input", "operator", "server_end", "failed"};

constexpr std::array<std::string_view, journal_kind_count> kind_words{"status",  "started", "launched",  "running",
                                                                      "ended",   "stopped", "failed",    "added",
                                                                      "changed", "deleted", "set_aside", "notice"};

template <class Enum, std::size_t size>
std::optional<Enum> find_word(const std::array<std::string_view, size>& words, std::string_view word) {
  const auto found = std::ranges::find(words, word);
  if (found == words.end()) return std::nullopt;
  return static_cast<Enum>(found - words.begin());
}

}  // namespace

std::string_view to_word(Cause cause) { return cause_words[static_cast<std::size_t>(cause)]; }
std::optional<Cause> parse_cause(std::string_view word) { return find_word<Cause>(cause_words, word); }

std::string_view to_word(JournalKind kind) { return kind_words[static_cast<std::size_t>(kind)]; }
std::optional<JournalKind> parse_journal_kind(std::string_view word) {
  return find_word<JournalKind>(kind_words, word);
}

void Journal::record(JournalEntry entry) {
  entry.number = next_number_++;
  entry.time = Loop::current().clock().wall();
  for (JournalReader* reader : readers_) {
    try {
      reader->read(entry);
    } catch (const std::exception&) {
      log(LogLevel::error, "Journal", format_traceback(std::current_exception()));
    }
  }
}

JournalReader::JournalReader() { journal().readers_.push_back(this); }
JournalReader::~JournalReader() { std::erase(journal().readers_, this); }

Journal& journal() {
  static Journal instance;
  return instance;
}

}  // namespace weir
