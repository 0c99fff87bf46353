#include <fmt/format.h>

#include <array>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "backend/base/log.h"
#include "backend/collaborators/journal.h"
#include "backend/stream/manager/stream_file.h"
#include "backend/web/api/import.h"
#include "backend/web/sync.h"

namespace weir {

namespace {

// The file that a stream has, or is going to have.
std::string path_of(const StreamManager& manager, long long id) {
  const auto present = manager.streams.find(id);
  return present == manager.streams.end() ? stream_file_path(stream_file_name(id)) : present->second->conf->filename;
}

std::string record_path() { return stream_file_path("import.record"); }

}  // namespace

Import::Import(Targets targets, bool replaces) : to_(targets), replaces_(replaces), files_(record_path()) {}

void Import::recover() {
  if (StagedFiles::recover(record_path()))
    log(LogLevel::warning, "Web", "An import that was under way when the server was killed is taken back");
}

Async<> Import::apply(std::string by) {
  std::string failure;
  try {
    co_await stage();
    co_await put_all();
    replace_webhooks();
    co_await files_.commit();
  } catch (const std::exception& error) {
    failure = error.what();
  }
  if (!failure.empty()) {
    const std::string left = roll_back();
    co_await clean_up_taken_back();
    throw HttpError(500, left.empty() ? "Nothing was imported: " + failure
                                      : fmt::format("The import failed: {}. Not taken back: {}", failure, left));
  }
  undo_.clear();
  co_await finish(std::move(by));
}

Async<> Import::stage() {
  for (const auto& [id, document] : streams_)
    if (!to_.manager.streams.contains(id)) to_.streams.make_room_for(stream_file_name(id));
  files_.begin(list_files());
  for (const auto& [id, draft] : profiles_) files_.stage(to_.profiles.path(id), draft->content());
  for (const auto& [id, document] : streams_) {
    Value staged = document;
    const auto present = to_.manager.streams.find(id);
    staged["status"] = present == to_.manager.streams.end() ? Value("stopped") : present->second->get_status();
    files_.stage(path_of(to_.manager, id), staged);
    co_await yield_to_others();
  }
  co_await files_.sync();
}

std::set<std::string> Import::list_files() const {
  std::set<std::string> files;
  for (const auto& [id, kind] : stream_changes_)
    if (kind != Kind::unchanged) files.insert(path_of(to_.manager, id));
  for (const auto& [id, kind] : profile_changes_) {
    if (kind == Kind::unchanged) continue;
    files.insert(to_.profiles.path(id));
    files.insert(to_.profiles.draft_path(id));
  }
  if (!to_.webhooks.file().empty()) files.insert(to_.webhooks.file());
  return files;
}

// Profiles first: the streams are loaded with them.
Async<> Import::put_all() {
  for (const auto& [id, draft] : profiles_) put_profile(draft);
  for (auto& [id, document] : streams_) {
    put_stream(id, document);
    co_await yield_to_others();
  }
  for (const auto& [id, kind] : stream_changes_) {
    if (kind != Kind::removed || !to_.manager.streams.contains(id)) continue;
    remove_stream(id);
    co_await yield_to_others();
  }
  for (const auto& [id, kind] : profile_changes_)
    if (kind == Kind::removed) remove_profile(id);
}

void Import::put_profile(const std::shared_ptr<ProfileDraft>& draft) {
  const long long id = draft->id();
  const std::string file = to_.profiles.path(id);
  undo_.push_back({fmt::format("profile {}", id),
                   [this, id, file, before = to_.profiles.stored(id), kept = to_.profiles.kept_draft(id)] {
                     if (!before) to_.profiles.remove(id);
                     files_.take_back(file);
                     files_.take_back(to_.profiles.draft_path(id));
                     if (before && !to_.profiles.store(before)) throw HttpError(500, to_.profiles.get_error_msg());
                     if (kept && !to_.profiles.keep(kept)) throw HttpError(500, to_.profiles.get_error_msg());
                   }});
  files_.keep(to_.profiles.draft_path(id));
  files_.put(file);
  if (!to_.profiles.store(draft) || !to_.profiles.drop_draft(id)) throw HttpError(500, to_.profiles.get_error_msg());
}

void Import::remove_profile(long long id) {
  const std::string file = to_.profiles.path(id);
  undo_.push_back({fmt::format("profile {}", id),
                   [this, id, file, before = to_.profiles.stored(id), draft = to_.profiles.kept_draft(id)] {
                     files_.take_back(file);
                     files_.take_back(to_.profiles.draft_path(id));
                     if (!to_.profiles.store(before) || (draft && !to_.profiles.keep(draft)))
                       throw HttpError(500, to_.profiles.get_error_msg());
                   }});
  files_.keep(file);
  files_.keep(to_.profiles.draft_path(id));
  if (!to_.profiles.remove(id)) throw HttpError(500, to_.profiles.get_error_msg());
}

void Import::replace_webhooks() {
  const std::string file = to_.webhooks.file();
  undo_.push_back({"webhooks", [this, file, before = to_.webhooks.stored()] {
                     files_.take_back(file);
                     to_.webhooks.replace(before);
                   }});
  files_.keep(file);
  to_.webhooks.replace(webhooks_);
}

void Import::put_stream(long long id, Value document) {
  const std::string name = fmt::format("stream {}", id);
  const std::string file = path_of(to_.manager, id);
  const auto present = to_.manager.streams.find(id);
  if (present == to_.manager.streams.end()) {
    undo_.push_back({name, [this, id, file] {
                       const bool is_left = to_.manager.streams.contains(id) && !to_.manager.delete_stream(id);
                       if (is_left) throw HttpError(409, to_.manager.get_error_msg());
                       files_.take_back(file);
                     }});
    files_.put(file);
    if (!to_.manager.load_stream_from_file(stream_file_name(id))) throw HttpError(500, to_.manager.get_error_msg());
    return;
  }
  const std::shared_ptr<Stream> stream = present->second;
  undo_.push_back({name, [this, stream, file, before = stream->conf->document()] {
                     files_.take_back(file);
                     to_.streams.replace_document(*stream, before);
                   }});
  files_.put(file);
  to_.streams.replace_document(*stream, std::move(document));
}

void Import::remove_stream(long long id) {
  const std::string file = path_of(to_.manager, id);
  undo_.push_back({fmt::format("stream {}", id), [this, id, file] {
                     files_.take_back(file);
                     const bool is_back = to_.manager.streams.contains(id) ||
                                          to_.manager.load_stream_from_file(std::filesystem::path(file).filename());
                     if (!is_back) throw HttpError(500, to_.manager.get_error_msg());
                   }});
  files_.keep(file);
  if (!to_.manager.delete_stream(id)) throw HttpError(500, to_.manager.get_error_msg());
}

// What could not be taken back.
std::string Import::roll_back() {
  std::string left;
  while (!undo_.empty()) {
    const Undo undo = std::move(undo_.back());
    undo_.pop_back();
    try {
      undo.run();
    } catch (const std::exception& failure) {
      const std::string line = fmt::format("{}: {}", undo.name, failure.what());
      log(LogLevel::error, "Web", "Not taken back of an import: " + line);
      left += left.empty() ? line : "; " + line;
    }
  }
  return left;
}

// A stream makes its directories when it is loaded.
Async<> Import::clean_up_taken_back() const {
  std::vector<long long> gone;
  for (const auto& [id, kind] : stream_changes_)
    if (kind == Kind::added && !to_.manager.streams.contains(id)) gone.push_back(id);
  co_await StreamRoutes::clean_up(std::move(gone));
}

// Nothing fails any more.
Async<> Import::finish(std::string by) {
  constexpr std::array kinds{JournalKind::added, JournalKind::changed, JournalKind::deleted};
  const auto tell = [&](Kind kind, std::optional<long long> stream, std::string text) {
    if (kind == Kind::unchanged) return;
    journal().record(
        {.kind = kinds.at(static_cast<std::size_t>(kind)), .stream_id = stream, .by = by, .text = std::move(text)});
  };
  std::vector<long long> removed;
  for (const auto& [id, kind] : stream_changes_) {
    tell(kind, id, "import");
    if (kind != Kind::removed) continue;
    to_.streams.forget(id);
    removed.push_back(id);
  }
  for (const auto& [id, kind] : profile_changes_) tell(kind, std::nullopt, fmt::format("profile {} (import)", id));
  for (const auto& [id, kind] : webhook_changes_) tell(kind, std::nullopt, fmt::format("webhook {} (import)", id));
  co_await StreamRoutes::clean_up(std::move(removed));
}

}  // namespace weir
