// What a launch starts besides its program: the script that the program interprets, or the program
// that an ELF loader was given ("ld-linux-x86-64.so.2 ./program"). Each is a launch of its own.
//
// A script is known by what the kernel opened for the start, so that it is held and judged as any
// program is. What is known by its path alone is held as unsure, and so is a loader's program: it
// may have been put there since, and is judged only if it is bad.
//
// Threads: one. Errors: none but std::bad_alloc; what cannot be known is counted.
// Ownership: held must outlive it.
#ifndef HOST_KERNEL_LAUNCH_FURTHERLAUNCHES_H
#define HOST_KERNEL_LAUNCH_FURTHERLAUNCHES_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/kernel/launch/Launch.h"
#include "host/kernel/launch/OpenedFiles.h"
#include "host/kernel/script/ElfLoader.h"
#include "host/kernel/script/QuietOpen.h"
#include "host/kernel/script/ScriptFile.h"
#include "host/program/HeldFiles.h"

struct FurtherOptions {
    FileLook fnLook;
    FileLook fnLookAtScript;  // a look that follows no link of /proc; null: the kernel's
    uint32_t nMountNs = 0;    // as ScriptPath
    std::shared_ptr<PinDirectory> pLinks;  // null: nothing is held
    // As script_file::HasLooseTimes, unless a test brings its own.
    std::function<bool(int nFd, int64_t nChanged, int64_t nStarted)> fnHasLooseTimes =
        script_file::HasLooseTimes;
};

class FurtherLaunches {
public:
    FurtherLaunches(FurtherOptions options, HeldFiles& held);

    // Those of the launch, whose file may be held. Counts them, and what is not known. Each start
    // that is reported is to be given, in order; of the others OpenedFiles::Started is to know.
    // pOpened: null where the kernel does not report what is opened.
    std::vector<Launch> Of(const LaunchEvent& event, const Launch& launch, OpenedFiles* pOpened,
                           LaunchCounters& counters);

    // Whether the launch's file is an ELF loader: what it starts is an argument.
    bool IsLoader(const LaunchEvent& event, const Launch& launch) {
        return KindOf(event, launch) != LOADER_NONE;
    }

private:
    LoaderKind KindOf(const LaunchEvent& event, const Launch& launch);
    std::vector<Launch> ScriptsOf(const LaunchEvent& event, const Launch& blank,
                                  OpenedFiles* pOpened);
    bool TakeOpened(const LaunchEvent& event, const OpenedForStart& file, bool bNamed,
                    const std::string& strInvoked, Launch& script);
    bool TakeByPath(const std::string& strPath, Launch& script);
    bool TakeProgram(const LaunchEvent& event, const std::string& strGiven, Launch& program);
    std::optional<FileStatus> Named(const LaunchEvent& event, const std::string& strPath) const;
    PlacedFile PlaceOf(const LaunchEvent& event, const std::string& strGiven) const;
    HeldFileRef HoldUnsure(const PlacedFile& place);
    bool LeadsTo(const std::string& strName, const FileStatus& status, bool bOfHost) const;
    bool Name(Launch& further, const std::string& strName, bool bLeads) const;
    bool IsOfHost(const LaunchEvent& event) const {
        return event.nMountNs == m_options.nMountNs && event.strRoot.empty();
    }

    FurtherOptions m_options;
    HeldFiles& m_held;
    ElfLoaders m_loaders;
    uint64_t m_nFresh;  // FileVersion::nFresh, of numbers that no program has
};

#endif
