// Which program each process runs, as the launch sensor reports it: who started a program, and who
// did what to a file.
//
// File operations are asked about later than they happened. An image is therefore kept for a while
// after its process ended, and a process that has run several is distinguished by the openings for
// a start (FAN_OPEN_EXEC) that stand in order among the file operations: the kernel reports the
// opening first, the start itself after it.
//
// Threads: one. Errors: none but std::bad_alloc.
#ifndef HOST_KERNEL_LAUNCH_PROCESSTABLE_H
#define HOST_KERNEL_LAUNCH_PROCESSTABLE_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/kernel/launch/LaunchPath.h"

struct Image {
    std::string strPath;  // the one that its launch is reported under; "" when none leads to it
    std::string strName;  // as the kernel spells it; for people
    uint32_t nDevice = 0;
    uint64_t nInode = 0;
    uint32_t nMountId = 0;  // what follows: as LaunchEvent has it
    uint64_t nSize = 0;
    int64_t nChanged = 0;
};

struct ActingProgram {
    std::string strPath;  // leads to the program's file now; "" when no path does
    std::string strName;  // as the kernel spells it; "" when not known
};

class ProcessTable {
public:
    using Clock = std::chrono::steady_clock;
    // True when starts on this device (major << 20 | minor) are reported by an opening.
    using ReportsStarts = std::function<bool(uint32_t nDevice)>;

    static constexpr size_t MOST_PROCESSES = 65536;  // the ended ones included
    static constexpr std::chrono::seconds KEPT{30};  // after the end
    static constexpr size_t MOST_IMAGES = 16;        // of one process
    static constexpr size_t MOST_OPENINGS = 64;      // of one process, not yet followed by a start
    static constexpr size_t MOST_BYTES = 64 << 20;   // of all images

    explicit ProcessTable(FileLook fnLook = {}, std::string strProc = "/proc");

    // Until this is set a process is taken to run its newest image.
    void SetReportsStarts(ReportsStarts fnReportsStarts) {
        m_fnReportsStarts = std::move(fnReportsStarts);
    }
    // With a sensor that is not exact nobody acts where it could be more than one: not a process
    // that has started a program since the operations before were read, nor a copy that has
    // started none, nor one that is not known.
    void SetExact(bool bExact) { m_bExact = bExact; }
    // While this is set nobody acts: starts may be missing.
    void SetDoubt(bool bDoubt) { m_bDoubt = bDoubt; }
    // The processes that run already and are not known.
    void Seed();
    // Forgets all of them and begins with those that run now.
    void Renew();

    // strPath is the path of an exec; nothing reads it for the other kinds.
    void Note(const LaunchEvent& event, const std::string& strPath);
    // In the order of the file operations: a process opened a file to start it.
    void Opened(uint32_t nPid, uint64_t nInode);
    // Openings may be missing: from here on every process runs its newest image, of an exact
    // sensor.
    void CatchUp();
    // How many starts were noted; and how many of these came before every file operation that is
    // still to be asked about.
    uint64_t Noted() const { return m_nNoted; }
    void SetSettled(uint64_t nNoted) { m_nSettled = nNoted; }
    // Forgets what ended long ago.
    void Tick(Clock::time_point now);

    // The program that started this one, as the kernel spells it, before the launch is noted. A
    // process that was there before the sensor is looked up in /proc. "" when nobody knows.
    std::string StarterOf(const LaunchEvent& event) const;
    // Who acts at this place among the file operations; bNewest: as the last thing it does.
    ActingProgram ActingOf(uint32_t nPid, bool bNewest);

    size_t Size() const { return m_processes.size(); }
    size_t Bytes() const { return m_nBytes; }

private:
    using ImageRef = std::shared_ptr<const Image>;
    struct Start {
        ImageRef pImage;
        uint64_t nNumber = 0;  // among all that were noted; 0 where none was: of a copy, or seeded
    };
    struct Process {
        std::vector<Start> starts;  // a few; an empty deque would take 600 bytes
        size_t nCurrent = 0;
        std::vector<uint64_t> openings;  // inodes
        uint64_t nEnd = 0;               // number of its end, 0 while it runs
    };
    struct End {
        Clock::time_point when;
        uint32_t nPid;
        uint64_t nNumber;
    };

    Process& Put(uint32_t nPid);
    void DropOldestEnd();
    void MakeRoom();
    ImageRef Kept(Image image);
    void Advance(Process& process) const;
    bool CountsAtOnce(const Start& start) const;
    ActingProgram Verified(const Image& image, uint32_t nPid) const;
    ActingProgram FromProc(uint32_t nPid) const;
    ImageRef ImageFromProc(uint32_t nPid) const;
    std::string ExeLink(uint32_t nPid) const;

    const FileLook m_fnLook;
    const std::string m_strProc;
    ReportsStarts m_fnReportsStarts;
    const ImageRef m_pUnknown = std::make_shared<const Image>();
    bool m_bExact = true;
    bool m_bDoubt = false;
    uint64_t m_nNoted = 0;
    uint64_t m_nSettled = 0;
    size_t m_nBytes = 0;  // of the images below, which take theirs off when they go
    std::unordered_map<uint32_t, Process> m_processes;
    std::deque<End> m_ends;
    uint64_t m_nEnds = 0;
    Clock::time_point m_now;
};

#endif
