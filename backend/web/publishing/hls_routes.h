#pragma once

#include <functional>
#include <memory>
#include <string>

#include "backend/platform/async.h"
#include "backend/stream/manager/stream_manager.h"
#include "backend/web/publishing/hls_publisher.h"
#include "backend/web/publishing/viewers.h"
#include "backend/web/router.h"

namespace weir {

/// /{id}/{file}: the playlists and segments of the streams, to players on pages of any site. Counts who fetches them.
class HlsRoutes {
 public:
  /// Manager and windows outlive the routes.
  HlsRoutes(StreamManager& manager, HlsWindows& windows, std::shared_ptr<Viewers> viewers, DescribeFunction describe)
      : manager_(manager), windows_(windows), viewers_(std::move(viewers)), publisher_(windows, std::move(describe)) {}
  void add_to(Router& router);

  /// Removes what no viewer needs any more, every few seconds, and so does `also`. Runs until it is killed.
  Async<> clean_up(std::function<void()> also);

 private:
  /// A stream as viewers see it.
  struct Publication {
    long long id;
    std::shared_ptr<Stream> stream;  ///< null when it has been deleted
    bool active;
  };

  Async<Response> answer(std::string id, std::string name, Request request);
  Publication find(const std::string& id);
  Async<Response> read_playlist(Publication publication, std::string name);
  Response read_segment(const Publication& publication, const std::string& name, const Request& request);
  static bool is_master(const Publication& publication, const std::string& name);
  bool admit(const Publication& publication, const Request& request);

  StreamManager& manager_;
  HlsWindows& windows_;
  std::shared_ptr<Viewers> viewers_;
  HlsPublisher publisher_;
};

}  // namespace weir
