// A launch put together from what the connector says (that it was), what was opened for it and
// what /proc says of the process. None of these knows all of it, and each may come too late.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_KERNEL_CONNECTOR_STARTEDPROGRAM_H
#define HOST_KERNEL_CONNECTOR_STARTEDPROGRAM_H

#include <optional>
#include <vector>

#include "host/kernel/connector/OpenedImage.h"
#include "host/kernel/launch/LaunchEvent.h"

// Gives each of nStarts launches of one process its image, the last ones to the last: starts that
// failed come before. Nothing where there are fewer images than launches.
std::vector<std::optional<OpenedImage>> ImagesPerStart(std::vector<OpenedImage> images,
                                                       size_t nStarts);

// state is the process's now; null for a launch that another one followed at once. nOwnMountNs is
// the host's, whose names for files the images have.
LaunchEvent StartedProgram(uint32_t nPid, uint32_t nParent, const std::optional<OpenedImage>& image,
                           const ProcessState* pState, uint32_t nOwnMountNs);

#endif
