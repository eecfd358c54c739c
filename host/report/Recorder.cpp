#include "host/report/Recorder.h"

#include <cerrno>
#include <cstring>
#include <string>

void Recorder::OnEvent(const RunEvent& event, int64_t /*tmWhen*/) {
    const auto* pSent = std::get_if<BatchSent>(&event);
    if (pSent == nullptr || m_pFile == nullptr) {
        return;
    }
    const std::string strLine = pSent->batch.strBody + "\n";
    const bool bWritten =
        std::fwrite(strLine.data(), 1, strLine.size(), m_pFile.get()) == strLine.size();
    if (!bWritten || std::fflush(m_pFile.get()) != 0) {
        m_output.Error(std::string("tevmon-host: the recording ends here: ") +
                       std::strerror(errno));
        m_pFile.reset();
    }
}
