#include "host/kernel/launch/FurtherLaunches.h"

#include <sys/stat.h>

#include <utility>

#include "host/kernel/launch/ProcessLook.h"

namespace {

using script_file::IsSameFile;
using script_file::LinkOf;

constexpr uint64_t FIRST_FRESH = uint64_t{1} << 63;

FileVersion VersionOf(const FileStatus& status, uint64_t nFresh) {
    const FileId id = process_look::IdOf(status);
    return {id.nDevice, id.nInode, id.nSize, id.nChanged, nFresh};
}

// Of the same start, without a file.
Launch Blank(const Launch& launch) {
    Launch blank = launch;
    blank.pFile = nullptr;
    blank.strLink.clear();
    blank.creation.strVersion.clear();
    blank.bScript = true;
    return blank;
}

}  // namespace

FurtherLaunches::FurtherLaunches(FurtherOptions options, HeldFiles& held)
    : m_options(std::move(options)), m_held(held), m_nFresh(FIRST_FRESH) {
    if (!m_options.fnLookAtScript) {
        m_options.fnLookAtScript = script_file::LookWithoutMagic;
    }
}

std::vector<Launch> FurtherLaunches::Of(const LaunchEvent& event, const Launch& launch,
                                        OpenedFiles* pOpened, LaunchCounters& counters) {
    std::vector<Launch> all;
    const auto fnAdd = [&](bool bFound, Launch further) {
        counters.nScripts += bFound ? 1 : 0;
        counters.nScriptsUnreported += bFound ? 0 : 1;
        counters.nNotHeld += bFound && further.pFile == nullptr ? 1 : 0;
        counters.nFresh += bFound && further.pFile != nullptr && !further.pFile->IsSure() ? 1 : 0;
        if (bFound) {
            all.push_back(std::move(further));
        }
    };
    if (!event.strInterp.empty()) {
        std::vector<Launch> scripts = ScriptsOf(event, Blank(launch), pOpened);
        for (Launch& script : scripts) {
            fnAdd(true, std::move(script));
        }
        counters.nScriptsUnreported += scripts.empty() ? 1 : 0;
    }
    const GivenProgram given = loader_arguments::ProgramOf(
        KindOf(event, launch), event.strArguments, event.bArgsCut || event.bArgsUnreadable);
    counters.nScriptsUnreported += given.bUnknown ? 1 : 0;
    if (!given.strPath.empty()) {
        Launch program = Blank(launch);
        const bool bFound = TakeProgram(event, given.strPath, program);
        fnAdd(bFound, std::move(program));
    }
    if (pOpened != nullptr) {
        pOpened->Started(event);
    }
    return all;
}

LoaderKind FurtherLaunches::KindOf(const LaunchEvent& event, const Launch& launch) {
    const std::string& strName = event.strInterp.empty() ? event.strName : event.strInterp;
    return launch.pFile == nullptr ? LOADER_NONE : m_loaders.KindOf(*launch.pFile, strName);
}

std::vector<Launch> FurtherLaunches::ScriptsOf(const LaunchEvent& event, const Launch& blank,
                                               OpenedFiles* pOpened) {
    const std::string strPath = ScriptPath(event, m_options.nMountNs, m_options.fnLookAtScript);
    Launch script = blank;
    const auto fnOnly = [&](bool bFound) {
        return bFound ? std::vector<Launch>{std::move(script)} : std::vector<Launch>();
    };
    if (pOpened == nullptr || m_options.pLinks == nullptr) {
        return fnOnly(TakeByPath(strPath, script));
    }
    const std::vector<OpenedForStart> files = pOpened->FilesOf(event);
    const std::optional<FileStatus> named = Named(event, strPath);
    const OpenedScripts scripts(files, [this](const std::string& strFile, const FileStatus& file) {
        FileStatus status;
        return m_options.fnLook(strFile, status) && IsSameFile(status, file);
    });
    const std::vector<OpenedScript> found = scripts.Find(event.strInterp, named);
    if (found.size() > 1) {  // one of them is it
        std::vector<Launch> all;
        for (const OpenedScript& each : found) {
            all.push_back(blank);
            if (!TakeOpened(event, files[each.nFile], false, "", all.back())) {
                all.pop_back();
            }
        }
        return all;
    }
    const bool bSilent = named && !pOpened->IsMarked(process_look::IdOf(*named).nDevice);
    if (!found.empty() && (found[0].bNamed || !bSilent)) {
        const bool bNamed = found[0].bNamed;
        const OpenedForStart& file = files[found[0].nFile];
        return fnOnly(TakeOpened(event, file, bNamed, AbsoluteName(event.strName, event), script) ||
                      (bNamed && TakeByPath(strPath, script)));  // too many are held
    }
    // The kernel would have reported it: it was put there since.
    const bool bOther = scripts.Reported() && !bSilent;
    return fnOnly(!bOther && TakeByPath(strPath, script));
}

// What the name of the start leads to now: for the host, else for the process.
std::optional<FileStatus> FurtherLaunches::Named(const LaunchEvent& event,
                                                 const std::string& strPath) const {
    FileStatus status;
    if (!strPath.empty() && m_options.fnLookAtScript(strPath, status)) {
        return status;
    }
    const UniqueFd place =
        quiet_open::PlaceOf(event.nPid, event.strName, quiet_open::MountsOf(event.nPid));
    return place && quiet_open::Look(place.Get(), status) ? std::optional<FileStatus>(status)
                                                          : std::nullopt;
}

