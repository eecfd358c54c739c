// A sensor of file operations that has none to report; it opens unless it has a refusal.
#ifndef TESTS_SUPPORT_HOST_FAKEFILESENSOR_H
#define TESTS_SUPPORT_HOST_FAKEFILESENSOR_H

#include <string>
#include <utility>

#include "host/kernel/file/IFileSensor.h"

class FakeFileSensor : public IFileSensor {
public:
    explicit FakeFileSensor(std::string strRefusal = "") : m_strRefusal(std::move(strRefusal)) {}

    bool Open(std::string& strError) override {
        strError = m_strRefusal;
        return m_strRefusal.empty();
    }
    int Descriptor() const override { return -1; }
    size_t Read(char*, size_t) override { return 0; }
    void Detach() override {}
    bool Tend() override { return false; }
    void OnDirectory(const std::string&) override {}
    void Ignore(const std::string&) override {}
    std::vector<std::string> TakeNotices() override { return {}; }
    std::string PathOf(std::string_view) override { return ""; }
    std::string FsTypeOf(std::string_view) const override { return ""; }
    bool ReportsStarts(uint32_t) const override { return false; }

private:
    const std::string m_strRefusal;
};

#endif
