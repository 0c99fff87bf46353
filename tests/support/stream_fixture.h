#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

#include "backend/stream/runtime/stream.h"
#include "tests/support/fake_siblings.h"

namespace weir::test {

/// One stream with three inputs and an HLS output, id 7, labelled Lobby, whose transcoder the test scripts.
class StreamFixture : public testing::Test {
 protected:
  StreamFixture();

  std::string status() const;
  /// Starts the stream; its transcoder is launched when time moves.
  void start();
  /// Starts it and lets its transcoder print a first progress line.
  void run_to_first_progress();
  /// The transcoder prints, and the stream reads.
  void say(std::string_view text);
  bool logged(std::string_view text) const;
  std::size_t launches() const { return world.children.size(); }

  FakeSiblings world;
  std::shared_ptr<StreamConfig> conf;
  std::shared_ptr<Stream> stream;
};

}  // namespace weir::test
