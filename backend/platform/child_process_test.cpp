#include "backend/platform/child_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "tests/support/temporary_directory.h"
#include "tests/support/test_loop.h"

namespace weir {
namespace {

using namespace std::chrono_literals;

class ChildProcessTest : public testing::Test {
 protected:
  /// What the program prints until it ends.
  std::string output_of(SpawnOptions options) {
    const OutputFile output(1 << 16);
    options.standard_output = output.fd();
    const auto child = spawn_child(options);
    EXPECT_TRUE(test::run_until(loop, [&] { return child->poll().has_value(); }, 20s));
    return output.content();
  }

  Loop loop;
};

TEST_F(ChildProcessTest, HoldsNoDescriptorButItsThreeAndTheEnvironmentThatItIsGiven) {
  const Descriptor leaked(::open("/dev/null", O_RDONLY));
  // The fourth is the listing's own.
  EXPECT_EQ(output_of({.command = {"ls", "/proc/self/fd"}, .environment = std::nullopt}), "0\n1\n2\n3\n");
  const std::vector<std::string> environment{"A=1", "B=" + std::string(10'000, 'x')};
  EXPECT_EQ(output_of({.command = {"/usr/bin/env"}, .environment = environment}),
            environment[0] + "\n" + environment[1] + "\n");
}

TEST_F(ChildProcessTest, AProgramThatCannotBeStartedIsNamedWithTheReason) {
  const test::TemporaryDirectory directory;
  const std::string path = directory.path() / "program";
  const std::tuple<std::string, mode_t, const char*> cases[] = {{"#!/bin/sh", 0600, "Permission denied"},
                                                                {"no program", 0700, "Exec format error"},
                                                                {"#!" + path + "x", 0700, "No such file or directory"}};
  for (const auto& [content, mode, reason] : cases) {
    std::ofstream(path) << content;
    ::chmod(path.c_str(), mode);
    try {
      spawn_child({.command = {path}, .environment = std::nullopt});
      ADD_FAILURE() << reason;
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.what(), path + ": " + reason);
    }
  }
}

TEST_F(ChildProcessTest, ACommandCannotPrintWithoutEnd) {
  const CommandResult result = test::run(loop, run_command({"sh", "-c", "yes | head -c 100000"}, 20.0, 1000));
  EXPECT_LE(result.standard_output.size(), 1000u);
}

}  // namespace
}  // namespace weir
