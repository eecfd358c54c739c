// Writes every message that is reported to the module down, one a line, for replay.
//
// Threads: as IRunListener; messages come on the control thread. Errors: a recording that cannot be
// written ends, which is said once. Ownership: the console must outlive it.
#ifndef HOST_REPORT_RECORDER_H
#define HOST_REPORT_RECORDER_H

#include <cstdio>
#include <memory>
#include <utility>

#include "host/account/IRunListener.h"
#include "host/base/Console.h"

class Recorder : public IRunListener {
public:
    Recorder(Console& output, std::shared_ptr<FILE> pFile)
        : m_output(output), m_pFile(std::move(pFile)) {}

    void OnEvent(const RunEvent& event, int64_t tmWhen) override;

private:
    Console& m_output;
    std::shared_ptr<FILE> m_pFile;  // null once it could not be written
};

#endif
