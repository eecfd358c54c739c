#include "host/kernel/launch/ProcessTable.h"

#include <dirent.h>

#include <algorithm>
#include <cstdlib>

#include "host/kernel/launch/ProcessLook.h"

ProcessTable::ProcessTable(FileLook fnLook, std::string strProc)
    : m_fnLook(fnLook ? std::move(fnLook) : file_look::ByMounts()), m_strProc(std::move(strProc)) {}

std::string ProcessTable::ExeLink(uint32_t nPid) const {
    return m_strProc + "/" + std::to_string(nPid) + "/exe";
}

ProcessTable::ImageRef ProcessTable::ImageFromProc(uint32_t nPid) const {
    const std::string strLink = ExeLink(nPid);
    FileStatus status;
    if (!m_fnLook(strLink, status)) {
        return nullptr;  // a kernel thread, or gone
    }
    auto pImage = std::make_shared<Image>();
    pImage->strName = file_look::LinkText(strLink);
    pImage->strPath = pImage->strName;
    const FileId id = process_look::IdOf(status);
    pImage->nDevice = id.nDevice;
    pImage->nInode = id.nInode;
    pImage->nMountId = id.nMountId;
    return pImage;
}

void ProcessTable::Seed() {
    DIR* const pDir = opendir(m_strProc.c_str());
    if (pDir == nullptr) {
        return;
    }
    while (const dirent* const pEntry = readdir(pDir)) {
        const auto nPid = static_cast<uint32_t>(std::strtoul(pEntry->d_name, nullptr, 10));
        if (nPid == 0 || m_processes.count(nPid) != 0) {
            continue;
        }
        if (const ImageRef pImage = ImageFromProc(nPid)) {
            Put(nPid).starts.push_back({Kept(*pImage)});
        }
    }
    (void)closedir(pDir);
}

void ProcessTable::Renew() {
    m_processes.clear();
    m_ends.clear();
    Seed();
}

// A table that is full of running processes, after ends that were lost, begins anew; /proc fills
// the gaps.
ProcessTable::Process& ProcessTable::Put(uint32_t nPid) {
    if (m_processes.count(nPid) == 0) {
        while (m_processes.size() >= MOST_PROCESSES && !m_ends.empty()) {
            DropOldestEnd();
        }
        if (m_processes.size() >= MOST_PROCESSES) {
            m_processes.clear();
        }
    }
    Process& process = m_processes[nPid];
    if (process.nEnd != 0) {
        process = Process();  // a number that is used again
    }
    return process;
}

void ProcessTable::DropOldestEnd() {
    const auto found = m_processes.find(m_ends.front().nPid);
    if (found != m_processes.end() && found->second.nEnd == m_ends.front().nNumber) {
        m_processes.erase(found);
    }
    m_ends.pop_front();
}

// Names may be as long as a path, and a process may start programs one after the other.
void ProcessTable::MakeRoom() {
    while (m_nBytes > MOST_BYTES && !m_ends.empty()) {
        DropOldestEnd();
    }
    if (m_nBytes > MOST_BYTES) {
        m_processes.clear();
    }
}

ProcessTable::ImageRef ProcessTable::Kept(Image image) {
    const size_t nBytes = sizeof(Image) + image.strPath.size() + image.strName.size();
    auto pImage = std::make_unique<const Image>(std::move(image));
    m_nBytes += nBytes;  // after what may throw; a shared pointer that cannot be made deletes
    return ImageRef(pImage.release(), [this, nBytes](const Image* pOld) {
        m_nBytes -= nBytes;
        delete pOld;
    });
}

void ProcessTable::Tick(Clock::time_point now) {
    m_now = now;
    while (!m_ends.empty() && m_ends.front().when + KEPT < now) {
        DropOldestEnd();
    }
}

void ProcessTable::Note(const LaunchEvent& event, const std::string& strPath) {
    if (event.eKind == LAUNCH_KIND_EXEC) {
        MakeRoom();
        Process& process = Put(event.nPid);
        if (!m_bExact && process.starts.empty()) {
            process.starts.push_back({m_pUnknown});  // what it ran before
        }
        process.starts.push_back(
            {Kept({strPath, event.strPath.empty() ? event.strName : event.strPath, event.nDevice,
                   event.nInode, event.nMountId, event.nSize, event.nChanged}),
             ++m_nNoted});
        if (process.starts.size() > MOST_IMAGES) {
            process.starts.erase(process.starts.begin());
            process.nCurrent -= process.nCurrent > 0 ? 1 : 0;
        }
    } else if (event.eKind == LAUNCH_KIND_FORK) {
        const auto parent = m_processes.find(event.nPpid);
        ImageRef pImage;
        if (m_bExact && parent != m_processes.end() && !parent->second.starts.empty()) {
            pImage = parent->second.starts.back().pImage;
        }
        m_processes.erase(event.nPid);
        if (!m_bExact) {  // it may be a copy of another process than its parent
            pImage = m_pUnknown;
        }
        if (pImage != nullptr) {
            Put(event.nPid).starts.push_back({std::move(pImage)});
        }
    } else {
        const auto found = m_processes.find(event.nPid);
        if (found != m_processes.end()) {
            found->second.nEnd = ++m_nEnds;
            m_ends.push_back({m_now, event.nPid, m_nEnds});
        }
    }
}

