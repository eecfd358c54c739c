#include "host/kernel/script/OpenedScript.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include "host/base/UniqueFd.h"
#include "tests/support/TestDir.h"

namespace {

constexpr char SHELL[] = "/bin/sh";

class OpenedScriptTest : public testing::Test {
protected:
    // The process opens a file with this content; which one of them it is.
    size_t Open(const std::string& strContent) {
        m_fds.emplace_back(
            open(m_dir.WriteFile("file" + std::to_string(m_files.size()), strContent).c_str(),
                 O_RDONLY | O_CLOEXEC));
        OpenedForStart file;
        file.nFd = m_fds.back().Get();
        EXPECT_TRUE(file_look::AtDescriptor(file.nFd, file.status));
        m_files.push_back(file);
        return m_files.size() - 1;
    }
    size_t OpenShellScript() { return Open("#!/bin/sh\n:\n"); }
    void OpenInterpreter() { m_files[Open("\177ELF interpreter")].bInterpreter = true; }
    void OpenLoader() { (void)Open("\177ELF loader"); }
    // A path in a first line leads to this file.
    void LinkTo(const std::string& strPath, size_t nFile) {
        m_strPath = strPath;
        m_nTarget = m_files[nFile].status.st_ino;
    }

    std::vector<OpenedScript> Find(std::optional<size_t> named) {
        const OpenedScripts scripts(m_files,
                                    [this](const std::string& strPath, const FileStatus& status) {
                                        return strPath == m_strPath && status.st_ino == m_nTarget;
                                    });
        return scripts.Find(
            SHELL, named ? std::optional<FileStatus>(m_files[*named].status) : std::nullopt);
    }
    // "2 named" for the third file, to which the name leads.
    std::string Found(std::optional<size_t> named) {
        std::string strFound;
        for (const OpenedScript& script : Find(named)) {
            strFound += (strFound.empty() ? "" : ", ") + std::to_string(script.nFile) +
                        (script.bNamed ? " named" : "");
        }
        return strFound.empty() ? "none" : strFound;
    }

    const TestDir m_dir;
    std::vector<UniqueFd> m_fds;
    std::vector<OpenedForStart> m_files;
    std::string m_strPath;
    ino_t m_nTarget = 0;
};

}  // namespace

TEST_F(OpenedScriptTest, TheFileBeforeTheInterpreterIsTheScript) {
    const size_t nScript = OpenShellScript();
    OpenInterpreter();
    OpenLoader();
    EXPECT_EQ("0 named", Found(nScript));
    EXPECT_EQ("0", Found(std::nullopt));
}

TEST_F(OpenedScriptTest, WhatFailedBeforeIsNotTheScript) {
    (void)Open("#!/no/such/interpreter\n");
    const size_t nScript = OpenShellScript();
    OpenInterpreter();
    EXPECT_EQ("1 named", Found(nScript));
    // It may also be the first of two scripts that led to the interpreter.
    EXPECT_EQ("none", Found(std::nullopt));
    EXPECT_EQ("none", Found(0));
}

TEST_F(OpenedScriptTest, AProgramThatFailedBeforeLeavesNoDoubt) {
    (void)Open("\177ELF without its loader");
    (void)OpenShellScript();
    OpenInterpreter();
    EXPECT_EQ("1", Found(std::nullopt));
}

TEST_F(OpenedScriptTest, WhatFailedIsNotTakenForAScriptThatWasNotReported) {
    (void)Open("#!/no/such/interpreter\n");
    OpenInterpreter();
    EXPECT_EQ("none", Found(std::nullopt));
}

TEST_F(OpenedScriptTest, AFileThatIsNoScriptNeedsItsName) {
    const size_t nData = Open("data with a registered interpreter");
    OpenInterpreter();
    EXPECT_EQ("0 named", Found(nData));
    EXPECT_EQ("none", Found(std::nullopt));
}

TEST_F(OpenedScriptTest, TheFirstOfSeveralScriptsIsIt) {
    const size_t nFirst = Open("#! /srv/second\n");
    const size_t nSecond = OpenShellScript();
    OpenInterpreter();
    LinkTo("/srv/second", nSecond);
    EXPECT_EQ("0", Found(nFirst));  // a name leads on, which may lead elsewhere by now
    EXPECT_EQ("none", Found(std::nullopt));
    LinkTo("/srv/second", nFirst);
    EXPECT_EQ("none", Found(nFirst));
}

TEST_F(OpenedScriptTest, AfterAFailedStartWithTheSameInterpreterEitherMayBeIt) {
    const size_t nFailed = OpenShellScript();
    OpenInterpreter();
    const size_t nScript = OpenShellScript();
    OpenInterpreter();
    OpenLoader();
    for (const std::optional<size_t> named :
         {std::optional<size_t>(), std::optional<size_t>(nFailed),
          std::optional<size_t>(nScript)}) {
        EXPECT_EQ("0, 2", Found(named));
    }
}

TEST_F(OpenedScriptTest, TheSameScriptTwiceIsOne) {
    const size_t nScript = OpenShellScript();
    OpenInterpreter();
    m_files.push_back(m_files[nScript]);
    OpenInterpreter();
    EXPECT_EQ("0 named", Found(nScript));
}

TEST_F(OpenedScriptTest, AChainIsNoLongerThanTheKernelFollows) {
    const size_t nScript = Open("#! /srv/next\n");
    LinkTo("/srv/next", nScript);
    m_files.resize(6, m_files[nScript]);
    OpenInterpreter();
    EXPECT_EQ("0", Found(nScript));
    m_files.insert(m_files.begin(), m_files[nScript]);
    EXPECT_EQ("1", Found(nScript));
}

TEST_F(OpenedScriptTest, WhatWasOpenedAfterTheInterpreterIsOfALaterStart) {
    (void)OpenShellScript();
    OpenInterpreter();
    OpenLoader();
    const size_t nLater = OpenShellScript();
    // The name leads to another file by now.
    EXPECT_EQ("0", Found(nLater));
}

TEST_F(OpenedScriptTest, AnInterpreterReportedWithAnEarlierStartLeavesTheNamedScript) {
    OpenLoader();
    const size_t nScript = OpenShellScript();
    EXPECT_EQ("1 named", Found(nScript));
    EXPECT_EQ("none", Found(std::nullopt));
    const size_t nOther = OpenShellScript();
    EXPECT_EQ("none", Found(nOther));
}

TEST_F(OpenedScriptTest, TheFirstLineIsReadAsTheKernelReadsIt) {
    for (const char* pszLine : {"#!/bin/sh", "#! \t/bin/sh -e\n", "#!/bin/sh\t-e -x\n"}) {
        m_files.clear();
        (void)Open(pszLine);
        OpenInterpreter();
        EXPECT_EQ("0", Found(std::nullopt)) << pszLine;
    }
    for (const char* pszLine : {"#!/bin/shell\n", "# !/bin/sh\n", "#!  \t", "#!", ""}) {
        m_files.clear();
        (void)Open(pszLine);
        OpenInterpreter();
        EXPECT_EQ("none", Found(std::nullopt)) << pszLine;
    }
}

TEST_F(OpenedScriptTest, OfNothingReportedNothingIsKnown) {
    const auto fnNever = [](const std::string&, const FileStatus&) { return false; };
    EXPECT_FALSE(OpenedScripts(m_files, fnNever).Reported());
    EXPECT_EQ("none", Found(std::nullopt));
    OpenLoader();
    EXPECT_FALSE(OpenedScripts(m_files, fnNever).Reported());
    OpenInterpreter();
    EXPECT_TRUE(OpenedScripts(m_files, fnNever).Reported());
}
