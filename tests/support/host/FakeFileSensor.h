// A sensor of file operations whose events are a test's. What it is asked for stands in a state
// that outlives it: its owner is a source.
#ifndef TESTS_SUPPORT_HOST_FAKEFILESENSOR_H
#define TESTS_SUPPORT_HOST_FAKEFILESENSOR_H

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/kernel/file/IFileSensor.h"

struct FakeFileState {
    std::deque<std::string> reads;  // bytes of events: a read takes of the first what fits
    std::map<std::string, std::string> paths;     // handle -> directory
    std::map<std::string, std::string> inPlaces;  // path -> path by the mount of a place
    std::vector<std::string> notices;             // given once
    std::string strRefusal;                       // it opens when it has none
    std::string strFsType = "tmpfs";              // of everything
    std::optional<uint32_t> starts;  // the one device whose starts it reports; else of all
    std::function<void()> fnOnRead;  // what happens whenever it is read
    int nDescriptor = -1;
    MountChange eMounted = NO_MOUNTS;

    std::map<std::string, uint32_t> kinds;     // handle -> kind, of files that are not gone
    std::map<std::string, std::string> files;  // path -> handle
    std::vector<std::string> linked;           // to be marked by themselves
    std::vector<std::string> directories;      // that appeared
    std::vector<std::string> ignored;
    bool bDetached = false;
};

class FakeFileSensor : public IFileSensor {
public:
    explicit FakeFileSensor(FakeFileState& state) : m_state(state) {}

    bool Open(std::string& strError) override {
        strError = m_state.strRefusal;
        return m_state.strRefusal.empty();
    }
    int Descriptor() const override { return m_state.nDescriptor; }
    size_t Read(char* pBuffer, size_t nSize) override {
        if (m_state.fnOnRead) {
            m_state.fnOnRead();
        }
        size_t nTaken = 0;
        while (nTaken == 0 && !m_state.reads.empty()) {
            std::string& strFirst = m_state.reads.front();
            nTaken = strFirst.copy(pBuffer, nSize);
            strFirst.erase(0, nTaken);
            if (strFirst.empty()) {
                m_state.reads.pop_front();
            }
        }
        return nTaken;
    }
    void Detach() override { m_state.bDetached = true; }
    MountChange Tend() override { return m_state.eMounted; }
    void OnDirectory(const std::string& strPath) override {
        m_state.directories.push_back(strPath);
    }
    void OnLinked(const std::string& strPath) override { m_state.linked.push_back(strPath); }
    bool IsFile(const std::string& strPath, std::string_view strHandle) override {
        const auto found = m_state.files.find(strPath);
        return found != m_state.files.end() && found->second == strHandle;
    }
    void Ignore(const std::string& strDirectory) override {
        m_state.ignored.push_back(strDirectory);
    }
    std::vector<std::string> TakeNotices() override { return std::exchange(m_state.notices, {}); }
    std::string PathOf(std::string_view strHandle) override {
        const auto found = m_state.paths.find(std::string(strHandle));
        return found == m_state.paths.end() ? "" : found->second;
    }
    std::string PathInPlace(const std::string& strPath) const override {
        const auto found = m_state.inPlaces.find(strPath);
        return found == m_state.inPlaces.end() ? strPath : found->second;
    }
    std::string FsTypeOf(std::string_view, const std::string&) const override {
        return m_state.strFsType;
    }
    uint32_t KindOf(std::string_view strHandle) const override {
        const auto found = m_state.kinds.find(std::string(strHandle));
        return found == m_state.kinds.end() ? 0 : found->second;
    }
    bool ReportsStarts(uint32_t nDevice) const override {
        return nDevice == m_state.starts.value_or(nDevice);
    }

private:
    FakeFileState& m_state;
};

#endif
