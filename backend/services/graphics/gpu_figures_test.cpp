#include "backend/services/graphics/gpu_figures.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/support/test_loop.h"

namespace weir {
namespace {

struct ScriptedSource : GpuSource {
  explicit ScriptedSource(int& count) : reads(count) {}
  std::vector<GpuProcess> read() override {
    const unsigned figure = static_cast<unsigned>(++reads);
    return {{.pid = 7, .gpu = 1, .sm = figure, .encoder = 0, .decoder = std::nullopt, .memory_mib = 300},
            {.pid = 7, .gpu = 2, .sm = 0, .encoder = std::nullopt, .decoder = std::nullopt, .memory_mib = 40}};
  }

  int& reads;
};

TEST(GpuFigures, AreReadOnceASecondForAllProcesses) {
  test::TestLoop loop;
  int reads = 0;
  GpuFigures figures(std::make_unique<ScriptedSource>(reads));
  EXPECT_EQ(figures.query_gpu(7), 1);
  EXPECT_EQ(figures.query_sm(7), 1);
  EXPECT_EQ(figures.query_enc(7), 0);
  EXPECT_EQ(figures.query_dec(7), nullptr);
  EXPECT_EQ(figures.query_fb(7), 340);
  EXPECT_EQ(figures.query_gpu(8), nullptr);
  EXPECT_EQ(reads, 1);
  loop.advance(std::chrono::seconds(1));
  EXPECT_EQ(figures.query_sm(7), 2);
}

}  // namespace
}  // namespace weir
