// The daemon SIGKILLed at random instants while files are saved without
// pause, restarted each time: once it has settled, nothing is lost. A few
// kills here; bench/kill-soak.sh runs the same with VOSKLIN_SOAK_KILLS=200.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <random>

#include "support/KillSoak.h"

namespace vosklin {
namespace {

int fromEnvironment(const char* name, int fallback) {
    const char* value = std::getenv(name);
    return value && *value ? std::atoi(value) : fallback;
}

TEST(KillSoakTest, ADaemonKilledAtRandomUnderASaveStormLosesNothing) {
    test::KillSoak::Options options;
    options.kills = fromEnvironment("VOSKLIN_SOAK_KILLS", 5);
    options.seed = unsigned(fromEnvironment("VOSKLIN_SOAK_SEED", int(std::random_device()() % 1'000'000)));
    auto figures = test::KillSoak::run(options);
    std::cout << figures.summary(options) << std::endl;

    EXPECT_EQ(figures.killsSurvived, options.kills);
    EXPECT_EQ(figures.filesChecked, options.files) << "every file, and no leftover temporary";
    EXPECT_EQ(figures.bytesLost, 0);
    EXPECT_GT(figures.saves, 0);
    std::string problems;
    for (const auto& problem : figures.problems) problems += problem + "\n";
    EXPECT_TRUE(figures.problems.empty()) << problems;
}

}  // namespace
}  // namespace vosklin