// strInvoked: its name, absolute; "": as the kernel spells it.
bool FurtherLaunches::TakeOpened(const LaunchEvent& event, const OpenedForStart& file, bool bNamed,
                                 const std::string& strInvoked, Launch& script) {
    const int64_t nChanged = file.status.Changed();
    const bool bSure = bNamed && !event.IsJustAfter(nChanged) &&
                       !m_options.fnHasLooseTimes(file.nFd, nChanged, event.nStarted);
    const FileVersion version = VersionOf(file.status, bSure ? 0 : ++m_nFresh);
    const std::string strName = strInvoked.empty() ? script_file::KernelName(file.nFd) : strInvoked;
    script.pFile = m_held.Find(version);
    if (script.pFile == nullptr) {
        const auto fnMatchOf = [&](const std::string& strFile, FileStatus& status) {
            if (!m_options.fnLook(strFile, status) || !IsSameFile(status, file.status)) {
                return HeldFiles::MATCH_NONE;
            }
            const bool bSame =
                status.Changed() == nChanged && status.st_size == file.status.st_size;
            return bSure && bSame ? HeldFiles::MATCH_SURE : HeldFiles::MATCH_INODE;
        };
        script.pFile = m_held.Hold(version, LinkOf(file.nFd), strName, fnMatchOf);
    }
    return script.pFile != nullptr &&
           Name(script, strName, LeadsTo(strName, file.status, IsOfHost(event)));
}

bool FurtherLaunches::TakeByPath(const std::string& strPath, Launch& script) {
    if (strPath.empty()) {
        return false;
    }
    script.creation.strPath = strPath;
    script.eOrigin = LAUNCH_PATH_INVOKED;
    const PlacedFile place =
        m_options.pLinks == nullptr ? PlacedFile() : placed_file::Here(strPath);
    script.pFile = place.bLocal ? HoldUnsure(place) : nullptr;
    if (script.pFile != nullptr) {
        script.creation.strVersion = file_version::Text(script.pFile->Version());
    }
    return true;
}

// Where the program that the loader was given is. The loader opens it later than it is started.
PlacedFile FurtherLaunches::PlaceOf(const LaunchEvent& event, const std::string& strGiven) const {
    const std::string strProc = "/proc/" + std::to_string(event.nPid);
    const bool bAbsolute = strGiven[0] == '/';
    const bool bDirectory = !event.strDirectory.empty() && !event.bPathCut;
    const std::string strPath =
        IsOfHost(event) && (bAbsolute || bDirectory) ? AbsoluteName(strGiven, event) : "";
    if (!strPath.empty()) {
        return placed_file::Here(strPath);
    }
    // Only while it runs: later the number may be another process's.
    StartedFile loader(event, strProc + "/exe", m_options.fnLook);
    if (!loader.IsRunning()) {
        return {};
    }
    const std::string strDirectory =
        IsOfHost(event) && !bAbsolute ? file_look::LinkText(strProc + "/cwd") : "";
    return strDirectory.empty() ? placed_file::OfProcess(event.nPid, strGiven)
                                : placed_file::Here(script_file::Joined(strDirectory, strGiven));
}

bool FurtherLaunches::TakeProgram(const LaunchEvent& event, const std::string& strGiven,
                                  Launch& program) {
    if (m_options.pLinks == nullptr) {
        return false;
    }
    const PlacedFile place = PlaceOf(event, strGiven);
    program.pFile = place.bLocal ? HoldUnsure(place) : nullptr;
    if (program.pFile == nullptr || !elf_file::IsElf(program.pFile->Descriptor())) {
        return false;
    }
    return Name(program, place.strName, LeadsTo(place.strName, place.status, false));
}

HeldFileRef FurtherLaunches::HoldUnsure(const PlacedFile& place) {
    const auto fnMatchOf = [&](const std::string& strFile, FileStatus& status) {
        const bool bFile = m_options.fnLook(strFile, status) && S_ISREG(status.st_mode);
        return bFile && IsSameFile(status, place.status) ? HeldFiles::MATCH_INODE
                                                         : HeldFiles::MATCH_NONE;
    };
    return m_held.Hold(VersionOf(place.status, ++m_nFresh), LinkOf(place.fd.Get()), place.strName,
                       fnMatchOf);
}

// Whether the name leads the host to the file. A name of a process elsewhere may be one here that
// somebody serves.
bool FurtherLaunches::LeadsTo(const std::string& strName, const FileStatus& status,
                              bool bOfHost) const {
    FileStatus found;
    if (bOfHost) {
        return m_options.fnLookAtScript(strName, found) && IsSameFile(found, status);
    }
    const UniqueFd place = quiet_open::Place(strName, {});
    return place && quiet_open::Look(place.Get(), found) && IsSameFile(found, status);
}

// The path that the module gets: the name where it leads to the file, else a link.
bool FurtherLaunches::Name(Launch& further, const std::string& strName, bool bLeads) const {
    further.creation.strPath = strName;
    further.creation.strVersion = file_version::Text(further.pFile->Version());
    further.strLink = bLeads ? "" : further.pFile->LinkIn(*m_options.pLinks, strName);
    further.eOrigin = bLeads ? LAUNCH_PATH_INVOKED : LAUNCH_PATH_HELD;
    return bLeads || !further.strLink.empty();
}
