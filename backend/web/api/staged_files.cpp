#include "backend/web/api/staged_files.h"

#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>

#include "backend/base/large_json.h"
#include "backend/base/text_form.h"
#include "backend/collaborators/jsonconf.h"
#include "backend/platform/files.h"
#include "backend/web/response.h"
#include "backend/web/sync.h"

namespace weir {

namespace fs = std::filesystem;

namespace {

std::string staged_name(const std::string& file) { return file + ".new"; }
std::string kept_name(const std::string& file) { return file + ".before"; }
std::string done_name(const std::string& record) { return record + ".done"; }

// Of a file that did not exist there is nothing to bring back.
void take_back_file(const std::string& file, bool existed) {
  if (fs::exists(kept_name(file)))
    fs::rename(kept_name(file), file);
  else if (!existed)
    fs::remove(file);
}

}  // namespace

StagedFiles::~StagedFiles() {
  std::error_code ignored;
  for (const std::string& file : staged_) fs::remove(staged_name(file), ignored);
  for (const std::string& file : kept_) fs::remove(kept_name(file), ignored);
  fs::remove(record_, ignored);
  fs::remove(done_name(record_), ignored);
}

void StagedFiles::begin(std::set<std::string> files) {
  files_ = std::move(files);
  Value list = Value::array();
  std::error_code ignored;
  for (const std::string& file : files_) {
    fs::remove(kept_name(file), ignored);  // of another time
    list.push_back({{"file", file}, {"existed", fs::exists(file)}});
  }
  replace_file(record_, to_json(list));
}

// As a document saves itself: what is saved again after `put` is the same text, and needs no room.
void StagedFiles::stage(const std::string& file, const Value& document) {
  staged_.insert(file);
  JsonConf beside(staged_name(file));
  beside.replace_document(document);
  if (!beside.save_json_conf()) throw HttpError(500, beside.get_error_msg());
}

Async<> StagedFiles::sync() {
  co_await sync_file(record_);
  for (const std::string& file : staged_) co_await sync_file(staged_name(file));
}

void StagedFiles::put(const std::string& file) {
  keep(file);
  fs::rename(staged_name(file), file);
  put_.insert(file);
}

void StagedFiles::keep(const std::string& file) {
  if (!fs::exists(file)) return;
  std::error_code no_links;
  fs::create_hard_link(file, kept_name(file), no_links);
  if (no_links) fs::copy_file(file, kept_name(file));
  kept_.insert(file);
}

void StagedFiles::take_back(const std::string& file) {
  if (kept_.contains(file) || put_.contains(file)) take_back_file(file, kept_.contains(file));
  kept_.erase(file);
}

Async<> StagedFiles::commit() {
  std::set<fs::path> directories;
  for (const std::string& file : files_) directories.insert(fs::path(file).parent_path());
  for (const fs::path& directory : directories) co_await sync_file(directory);
  fs::rename(record_, done_name(record_));
  co_await sync_or_log(fs::path(record_).parent_path());
}

bool StagedFiles::recover(const std::string& record) {
  const bool is_undone = fs::exists(record);
  const std::string path = is_undone ? record : done_name(record);
  if (!fs::exists(path)) return false;
  for (const Value& entry : parse_large_json(read_file(path, max_import_bytes))) {
    const auto file = entry.at("file").get<std::string>();
    if (is_undone) take_back_file(file, entry.at("existed").get<bool>());
    fs::remove(staged_name(file));
    fs::remove(kept_name(file));
  }
  fs::remove(path);
  return is_undone;
}

}  // namespace weir
