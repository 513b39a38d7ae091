// Text output, error lines and assertions.
#include "base/Console.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace kestro::base {
namespace {

TEST(Console, ErrorLinesShowPathsBelowTheRoot) {
  struct {
    char const* file;
    int offset;
    char const* shown;
  } const table[] = {
      {"common/Box.cpp", 0, "common/Box"},
      {"/home/dev/tree/common/Box.cpp", 15, "common/Box"},
      {"dir.d/Box", 0, "dir.d/Box"},
      {"dir.d/Box.tab.cpp", 0, "dir.d/Box.tab"},
      {"short.cpp", 100, ""},
      {"short.cpp", -1, "short"},
  };
  for (auto const& row : table) {
    ConsoleCapture console;
    __root_path_offset = row.offset;
    ErrorLine(row.file, 12, "Fill", "!io,no stream");
    __root_path_offset = 0;
    EXPECT_EQ(console.Text(),
              std::string("\033[31m") + row.shown + "/12/Fill:\t!io,no stream\n\033[0m");
  }
}

TEST(Console, LinesOfSeveralThreadsStayWhole) {
  ConsoleCapture console;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([] {
      for (int i = 0; i < 200; ++i) ErrorLineAt("a", 1, "f", "text");
    });
  for (auto& thread : threads) thread.join();
  std::string const line = "\033[31ma/1/f:\ttext\n\033[0m";
  std::string all;
  for (int i = 0; i < 800; ++i) all += line;
  EXPECT_TRUE(console.Text() == all);
}

TEST(ConsoleDeathTest, AssertionsStopEveryBuild) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(KESTRO_ASSERT(1 + 1 == 3), testing::KilledBySignal(SIGABRT),
              "^[-a-z]+: tests/host/ConsoleTest\\.cpp:[0-9]+: .*TestBody\\(\\): "
              "Assertion `1 \\+ 1 == 3' failed\\.\n");
}

}  // namespace
}  // namespace kestro::base
