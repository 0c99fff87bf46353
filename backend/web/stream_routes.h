#pragma once

#include "backend/base/value.h"
#include "backend/platform/semaphore.h"
#include "backend/web/api/pending_changes.h"
#include "backend/web/log/stream_log.h"
#include "backend/web/router.h"
#include "backend/web/server_stream_manager.h"
#include "backend/web/stream_records.h"

namespace weir {

/// /api/streams: the streams and the operations on one of them.
class StreamRoutes {
 public:
  /// Both outlive the routes. `changes` is held while documents or profiles change.
  StreamRoutes(ServerStreamManager& manager, Semaphore& changes);
  void add_to(Router& router);

  // One stream of many: throw `HttpError`. `by`: the address that asks.

  /// Applies a form to a stream's document; returns the answer to PATCH.
  Async<Value> change_stream(Value id, Value posted, std::string if_match, std::string by);
  /// Removes the stream. `clean_up` has to follow.
  long long remove_stream(const Value& id, const std::string& if_match, std::string by);
  /// Replaces the whole document but the status. Throws `HttpError` with 500 when it can't be saved; it is replaced all
  /// the same.
  void replace_document(const Stream& stream, Value document);
  /// Sets a file aside that has the name of a stream to come.
  void make_room_for(const std::string& file);
  /// Forgets what was known of a deleted stream.
  void forget(long long id) { records_.forget(id); }
  /// Makes deletions durable and removes the streams' directories.
  static Async<> clean_up(std::vector<long long> ids);

  /// Shows one more member in the record of every stream.
  void add_record_member(RecordMember member) { records_.add_member(std::move(member)); }

 private:
  /// An operation of the manager on one stream.
  using Control = Async<bool> (StreamManager::*)(const Value& stream_id, std::string by);

  Async<Response> list(std::string host, std::vector<std::string> tags);
  Async<Response> list_broken_files();
  Response read(const Value& id, const std::string& host);
  Async<Response> add(Value posted, std::string by);
  Async<Response> copy(const Value& id, const Value& posted, std::string by);
  Async<Response> change(Value id, Value posted, std::string if_match, std::string by);
  Async<Response> remove(Value id, std::string if_match, std::string by);
  // What the same would do.
  Async<Response> preview_new(Value posted);
  Async<Response> preview_change(Value id, Value posted);
  Async<Response> control(Control operation, Value id, std::string by);
  Response read_log(const Request& request, const Value& id);
  static Response follow_log(std::shared_ptr<Stream> stream, LogView view, bool with_body);
  Response delete_log(const Value& id);
  Response read_config(const Value& id, Role role);
  Response read_urls(const Request& request, const Value& id);
  Response add_client(const Request& request, const Value& id);
  Response remove_client(const Request& request, const Value& id);

  /// Throws `HttpError` with 404.
  std::shared_ptr<Stream> find(const Value& id);
  void add_or_clean_up(const Value& form, const std::string& path);
  Async<bool> take_back(long long id);
  void save_or_restore(const Stream& stream, const Value& form);

  ServerStreamManager& manager_;
  StreamRecords records_;
  PendingChanges pending_;
  Semaphore& changes_;
};

}  // namespace weir