void ProcessTable::Opened(uint32_t nPid, uint64_t nInode) {
    const auto found = m_processes.find(nPid);
    if (!m_bExact || found == m_processes.end()) {
        return;  // the starts that it would be compared with may be others
    }
    std::vector<uint64_t>& openings = found->second.openings;
    openings.push_back(nInode);
    if (openings.size() > MOST_OPENINGS) {
        openings.erase(openings.begin());
    }
}

void ProcessTable::CatchUp() {
    for (auto& entry : m_processes) {
        entry.second.openings.clear();
        if (m_bExact && !entry.second.starts.empty()) {
            entry.second.nCurrent = entry.second.starts.size() - 1;
        }
    }
}

// An opening that no start follows is one of a script, of a program's loader, or of a start that
// failed.
void ProcessTable::Advance(Process& process) const {
    const auto& starts = process.starts;
    for (size_t i = 0; i < process.openings.size();) {
        const auto next = std::find_if(
            starts.begin() + static_cast<ptrdiff_t>(process.nCurrent) + 1, starts.end(),
            [&](const Start& start) { return start.pImage->nInode == process.openings[i]; });
        if (next == starts.end()) {
            ++i;
            continue;
        }
        process.nCurrent = static_cast<size_t>(next - starts.begin());
        process.openings.erase(process.openings.begin(),
                               process.openings.begin() + static_cast<ptrdiff_t>(i) + 1);
        i = 0;
    }
    while (process.nCurrent + 1 < starts.size() && CountsAtOnce(starts[process.nCurrent + 1])) {
        ++process.nCurrent;
    }
}

// One that no opening will be reported of, or that came before what is asked about.
bool ProcessTable::CountsAtOnce(const Start& start) const {
    if (start.nNumber <= m_nSettled || !m_fnReportsStarts) {
        return true;
    }
    return m_bExact && !m_fnReportsStarts(start.pImage->nDevice);
}

std::string ProcessTable::StarterOf(const LaunchEvent& event) const {
    const auto found = m_processes.find(event.nPpid);
    if (found == m_processes.end() || found->second.starts.empty()) {
        return file_look::LinkText(ExeLink(event.nPpid));
    }
    return found->second.starts.back().pImage->strName;
}

ActingProgram ProcessTable::ActingOf(uint32_t nPid, bool bNewest) {
    if (m_bDoubt) {
        return {};
    }
    const auto found = m_processes.find(nPid);
    if (found == m_processes.end() || found->second.starts.empty()) {
        return m_bExact ? FromProc(nPid) : ActingProgram();
    }
    Process& process = found->second;
    Advance(process);
    const size_t nNewest = process.starts.size() - 1;
    if (!m_bExact && process.nCurrent < nNewest) {
        return {};
    }
    return Verified(*process.starts[bNewest ? nNewest : process.nCurrent].pImage, nPid);
}

// Never a path that leads to another file by now: a verdict on that one would be borrowed.
ActingProgram ProcessTable::Verified(const Image& image, uint32_t nPid) const {
    LaunchEvent event;
    event.nDevice = image.nDevice;
    event.nInode = image.nInode;
    event.nMountId = image.nMountId;
    event.nSize = image.nSize;
    event.nChanged = image.nChanged;
    std::string strLink = ExeLink(nPid);
    StartedFile file(event, strLink, m_fnLook);
    for (const std::string* pPath : {&image.strPath, &image.strName}) {
        if (file.IsAt(*pPath)) {
            return {*pPath, image.strName};
        }
    }
    if (file.IsRunning()) {
        return {std::move(strLink), image.strName};
    }
    return {"", image.strName};
}

ActingProgram ProcessTable::FromProc(uint32_t nPid) const {
    const ImageRef pImage = nPid == 0 ? nullptr : ImageFromProc(nPid);
    return pImage == nullptr ? ActingProgram() : Verified(*pImage, nPid);
}
