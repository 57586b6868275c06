// Arithmetic over time: pacing, latency statistics, the progress bar. No test sleeps.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>

#include "device/latencies.h"
#include "media/pacer.h"
#include "terminal/progress.h"

namespace OX::test {
namespace {

using namespace cli;
using std::chrono::milliseconds;

TEST(Pacer, FramesAreDueInTimeAndLateOnesAreDropped) {
  const OXPacer::Time start(std::chrono::hours(5));
  OXPacer pacer(start, 10);
  EXPECT_EQ(pacer.due(), start);
  EXPECT_EQ(pacer.start(start + milliseconds(99)), 0) << "late, but within its slot";
  EXPECT_EQ(pacer.due(), start + milliseconds(100)) << "lateness doesn't add up";
  EXPECT_EQ(pacer.start(start + milliseconds(450)), 3) << "slots 1, 2 and 3 have gone by";
  EXPECT_EQ(pacer.due(), start + milliseconds(500));

  pacer.setFps(20);
  EXPECT_EQ(pacer.due(), start + milliseconds(500)) << "a new rate moves no frame that is due";
  EXPECT_EQ(pacer.start(start + milliseconds(500)), 0);
  EXPECT_EQ(pacer.due(), start + milliseconds(550));
}

TEST(Pacer, DoesNotDriftInHours) {
  const OXPacer::Time start{};
  OXPacer pacer(start, 30);
  for (int i = 0; i < 30 * 3600; ++i) ASSERT_EQ(pacer.start(pacer.due()), 0) << i;
  EXPECT_NEAR(std::chrono::duration<double>(pacer.due() - start).count(), 3600, 1e-6);
}

TEST(Latencies, PercentilesAreWithinOnePerCent) {
  std::mt19937 random(7);
  std::lognormal_distribution<double> durations(0.5, 1.0);
  std::vector<double> values;
  OXLatencies latencies;
  for (int i = 0; i < 5000; ++i) {
    values.push_back(durations(random) / 1000);
    latencies.add(values.back());
  }
  std::sort(values.begin(), values.end());
  for (const double part : {0.01, 0.5, 0.9, 0.99, 1.0}) {
    const double exact = values[static_cast<std::size_t>(std::ceil(part * 5000)) - 1];
    EXPECT_NEAR(latencies.percentile(part), exact, exact * 0.01) << part;
  }
}

TEST(Latencies, TheEndsHold) {
  OXLatencies latencies;
  EXPECT_EQ(latencies.median(), 0) << "nothing yet";
  latencies.add(0);
  EXPECT_NEAR(latencies.median(), 1e-6, 1e-8) << "what is too small counts as the smallest";
  latencies.clear();
  latencies.add(1e9);
  EXPECT_GT(latencies.median(), 300) << "what is too large as the largest";
  EXPECT_EQ(latencies.count(), 1);
}

TEST(Progress, BarsFitTheTerminal) {
  const struct {
    std::int64_t done, total;
    const char* remark;
    int columns;
    const char* line;
    const char* why;
  } rows[] = {
      {15, 30, "ok", 80, "push [###############...............]  50 % 15/30 ok", "room for all"},
      {40, 30, "", 80, "push [##############################] 100 % 40/30", "more than expected"},
      {15, 30, "ok", 40, "push [########.........]  50 % 15/30 ok", "a shorter bar"},
      {15, 30, "320x240 15 fps", 40, "push [##########..........]  50 % 15/30", "no remark"},
      {15, 30, "ok", 24, "push  50 % 15/30", "no bar"},
      {15, 30, "ok", 10, "push  50 ", "cut off"},
      {15, 0, "ok", 80, "push 15 ok", "no end known"},
      {15, 0, "ok", 7, "push 1", "no end known, cut off"},
  };
  for (const auto& row : rows) {
    const std::string line =
        OXProgress::render("push", row.done, row.total, row.remark, row.columns);
    EXPECT_EQ(line, row.line) << row.why;
    EXPECT_LT(line.size(), static_cast<std::size_t>(row.columns)) << "it would wrap and scroll";
  }
}

TEST(Progress, AResultTakesTheLineOfTheBar) {
  const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_TRUE(terminal >= 0 && ::grantpt(terminal) == 0 && ::unlockpt(terminal) == 0);
  const int screen = ::open(::ptsname(terminal), O_RDWR | O_NOCTTY);
  ASSERT_GE(screen, 0);
  const int file = ::memfd_create("out", 0);
  const auto shown = [&] {
    char text[256];
    const ssize_t got = ::read(terminal, text, sizeof text);
    return std::string(text, static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  };
  OXOutput err(screen), out(screen), elsewhere(file);
  const std::string erased = "\r\x1b[K";
  {
    OXProgress progress(err, "verify", 2);
    progress.update(1, "");
    EXPECT_EQ(shown(), "\rverify [###############...............]  50 % 1/2\x1b[K");
    out.line("fault");
    EXPECT_EQ(shown(), erased + "fault\r\n") << "another output on the same terminal";
    out.line("whole");
    EXPECT_EQ(shown(), "whole\r\n") << "erased once";
  }
  {
    OXProgress progress(err, "verify", 2);
    progress.update(1, "");
    shown();
    elsewhere.line("fault");
  }
  EXPECT_EQ(shown(), erased) << "a file's lines leave the bar alone, its end does not";
  for (const int descriptor : {file, screen, terminal}) ::close(descriptor);
}

}  // namespace
}  // namespace OX::test
