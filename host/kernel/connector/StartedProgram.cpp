#include "host/kernel/connector/StartedProgram.h"

#include <algorithm>
#include <utility>

namespace {

std::string FirstOf(const std::string& strArgs) {
    return strArgs.substr(0, strArgs.find('\0'));
}

// What the program was probably invoked by; whether it leads to its file is seen later, by stat.
std::string InvokedName(const std::string& strFirstArg, const std::string& strPath) {
    if (strFirstArg.empty() || strFirstArg.find('/') != std::string::npos) {
        return strFirstArg;
    }
    const size_t nSlash = strPath.rfind('/');
    return nSlash == std::string::npos ? "" : strPath.substr(0, nSlash + 1) + strFirstArg;
}

void TakeArguments(const ProcessState& state, LaunchEvent& event) {
    event.bArgsUnreadable = false;
    event.bArgsCut = state.bArgsCut;
    event.strArguments = state.strArgs;
    event.strCommand = state.strArgs;
    if (!event.strCommand.empty() && event.strCommand.back() == '\0') {
        event.strCommand.pop_back();
    }
    std::replace(event.strCommand.begin(), event.strCommand.end(), '\0', ' ');
}

}  // namespace

std::vector<std::optional<OpenedImage>> ImagesPerStart(std::vector<OpenedImage> images,
                                                       size_t nStarts) {
    std::vector<std::optional<OpenedImage>> starts(nStarts);
    const size_t nCount = std::min(images.size(), nStarts);
    for (size_t i = 1; i <= nCount; ++i) {
        starts[nStarts - i] = std::move(images[images.size() - i]);
    }
    return starts;
}

LaunchEvent StartedProgram(uint32_t nPid, uint32_t nParent, const std::optional<OpenedImage>& image,
                           const ProcessState* pState, uint32_t nOwnMountNs) {
    LaunchEvent event;
    event.nPid = nPid;
    event.nPpid = nParent;
    event.bArgsUnreadable = true;
    FileId file;
    if (image) {
        file = image->program.id;
        event.strPath = image->program.strPath;
    }
    if (pState != nullptr) {
        event.nPpid = nParent != 0 ? nParent : pState->nParent;
        event.nUid = pState->nUid;
        event.nMountNs = pState->nMountNs;
        // A file that was not seen being opened (a memfd, a file system without a mark) is what
        // the process runs; one that was seen is right even when the process runs the next.
        if (!image && pState->exe.IsKnown()) {
            file = pState->exe;
            event.strPath = pState->strExe;
        }
        // Arguments of a process that is gone by now are no other program's: its numbers stand.
        const bool bSame = !pState->exe.IsKnown() || pState->exe == file;
        if (bSame && !pState->strArgs.empty()) {
            TakeArguments(*pState, event);
            event.strName = InvokedName(FirstOf(pState->strArgs), event.strPath);
            event.strDirectory = pState->strDirectory;
        }
    }
    event.nInode = file.nInode;
    event.nDevice = file.nDevice;
    event.nMountId = file.nMountId;
    event.nSize = file.nSize;
    event.nChanged = file.nChanged;
    if (image && !image->strInterp.empty()) {
        event.strName = image->strScript;
        event.strInterp = image->strInterp;
        event.nMountNs = nOwnMountNs;  // as the host names it, wherever the process lives
    }
    return event;
}
