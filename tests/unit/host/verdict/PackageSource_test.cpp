#include "host/verdict/PackageSource.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/TestDir.h"

using testing::HasSubstr;

namespace {

const std::string MD5_A = "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa";
const std::string MD5_B = "bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb";
const std::string MD5_EMPTY = "d41d8cd98f00b204e9800998ecf8427e";
const std::string SHA1 = "1111111111111111111111111111111111111111";

class PackageSourceTest : public testing::Test {
protected:
    void Package(const std::string& strName, const std::string& strContent) {
        (void)m_dir.WriteFile("info/" + strName + ".md5sums", strContent);
    }
    std::unique_ptr<PackageSource> Load() { return PackageSource::Load(m_dir.Path() + "/info"); }

    TestDir m_dir;
};

}  // namespace

TEST_F(PackageSourceTest, AProgramBelongsToItsPackage) {
    Package("coreutils", MD5_A + "  bin/ls\n");
    const auto pSource = Load();

    const auto verdict = pSource->Lookup({SHA1, MD5_A});

    ASSERT_TRUE(verdict.has_value());
    EXPECT_EQ(10, verdict->nLevel);
    EXPECT_EQ("packages", verdict->strSource);
    EXPECT_EQ("coreutils", verdict->strOwner);
    EXPECT_FALSE(pSource->Lookup({SHA1, MD5_B}).has_value());
    EXPECT_EQ("", pSource->Note());
}

TEST_F(PackageSourceTest, TheArchitectureIsNoPartOfThePackageName) {
    Package("libc6:amd64", MD5_A + "  lib/x86_64-linux-gnu/libc.so.6\n");

    EXPECT_EQ("libc6", Load()->Lookup({SHA1, MD5_A})->strOwner);
}

TEST_F(PackageSourceTest, TheFirstPackageInTheAlphabetOwnsASharedFile) {
    Package("zeta", MD5_A + "  usr/bin/tool\n");
    Package("alpha", MD5_A + "  usr/bin/tool\n");
    Package("midway", MD5_A + "  usr/bin/tool\n");
    const auto pSource = Load();

    EXPECT_EQ("alpha", pSource->Lookup({SHA1, MD5_A})->strOwner);
    EXPECT_EQ(1u, pSource->Count());
    EXPECT_EQ(3u, pSource->PackageCount());
}

TEST_F(PackageSourceTest, TheEmptyFileBelongsToNobody) {
    Package("python3", MD5_EMPTY + "  usr/lib/python3/dist-packages/__init__.py\n");
    const auto pSource = Load();

    EXPECT_FALSE(pSource->Lookup({SHA1, MD5_EMPTY}).has_value());
    EXPECT_EQ(0u, pSource->Count());
}

TEST_F(PackageSourceTest, OnlyProgramsAndLibrariesAreHeld) {
    Package("mixed", MD5_A + "  usr/share/man/man1/ls.1.gz\n" + MD5_B + "  usr/sbin/tool\n");
    const auto pSource = Load();

    EXPECT_FALSE(pSource->Lookup({SHA1, MD5_A}).has_value());
    EXPECT_TRUE(pSource->Lookup({SHA1, MD5_B}).has_value());
}

TEST_F(PackageSourceTest, DecidesByPathWhatIsAProgram) {
    for (const char* pszPath :
         {"bin/ls", "sbin/init", "usr/bin/ls", "usr/local/bin/x", "usr/games/nethack",
          "lib/x86_64-linux-gnu/libc.so.6", "lib64/ld.so", "usr/lib32/libc.so", "usr/libx32/l.so",
          "usr/libexec/helper", "usr/lib/python3/x.py", "opt/vendor/app/app",
          "usr/share/maven/bin/mvn", "bin/a b", "usr/lib/doc/x"}) {
        EXPECT_TRUE(PackageSource::IsProgramPath(pszPath)) << pszPath;
    }
    for (const char* pszPath :
         {"", "bin", "usr/bin", "etc/passwd", "usr/share/doc/x/bin/demo", "usr/share/man/bin/x",
          "usr/share/locale/lib/x", "usr/share/info/bin/x", "usr/include/lib/x.h",
          "usr/src/x/bin/y", "usr/share/icons/a.png", "usr/library/x", "var/lib32x/y", "optional/x",
          "usr/share/binary/x"}) {
        EXPECT_FALSE(PackageSource::IsProgramPath(pszPath)) << pszPath;
    }
}

TEST_F(PackageSourceTest, AMissingDirectoryGivesAnEmptySourceAndTheReason) {
    const auto pSource = PackageSource::Load(m_dir.Path() + "/none");

    ASSERT_NE(nullptr, pSource);
    EXPECT_EQ(0u, pSource->Count());
    EXPECT_FALSE(pSource->Lookup({SHA1, MD5_A}).has_value());
    EXPECT_THAT(pSource->Note(),
                HasSubstr(m_dir.Path() + "/none cannot be read: No such file or directory; "));
}

TEST_F(PackageSourceTest, ADirectoryWithoutPackagesIsSaid) {
    (void)m_dir.WriteFile("info/format", "1\n");

    EXPECT_THAT(Load()->Note(), HasSubstr("/info lists no package; "));
}

TEST_F(PackageSourceTest, UnreadableLinesArePassedOverCountedAndSaid) {
    Package("broken", "nonsense\n" + MD5_A + " x\n" + MD5_A + "\n" + std::string("\0\0\0", 3) +
                          "\n\n" + MD5_B + "  bin/good\n");
    const auto pSource = Load();

    EXPECT_EQ(1u, pSource->Count());
    EXPECT_TRUE(pSource->Lookup({SHA1, MD5_B}).has_value());
    EXPECT_THAT(pSource->Note(),
                HasSubstr("4 unreadable lines or files passed over, the first in " + m_dir.Path() +
                          "/info/broken.md5sums"));
}

TEST_F(PackageSourceTest, AVeryLongLineEndsItsFileOnly) {
    Package("a", MD5_A + "  bin/before\n" + std::string(1 << 20, 'x') + "\n");
    Package("b", MD5_B + "  bin/other\n");
    const auto pSource = Load();

    EXPECT_TRUE(pSource->Lookup({SHA1, MD5_A}).has_value());
    EXPECT_TRUE(pSource->Lookup({SHA1, MD5_B}).has_value());
    EXPECT_THAT(pSource->Note(), HasSubstr("1 unreadable line or file "));
}

TEST_F(PackageSourceTest, APipeInTheDirectoryIsPassedOverWithoutWaiting) {
    Package("good", MD5_A + "  bin/good\n");
    ASSERT_EQ(0, mkfifo((m_dir.Path() + "/info/pipe.md5sums").c_str(), 0600));
    const auto pSource = Load();

    EXPECT_TRUE(pSource->Lookup({SHA1, MD5_A}).has_value());
    EXPECT_THAT(pSource->Note(), HasSubstr("1 unreadable line or file "));
}

TEST_F(PackageSourceTest, NamesWithBackslashesAreReadInTheirEscapedForm) {
    Package("odd", "\\" + MD5_A + "  usr/bin/a\\\\b\n");

    EXPECT_TRUE(Load()->Lookup({SHA1, MD5_A}).has_value());
}
