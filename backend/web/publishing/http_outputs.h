#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "backend/collaborators/jsonconf.h"
#include "backend/platform/task.h"
#include "backend/stream/manager/stream_manager.h"
#include "backend/web/publishing/http_output.h"
#include "backend/web/publishing/viewers.h"
#include "backend/web/router.h"

namespace weir {

/// /stream/{id}/{filename}: the live bytes of the streams' "http" outputs, to any number of viewers.
class HttpOutputs {
 public:
  /// The manager outlives this.
  HttpOutputs(StreamManager& manager, std::shared_ptr<Viewers> viewers)
      : manager_(manager), viewers_(std::move(viewers)) {}
  ~HttpOutputs();
  HttpOutputs(const HttpOutputs&) = delete;
  HttpOutputs& operator=(const HttpOutputs&) = delete;

  void add_to(Router& router);
  /// Waits for the transcoder that is about to be launched for this document. An output that can't be published is
  /// logged; the others go on.
  void prepare_run(const JsonConf& conf);

 private:
  using Key = std::pair<long long, std::string>;  ///< stream and file name

  Response answer(const Request& request, const PathParameters& parameters);
  /// Null when there are too many viewers.
  std::unique_ptr<HttpViewer> admit(const Key& key, const std::shared_ptr<HttpOutput>& output, HttpClient client);
  void add_client(const Key& key, const HttpViewer& viewer);
  HttpOutput& output_for(const Key& key, std::string format);
  void prepare_output(const Key& key, const Value& output, const std::string& socket);
  void end_other_outputs(long long stream, const JsonConf& conf);
  bool is_transcoder(long long stream, pid_t process) const;
  bool is_on_air(long long stream) const;
  Async<> end_silent_outputs();

  StreamManager& manager_;
  std::shared_ptr<Viewers> viewers_;
  std::map<Key, std::shared_ptr<HttpOutput>> outputs_;
  Task sweeper_;
};

}  // namespace weir
