#include "host/kernel/file/DirectoryNames.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/TestDir.h"

using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

TEST(DirectoryNamesTest, EveryNameOfAnyKindIsOneAndTheDirectoryItselfIsNone) {
    const TestDir dir;
    dir.WriteFile("tree/file", "x");
    std::filesystem::create_directory(dir.Path() + "/tree/.below");
    std::filesystem::create_symlink("nowhere", dir.Path() + "/tree/link");

    EXPECT_THAT(directory_names::In(dir.Path() + "/tree", 100),
                UnorderedElementsAre("file", ".below", "link"));
}

TEST(DirectoryNamesTest, NoMoreThanWantedAreRead) {
    const TestDir dir;
    for (const char* const pszName : {"a", "b", "c"}) {
        dir.WriteFile(pszName, "x");
    }

    EXPECT_THAT(directory_names::In(dir.Path(), 2), SizeIs(2));
}

TEST(DirectoryNamesTest, WhatIsNoDirectoryOrNotThereHasNone) {
    const TestDir dir;

    EXPECT_THAT(directory_names::In(dir.WriteFile("file", "x"), 100), IsEmpty());
    EXPECT_THAT(directory_names::In(dir.Path() + "/none", 100), IsEmpty());
}
