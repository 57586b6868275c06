// Arithmetic over time: pacing, latency statistics, the progress bar. No test sleeps.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

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
  EXPECT_EQ(OXProgress::render("push", 15, 30, "ok", 80),
            "push [###############...............]  50 % 15/30 ok");
  EXPECT_EQ(OXProgress::render("push", 40, 30, "ok", 80).substr(0, 37),
            "push [##############################]")
      << "more than there was to be";
  EXPECT_EQ(OXProgress::render("push", 15, 0, "ok", 80), "push 15 ok") << "no end known";
  EXPECT_EQ(OXProgress::render("push", 15, 30, "ok", 10).size(), 9u);
}

}  // namespace
}  // namespace OX::test
