#include "host/account/ModuleOutcome.h"

#include <gtest/gtest.h>

TEST(ModuleOutcomeTest, AQueryEndsWhatItIsAbout) {
    const ModuleOutcome launch = OutcomeOf(CloudQuery{"/bin/a", "cloudad", "key", "CreateProcess"});
    EXPECT_EQ(OUTCOME_QUERIED, launch.eEnd);
    EXPECT_EQ(EXPECTED_LAUNCH, launch.eKind);
    EXPECT_EQ("/bin/a", launch.strName);
    EXPECT_FALSE(launch.bNamesProgram);

    const ModuleOutcome file = OutcomeOf(CloudQuery{"/etc/cron.d/a", "cloudfs", "", "FileCreate"});
    EXPECT_EQ(EXPECTED_FILE, file.eKind);
    EXPECT_EQ("create", file.strOperation);
}

TEST(ModuleOutcomeTest, ARecordOfTheLogEndsItWithItsReason) {
    const std::pair<ModuleNote, OutcomeKind> ENDS[] = {{NOTE_CACHED, OUTCOME_CACHED},
                                                       {NOTE_UNREADABLE, OUTCOME_UNREADABLE},
                                                       {NOTE_STAT_FAILED, OUTCOME_STAT_FAILED}};
    for (const auto& [eNote, eEnd] : ENDS) {
        const ModuleOutcome outcome =
            OutcomeOf(ModuleRecord{eNote, "/bin/a", EXPECTED_FILE, "write", true});
        EXPECT_EQ(eEnd, outcome.eEnd);
        EXPECT_EQ(EXPECTED_FILE, outcome.eKind);
        EXPECT_EQ("/bin/a", outcome.strName);
        EXPECT_EQ("write", outcome.strOperation);
        EXPECT_TRUE(outcome.bNamesProgram);
    }
}
