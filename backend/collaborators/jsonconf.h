#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "backend/base/value.h"
#include "backend/collaborators/error.h"

namespace weir {

/// A JSON document kept in one file. Members are addressed by dotted keys: "input.0.url" is member "url" of member "0"
/// of member "input".
class JsonConf : public Error {
 public:
  /// Reads nothing; the document is empty.
  explicit JsonConf(std::string filename = {}, Error* error_handler = nullptr);
  ~JsonConf() override;

  /// Reads the document from the file. False with the reason as error message when the file cannot be read or holds no
  /// JSON object within the bounds of `parse_json`; the document is unchanged then.
  virtual bool load_json_conf();
  /// Applies a form, a mapping of dotted keys to values, in the order of its members: each value replaces or creates
  /// the member at its key, null is stored as null. On the way to a key null and absent members become mappings. False
  /// with the reason when a key has an empty segment or leads through any other value; the members before it have been
  /// applied then.
  virtual bool load_json_conf(const Value& form);

  /// The member at the key, null when it is absent. The reference holds until the document changes.
  const Value& get_json_conf(std::string_view key) const;
  /// The member at the key, `fallback` when it is absent; a member that is null is null.
  Value get_json_conf(std::string_view key, Value fallback) const;

  /// Replaces or creates the member, and mappings on the way to it. False with the reason as with a form.
  [[nodiscard]] bool set_json_conf(std::string_view key, Value value);
  /// Removes the member. True also when there was none.
  bool del_json_conf(std::string_view key);
  /// Replaces the file by the document as indented JSON. False with the reason when it cannot be written, or when the
  /// document is frozen or retired.
  bool save_json_conf();

  /// The whole document, a mapping.
  const Value& document() const noexcept { return *document_; }
  void replace_document(Value document);
  /// Moves the document out; an empty one stays.
  Value take_document();
  /// Another number after each change, and another in each document of the process: what was made of a document is
  /// still true while it is the same.
  std::uint64_t revision() const noexcept { return revision_; }

  /// The document of a deleted stream: its file is not written again.
  void retire() noexcept { retired_ = true; }
  bool retired() const noexcept { return retired_; }
  /// Refuses every further save of every document of the process: the files keep their content when the server ends.
  static void freeze_all(bool frozen) noexcept;

  std::string filename;

 private:
  Value* find(std::string_view key) const;
  void mark_changed() noexcept;

  std::unique_ptr<Value> document_;
  std::uint64_t revision_ = 0;
  bool retired_ = false;
};

}  // namespace weir
