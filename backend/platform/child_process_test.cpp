#include "backend/platform/child_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include "backend/platform/failure.h"
#include "backend/platform/line_reader.h"
#include "backend/platform/loop.h"
#include "backend/platform/process_info.h"
#include "backend/platform/task.h"

namespace weir {
namespace {

using namespace std::chrono_literals;

class ChildProcessTest : public testing::Test {
 protected:
  static std::unique_ptr<ChildProcess> start(std::vector<std::string> command) {
    SpawnOptions options{.command = std::move(command), .environment = std::nullopt};
    options.before_exec = lead_group_and_die_with_parent;
    return spawn_child(options);
  }

  static Async<> run_to_end(ChildProcess& child, std::string& output, std::optional<int>& status) {
    LineReader reader(child.stderr_fd());
    while (auto line = co_await reader.next()) output += *line;
    status = co_await child.wait();
    child.reap();
  }

  std::string output_of(std::vector<std::string> command, std::optional<int>& status) {
    std::string output;
    const auto child = start(std::move(command));
    spawn("test", run_to_end(*child, output, status));
    EXPECT_TRUE(loop.run_until([&] { return status.has_value(); }, 20s));
    return output;
  }

  static bool is_alive(pid_t pid) { return ::kill(pid, 0) == 0; }

  Loop loop;
};

TEST_F(ChildProcessTest, TellsOutputAndHowItEnded) {
  std::optional<int> status;
  EXPECT_EQ(output_of({"sh", "-c", "echo news >&2; exit 7"}, status), "news\n");
  EXPECT_EQ(status, 7);
  status.reset();
  output_of({"sh", "-c", "kill -9 $$"}, status);
  EXPECT_EQ(status, -SIGKILL);
}

TEST_F(ChildProcessTest, HoldsNoDescriptorButItsThree) {
  const int leaked = ::open("/dev/null", O_RDONLY);
  std::optional<int> status;
  // The fourth is the listing's own.
  EXPECT_EQ(output_of({"sh", "-c", "ls /proc/self/fd | tr '\\n' ' ' >&2"}, status), "0 1 2 3 ");
  ::close(leaked);
}

TEST_F(ChildProcessTest, GetsTheEnvironmentThatItIsGiven) {
  SpawnOptions options{.command = {"/usr/bin/env"}, .environment = std::vector<std::string>()};
  std::string expected;
  for (int i = 0; i < 50; ++i) {
    options.environment->push_back("A_VARIABLE_WITH_A_LONG_NAME_" + std::to_string(i) + "=and a long value");
    expected += options.environment->back() + "\n";
  }
  char path[] = "/tmp/weir-test-XXXXXX";
  const Descriptor output(::mkstemp(path));
  ::unlink(path);
  options.standard_output = output.get();
  const auto child = spawn_child(options);
  ASSERT_TRUE(loop.run_until([&] { return child->poll().has_value(); }, 20s));
  std::string printed(expected.size() + 1, '\0');
  printed.resize(static_cast<std::size_t>(::pread(output.get(), printed.data(), printed.size(), 0)));
  EXPECT_EQ(printed, expected);
}

TEST_F(ChildProcessTest, DestructionKillsAndReaps) {
  pid_t pid = 0;
  {
    const auto child = start({"sleep", "1000"});
    pid = child->pid();
    EXPECT_FALSE(child->poll());
  }
  EXPECT_TRUE(loop.run_until([&] { return !is_alive(pid); }, 20s));
}

TEST_F(ChildProcessTest, RunCommandCollectsBoundedOutputsAndGivesUpInTime) {
  CommandResult large;
  CommandResult slow;
  const auto body = [](CommandResult& first, CommandResult& second) -> Async<> {
    first = co_await run_command({"sh", "-c", "printf err >&2; yes | head -c 100000"}, 20.0, 1000);
    second = co_await run_command({"sh", "-c", "printf early; sleep 1000"}, 0.2);
  };
  const Task task = spawn("test", body(large, slow));
  ASSERT_TRUE(loop.run_until([&] { return task.dead(); }, 20s));
  EXPECT_LE(large.standard_output.size(), 1000u);
  EXPECT_TRUE(large.standard_error.starts_with("err")) << large.standard_error;
  EXPECT_TRUE(slow.timed_out);
  EXPECT_EQ(slow.standard_output, "early");
}

TEST_F(ChildProcessTest, ProcessInformationEndsWithTheProcess) {
  const auto child = start({"sleep", "1000"});
  Process process(child->pid());
  EXPECT_EQ(process.cpu_percent(), 0.0);
  EXPECT_GT(process.memory_info().rss, 0u);
  child->signal_group(SIGKILL);
  ASSERT_TRUE(loop.run_until([&] { return child->poll().has_value(); }, 20s));
  EXPECT_THROW(process.memory_info(), NoSuchProcess);
  child->reap();
  EXPECT_THROW(process.cpu_percent(), NoSuchProcess);
  EXPECT_THROW(Process(child->pid()), NoSuchProcess);
}

}  // namespace
}  // namespace weir
