#include "app/LongRun.h"

#include <gtest/gtest.h>

namespace toverin::testing {
namespace {

TEST(LongRun, OneAtATimeAndTheRefusalNamesTheRunUnderWay) {
    EXPECT_FALSE(LongRunUnderWay());
    {
        LongRun backup("Backup de la base Base 02");
        ASSERT_TRUE(backup.ok());
        EXPECT_TRUE(LongRunUnderWay());
        LongRun other("Duplication du conducteur musical");
        EXPECT_FALSE(other.ok());
        EXPECT_NE(other.Refusal().find("Backup de la base Base 02"), std::string::npos);
        // A refused start leaves the run under way as it was.
    }
    EXPECT_FALSE(LongRunUnderWay());
    EXPECT_EQ(LongRunActivity(), "");
    LongRun next("Restauration de la base Base 01");
    EXPECT_TRUE(next.ok());
    EXPECT_EQ(next.Refusal(), "");
}

}  // namespace
}  // namespace toverin::testing
