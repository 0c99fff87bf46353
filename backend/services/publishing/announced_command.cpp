#include "backend/services/publishing/announced_command.h"

#include <utility>

namespace weir {

namespace {

class AnnouncedCommand : public FFmpeg {
 public:
  AnnouncedCommand(std::unique_ptr<FFmpeg> builder, const JsonConf& conf,
                   std::function<void(const JsonConf&)> before_launch)
      : builder_(std::move(builder)), conf_(conf), before_launch_(std::move(before_launch)) {
    take_results();
  }

  Async<bool> generate_command(bool probe) override {
    const bool made = co_await builder_->generate_command(probe);
    take_results();
    // Without a probe it is only a check.
    if (made && probe) before_launch_(conf_);
    co_return made;
  }

  void cleanup() override { builder_->cleanup(); }

 private:
  void take_results() {
    static_cast<FFmpeg&>(*this) = *builder_;
    command = std::move(builder_->command);  // some KB, for as long as the stream exists
  }

  std::unique_ptr<FFmpeg> builder_;
  const JsonConf& conf_;
  std::function<void(const JsonConf&)> before_launch_;
};

}  // namespace

decltype(Siblings::ffmpeg) announce_launches(decltype(Siblings::ffmpeg) make_builder,
                                             std::function<void(const JsonConf&)> before_launch) {
  return [make_builder = std::move(make_builder), before_launch = std::move(before_launch)](
             const JsonConf& conf, int input_index, Error* error_handler) -> std::unique_ptr<FFmpeg> {
    return std::make_unique<AnnouncedCommand>(make_builder(conf, input_index, error_handler), conf, before_launch);
  };
}

}  // namespace weir
