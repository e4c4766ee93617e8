#include <gtest/gtest.h>

#include "core/config/login_passes.h"

namespace holdenmere {
namespace {

constexpr double kMorning = 794045700.0;  // 2026-03-01 08:15:00 UTC

LaunchRecord record(const std::string& identifier, LaunchOutcome outcome, double at) {
    return LaunchRecord{identifier, "App " + identifier, outcome, Date{at}, ""};
}

TEST(LoginPasses, SplitWhereAnAppRepeatsOrTimeJumps) {
    const std::vector<LaunchRecord> history{
        // Newest pass: three apps, the third delayed 30 s.
        record("a", LaunchOutcome::launched, kMorning + 86400),
        record("b", LaunchOutcome::failed, kMorning + 86401),
        record("c", LaunchOutcome::launched, kMorning + 86431),
        // The day before: a and b again.
        record("a", LaunchOutcome::alreadyRunning, kMorning),
        record("b", LaunchOutcome::launched, kMorning + 1),
        // A pass with different apps an hour earlier.
        record("d", LaunchOutcome::missing, kMorning - 3600),
    };
    const auto passes = LoginPasses::group(history);
    ASSERT_EQ(passes.size(), 3u);
    EXPECT_EQ(passes[0].records.size(), 3u);
    EXPECT_EQ(passes[1].records.size(), 2u);
    EXPECT_EQ(passes[2].records.size(), 1u);
    EXPECT_EQ(passes[0].started(), Date{kMorning + 86400});
    EXPECT_EQ(passes[0].counts(), (std::array<int, 5>{2, 0, 0, 0, 1}));
    EXPECT_FALSE(passes[0].allWell());
    EXPECT_TRUE(passes[1].allWell());
    EXPECT_TRUE(LoginPasses::group({}).empty());
}

}  // namespace
}  // namespace holdenmere
