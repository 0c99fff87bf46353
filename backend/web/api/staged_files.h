#pragma once

#include <set>
#include <string>

#include "backend/base/value.h"
#include "backend/platform/async.h"

namespace weir {

/// Files of documents that change together. The new ones are written beside the others first, so that a full disk is
/// met before anything changes: putting them in place, and taking that back, only renames.
class StagedFiles {
 public:
  StagedFiles() = default;
  /// Removes what lies beside.
  ~StagedFiles();
  StagedFiles(const StagedFiles&) = delete;
  StagedFiles& operator=(const StagedFiles&) = delete;

  /// Writes a document beside its file. Throws `HttpError` with 500.
  void stage(const std::string& file, const Value& document);
  /// Makes what was staged durable. Throws `std::system_error`.
  Async<> sync();

  /// Puts the staged document in place. Throws `std::system_error`.
  void put(const std::string& file);
  /// Keeps a file that is going to be removed, if it exists. Throws `std::system_error`.
  void keep(const std::string& file);
  /// Brings back what was there before `put` or `keep`. Throws `std::system_error`.
  void take_back(const std::string& file);

 private:
  std::set<std::string> staged_;
  std::set<std::string> kept_;
  std::set<std::string> put_;
};

}  // namespace weir
