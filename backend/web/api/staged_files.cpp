#include "backend/web/api/staged_files.h"

#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>

#include "backend/collaborators/jsonconf.h"
#include "backend/platform/files.h"
#include "backend/web/response.h"

namespace weir {

namespace fs = std::filesystem;

namespace {

std::string staged_name(const std::string& file) { return file + ".new"; }
std::string kept_name(const std::string& file) { return file + ".before"; }

}  // namespace

StagedFiles::~StagedFiles() {
  std::error_code ignored;
  for (const std::string& file : staged_) fs::remove(staged_name(file), ignored);
  for (const std::string& file : kept_) fs::remove(kept_name(file), ignored);
}

// As a document saves itself: what is saved again after `put` is the same text, and needs no room.
void StagedFiles::stage(const std::string& file, const Value& document) {
  staged_.insert(file);
  JsonConf beside(staged_name(file));
  beside.replace_document(document);
  if (!beside.save_json_conf()) throw HttpError(500, beside.get_error_msg());
}

Async<> StagedFiles::sync() {
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
  fs::remove(kept_name(file));
  fs::create_hard_link(file, kept_name(file), no_links);
  if (no_links) fs::copy_file(file, kept_name(file));
  kept_.insert(file);
}

void StagedFiles::take_back(const std::string& file) {
  if (kept_.contains(file)) {
    fs::rename(kept_name(file), file);
    kept_.erase(file);
  } else if (put_.contains(file)) {
    fs::remove(file);
  }
}

}  // namespace weir
