#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "backend/base/log.h"
#include "backend/base/value.h"
#include "backend/collaborators/siblings.h"
#include "tests/support/scripted_child.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_loop.h"

namespace weir::test {

/// Everything around a stream, under the test's control: the clock, the directories, the transcoders, the sibling
/// services. One at a time; the real ones are out of reach meanwhile.
class FakeSiblings {
 public:
  FakeSiblings();
  ~FakeSiblings();

  TemporaryDirectory directory;
  TestLoop loop;

  // What the builders do.
  bool command_can_be_made = true;  ///< else `generate_command` fails with "no command"
  std::function<int(int)> choose_input = [](int requested) {
    return requested;
  };  ///< what a probing builder settles on
  std::vector<int> hls_list_sizes;

  // What the media information knows and was told.
  std::vector<std::string> parsed_lines;
  std::vector<StreamDescription> input_streams;
  std::map<std::string, bool> probe_answers;  ///< by arguments; false where absent
  std::vector<std::string> probes;
  std::chrono::seconds probe_duration{0};

  // Children, in the order of their launch.
  std::deque<std::shared_ptr<ChildScript>> children;
  std::function<void(ChildScript&)> on_launch;  ///< may throw: the program cannot be started

  // Graphics figures; null when unknown.
  Value& graphics_memory();

  /// Stores a profile of these members.
  void add_profile(long long id, Value members);
  ProfileRegistry& profiles();

  std::vector<std::string> log_lines;  ///< "level name: text"

  /// The latest child.
  ChildScript& child() { return *children.back(); }

 private:
  struct Services;
  std::unique_ptr<Services> services_;
};

/// A progress line as the transcoder prints it.
std::string progress_line(std::string_view time, std::string_view speed = "1.00x");

}  // namespace weir::test
