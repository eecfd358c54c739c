// Runs tevmon-host, which stands beside the test program, as a process of its own, with the modules
// made for tests.
#ifndef TESTS_SYSTEM_HOST_HOSTPROGRAM_H
#define TESTS_SYSTEM_HOST_HOSTPROGRAM_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/Event.h"
#include "tests/support/FakeModules.h"
#include "tests/support/FileText.h"
#include "tests/support/TestDir.h"

class HostProgram {
public:
    explicit HostProgram(const TestDir& dir) : m_strDir(dir.Path()) {}
    ~HostProgram() {
        CloseOutput();
        if (m_nPid > 0) {
            kill(m_nPid, SIGKILL);
            waitpid(m_nPid, nullptr, 0);
        }
    }

    HostProgram(const HostProgram&) = delete;
    HostProgram& operator=(const HostProgram&) = delete;

    // The state directory that Start names.
    std::string StateDir() const { return m_strDir + "/state"; }

    // Starts the program with the given arguments, and --state-dir unless they have it. Standard
    // input is empty, standard output a pipe, standard error a file.
    void Start(std::vector<std::string> arguments) {
        const auto end = arguments.end();
        if (std::find(arguments.begin(), end, "--state-dir") == end) {
            arguments.insert(arguments.begin(), {"--state-dir", StateDir()});
        }
        arguments.insert(arguments.begin(), "tevmon-host");
        std::vector<char*> argv;
        for (std::string& strArgument : arguments) {
            argv.push_back(strArgument.data());
        }
        argv.push_back(nullptr);
        int pipeFds[2];
        ASSERT_EQ(0, pipe2(pipeFds, O_CLOEXEC));
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&actions, pipeFds[1], 1);
        posix_spawn_file_actions_addopen(&actions, 2, ErrorFile().c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const std::string strProgram = ProgramFolder() + "tevmon-host";
        ASSERT_EQ(
            0, posix_spawn(&m_nPid, strProgram.c_str(), &actions, nullptr, argv.data(), environ));
        posix_spawn_file_actions_destroy(&actions);
        close(pipeFds[1]);
        m_nOutput = pipeFds[0];
    }

    // Reads standard output until it holds strText; false when it ends or a minute has passed.
    bool WaitForOutput(const std::string& strText) {
        while (m_strOutput.find(strText) == std::string::npos) {
            if (!ReadMore()) {
                return false;
            }
        }
        return true;
    }

    // Waits likewise for strText on standard error.
    bool WaitForError(const std::string& strText) const {
        const auto due = std::chrono::steady_clock::now() + HANGS_AFTER;
        while (Error().find(strText) == std::string::npos) {
            if (std::chrono::steady_clock::now() > due) {
                return false;
            }
            (void)poll(nullptr, 0, 5);
        }
        return true;
    }

    pid_t Pid() const { return m_nPid; }
    void Signal(int nSignal) const { kill(m_nPid, nSignal); }

    void CloseOutput() {
        if (m_nOutput >= 0) {
            close(m_nOutput);
            m_nOutput = -1;
        }
    }

    // Reads the rest of standard output and waits for the end. The exit code, or 1000 + the
    // signal that killed it.
    int Wait() {
        while (m_nOutput >= 0 && ReadMore()) {
        }
        int nStatus = 0;
        waitpid(m_nPid, &nStatus, 0);
        m_nPid = -1;
        return WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : 1000 + WTERMSIG(nStatus);
    }

    int Run(const std::vector<std::string>& arguments) {
        Start(arguments);
        return Wait();
    }

    const std::string& Output() const { return m_strOutput; }
    std::vector<std::string> OutputLines() const {
        std::vector<std::string> lines;
        std::istringstream stream(m_strOutput);
        for (std::string strLine; std::getline(stream, strLine);) {
            lines.push_back(strLine);
        }
        return lines;
    }
    std::string Error() const { return FileText(ErrorFile()); }
    // What happened to the fake module.
    std::string ModuleCalls() const { return FileText(StateDir() + "/run/calls"); }

private:
    // Each object's own: two hosts of one directory must not write over each other's lines.
    std::string ErrorFile() const {
        return m_strDir + "/stderr-" + std::to_string(reinterpret_cast<uintptr_t>(this));
    }

    bool ReadMore() {
        pollfd fd = {m_nOutput, POLLIN, 0};
        if (poll(&fd, 1, 100000) <= 0) {
            return false;
        }
        char szBuffer[4096];
        const ssize_t nRead = read(m_nOutput, szBuffer, sizeof(szBuffer));
        m_strOutput.append(szBuffer, nRead > 0 ? static_cast<size_t>(nRead) : 0);
        return nRead > 0;
    }

    const std::string m_strDir;
    pid_t m_nPid = -1;
    int m_nOutput = -1;
    std::string m_strOutput;
};

// Runs the program with the fake module that works.
class HostProgramTest : public testing::Test {
protected:
    int Run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"--module", FakeModule("works")});
        return m_host.Run(arguments);
    }

    TestDir m_dir;
    HostProgram m_host{m_dir};
};

#endif
