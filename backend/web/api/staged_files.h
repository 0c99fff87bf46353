#pragma once

#include <set>
#include <string>

#include "backend/base/value.h"
#include "backend/platform/async.h"

namespace weir {

/// Files of documents that change together. The new ones are written beside the others first, so that a full disk is
/// met before anything changes: putting them in place, and taking that back, only renames. Until `commit` a record on
/// disk lists the files, by which the next start takes back what a killed server has left half done.
class StagedFiles {
 public:
  /// `record` is the file of the record; nothing else has its name, nor with ".done" behind it.
  explicit StagedFiles(std::string record) : record_(std::move(record)) {}
  /// Removes what lies beside, and the record.
  ~StagedFiles();
  StagedFiles(const StagedFiles&) = delete;
  StagedFiles& operator=(const StagedFiles&) = delete;

  /// Writes the record of all the files that are going to change. Throws `std::system_error`.
  void begin(std::set<std::string> files);
  /// Writes a document beside its file. Throws `HttpError` with 500.
  void stage(const std::string& file, const Value& document);
  /// Makes the record and what was staged durable. Throws `std::system_error`.
  Async<> sync();

  /// Puts the staged document in place. Throws `std::system_error`.
  void put(const std::string& file);
  /// Keeps a file that is going to be removed or written, if it exists. Throws `std::system_error`.
  void keep(const std::string& file);
  /// Brings back what was there before `put` or `keep`. Throws `std::system_error`.
  void take_back(const std::string& file);

  /// From now on the next start leaves the files as they are. Throws `std::system_error` before that.
  Async<> commit();

  /// Ends what a killed server has left, before any of the files is read: takes it back, or only removes what lies
  /// beside. True when it was taken back. Throws `std::system_error`, or `ValueError` for a record that can't be read.
  static bool recover(const std::string& record);

 private:
  const std::string record_;
  std::set<std::string> files_;
  std::set<std::string> staged_;
  std::set<std::string> kept_;
  std::set<std::string> put_;
};

}  // namespace weir
