#include "host/kernel/file/FileBatches.h"

#include <utility>

void FileBatches::Add(FileOperation operation, Clock::time_point now) {
    if (!IsFilling()) {
        m_filling.due = now + m_limits.batchTime;
    }
    m_filling.nBytes += operation.strPath.size() + operation.strProgram.size();
    m_filling.operations.push_back(std::move(operation));
    if (m_filling.operations.size() >= m_limits.nMostOperations ||
        m_filling.nBytes >= m_limits.nMostBytes) {
        Close();
    }
}

bool FileBatches::IsFirstWrite(uint32_t nPid, const std::string& strPath) {
    return m_written.insert(std::to_string(nPid) + strPath).second;
}

bool FileBatches::HasBatch(Clock::time_point now, bool bAny) const {
    return !m_full.empty() || (IsFilling() && (bAny || now >= m_filling.due));
}

std::vector<FileOperation> FileBatches::TakeOldest() {
    if (m_full.empty()) {
        Close();
    }
    std::vector<FileOperation> operations = std::move(m_full.front().operations);
    m_full.pop_front();
    return operations;
}

void FileBatches::Close() {
    m_full.push_back(std::exchange(m_filling, Batch()));
    m_written.clear();
}
