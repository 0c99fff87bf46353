#pragma once

#include <memory>
#include <string>
#include <unordered_map>

#include "backend/platform/clock.h"
#include "backend/platform/semaphore.h"
#include "backend/stream/manager/stream_manager.h"
#include "backend/web/publishing/hls_windows.h"
#include "backend/web/router.h"

namespace weir {

/// /api/streams/{id}/thumbnail.jpg: a small picture of what viewers of a stream's HLS output see. One is made when
/// somebody asks, of a keyframe of the newest segment, and shown for 10 s. The server runs one program for it at a
/// time.
class Thumbnails {
 public:
  /// Both outlive this.
  Thumbnails(StreamManager& manager, HlsWindows& windows) : manager_(manager), windows_(windows) {}
  void add_to(Router& router);

  /// Whether a picture can be expected of the stream.
  bool has_picture(const Stream& stream) const;
  static std::string address(const Stream& stream);
  /// Drops the pictures that nobody has asked for lately.
  void forget_unused();

  static constexpr std::chrono::seconds shown_for{10};
  static constexpr std::chrono::seconds kept_for{60};
  static constexpr int max_waiting = 200;  ///< requests

 private:
  struct Picture {
    std::string segment;  ///< its path
    std::string jpeg;
    std::string failure;  ///< why there is no picture
    TimePoint made_at;
    TimePoint asked_at;
  };

  Async<Response> answer(std::string id);
  Async<std::shared_ptr<const Picture>> picture(long long id);
  std::shared_ptr<const Picture> find_fresh(long long id);
  Async<Picture> make(std::string segment) const;
  std::string find_segment(long long id) const;

  StreamManager& manager_;
  HlsWindows& windows_;
  Semaphore making_{1};
  int waiting_ = 0;
  std::unordered_map<long long, std::shared_ptr<Picture>> pictures_;
};

}  // namespace weir
