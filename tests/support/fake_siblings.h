#pragma once

#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>

#include "backend/base/log.h"
#include "backend/base/text_form.h"
#include "backend/collaborators/config.h"
#include "backend/collaborators/journal_text.h"
#include "backend/collaborators/siblings.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"
#include "backend/services/profiles/profile_store.h"
#include "backend/services/publishing/publishing_port.h"
#include "tests/support/scripted_child.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_loop.h"

namespace weir::test {

/// Figures of every process.
struct FakeGraphics : NvidiaProcessManager {
  Value query_gpu(pid_t) override { return memory.is_null() ? Value() : Value(0); }
  Value query_dec(pid_t) override { return 1; }
  Value query_sm(pid_t) override { return 2; }
  Value query_enc(pid_t) override { return 3; }
  Value query_fb(pid_t) override { return memory; }

  Value memory;
};

/// Everything around a stream, under the test's control: the clock, the directories, the transcoders, the sibling
/// services. One at a time; the real ones are out of reach meanwhile.
class FakeSiblings {
 public:
  FakeSiblings();
  ~FakeSiblings();

  TemporaryDirectory directory;
  TestLoop loop;

  // What the builders do.
  bool command_can_be_made = true;                         ///< else `generate_command` fails with "no command"
  std::function<int(int)> choose_input = std::identity();  ///< what a probing builder settles on
  std::vector<int> hls_list_sizes;

  // What the media information knows and was told.
  std::vector<std::string> parsed_lines;
  std::vector<StreamDescription> input_streams;
  std::map<std::string, bool> probe_answers;  ///< by arguments; false where absent
  std::vector<std::string> probes;

  // Children, in the order of their launch.
  std::deque<std::shared_ptr<ChildScript>> children;
  std::function<void(ChildScript&)> on_launch;  ///< may throw: the program cannot be started

  Value& graphics_memory() { return graphics_.memory; }  ///< null when unknown

  ProfileStore profiles{directory.path() / "profiles"};
  /// Stores a profile of these members.
  void add_profile(long long id, Value members);

  std::vector<std::string> log_lines;  ///< "level name: text"
  std::vector<std::string> told;       ///< what the journal was told, in words, without status words and launches

  /// The latest child.
  ChildScript& child() { return *children.back(); }

 private:
  struct Told final : JournalReader {
    explicit Told(std::vector<std::string>& lines) : lines(lines) {}
    void read(const JournalEntry& entry) override {
      if (entry.kind != JournalKind::status && entry.kind != JournalKind::launched) lines.push_back(describe(entry));
    }
    std::vector<std::string>& lines;
  };

  Told told_reader_{told};
  PublishingPort port_;
  NginxManager nginx_{port_};
  FakeGraphics graphics_;
};

/// A progress line as the transcoder prints it.
std::string progress_line(std::string_view time, std::string_view speed = "1.00x");

}  // namespace weir::test
