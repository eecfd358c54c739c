#include "host/kernel/script/ElfLoader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/TestDir.h"
#include "tests/support/host/ElfBytes.h"
#include "tests/support/host/HeldFiles.h"

namespace {

class ElfLoaderTest : public testing::Test {
protected:
    elf_file::Shape ShapeOf(const std::string& strContent) {
        const UniqueFd fd(open(m_dir.WriteFile("file", strContent).c_str(), O_RDONLY | O_CLOEXEC));
        return elf_file::ShapeOf(fd.Get());
    }
    LoaderKind KindOf(const std::string& strContent, const std::string& strName) {
        return m_loaders.KindOf(*HoldFile(m_dir.WriteFile("held", strContent)), strName);
    }

    const TestDir m_dir;
    ElfLoaders m_loaders;
};

}  // namespace

TEST_F(ElfLoaderTest, ALoaderIsKnownByItsSoname) {
    for (const char* pszName :
         {"ld-linux-x86-64.so.2", "ld-linux-aarch64.so.1", "ld.so.1", "ld64.so.2"}) {
        EXPECT_EQ(elf_file::SHAPE_GLIBC, ShapeOf(elf_bytes::Loader(pszName))) << pszName;
    }
    for (const char* pszName : {"libc.musl-x86_64.so.1", "ld-musl-x86_64.so.1", "libc.so"}) {
        EXPECT_EQ(elf_file::SHAPE_MUSL, ShapeOf(elf_bytes::Loader(pszName))) << pszName;
    }
    EXPECT_EQ(elf_file::SHAPE_SHARED, ShapeOf(elf_bytes::Loader("libc.so.6")));
}

TEST_F(ElfLoaderTest, ALoaderOf32BitsIsOneAsWell) {
    elf_bytes::Form form;
    form.strSoname = "ld-linux.so.2";
    EXPECT_EQ(elf_file::SHAPE_GLIBC, ShapeOf(elf_bytes::Narrow(form)));
}

TEST_F(ElfLoaderTest, AProgramIsNone) {
    elf_bytes::Form form;
    EXPECT_EQ(elf_file::SHAPE_SHARED, ShapeOf(elf_bytes::Wide(form)));  // a static-pie program
    form.strSoname = "ld-linux-x86-64.so.2";
    form.strInterp = "/lib64/ld-linux-x86-64.so.2";
    EXPECT_EQ(elf_file::SHAPE_PROGRAM, ShapeOf(elf_bytes::Wide(form)));
    form.strInterp = "";
    form.nType = ET_EXEC;
    EXPECT_EQ(elf_file::SHAPE_PROGRAM, ShapeOf(elf_bytes::Wide(form)));
    form.nType = ET_DYN;
    form.bDynamic = false;
    EXPECT_EQ(elf_file::SHAPE_PROGRAM, ShapeOf(elf_bytes::Wide(form)));
    EXPECT_EQ(elf_file::SHAPE_OTHER, ShapeOf("#!/bin/sh\n"));
    EXPECT_EQ(elf_file::SHAPE_OTHER, ShapeOf(""));
}

TEST_F(ElfLoaderTest, TablesThatLeadBeyondTheFileAreNone) {
    std::string strBytes = elf_bytes::Loader("ld-linux-x86-64.so.2");
    for (size_t nSize = 0; nSize < strBytes.size(); nSize += 16) {
        (void)ShapeOf(strBytes.substr(0, nSize));
    }
    Elf64_Ehdr head = {};
    std::memcpy(&head, strBytes.data(), sizeof(head));
    head.e_phoff = UINT64_MAX;
    std::memcpy(&strBytes[0], &head, sizeof(head));
    EXPECT_EQ(elf_file::SHAPE_OTHER, ShapeOf(strBytes));
    strBytes.resize(8192);  // there is room for as many, and they are not read
    head.e_phoff = sizeof(head);
    head.e_phnum = 65;
    std::memcpy(&strBytes[0], &head, sizeof(head));
    EXPECT_EQ(elf_file::SHAPE_OTHER, ShapeOf(strBytes));
}

TEST_F(ElfLoaderTest, ACopyUnderAnotherNameIsALoader) {
    EXPECT_EQ(LOADER_GLIBC, KindOf(elf_bytes::Loader("ld-linux-x86-64.so.2"), "/srv/other"));
    EXPECT_EQ(LOADER_NONE, KindOf(elf_bytes::Loader("libx.so"), "/lib64/ld-linux-x86-64.so.2"));
}

TEST_F(ElfLoaderTest, ALoaderOfMuslWithoutASonameIsKnownByItsName) {
    const std::string strContent = elf_bytes::Wide({});
    EXPECT_EQ(LOADER_MUSL, KindOf(strContent, "/lib/ld-musl-x86_64.so.1"));
    EXPECT_EQ(LOADER_NONE, KindOf(strContent, "/srv/program"));
}

TEST_F(ElfLoaderTest, AVersionIsReadOnce) {
    const std::string strPath = m_dir.WriteFile("held", elf_bytes::Loader("ld.so.1"));
    const auto pFile = HoldFile(strPath);
    EXPECT_EQ(LOADER_GLIBC, m_loaders.KindOf(*pFile, ""));
    ASSERT_EQ(0, truncate(strPath.c_str(), 0));
    EXPECT_EQ(LOADER_GLIBC, m_loaders.KindOf(*pFile, ""));
}

TEST_F(ElfLoaderTest, WhatMayChangeWithoutATraceIsReadEachTime) {
    const std::string strPath = m_dir.WriteFile("held", elf_bytes::Loader("ld.so.1"));
    const auto pSure = HoldFile(strPath);
    const HeldFile file(UniqueFd(open(strPath.c_str(), O_RDONLY | O_CLOEXEC)), pSure->Version(),
                        pSure->Status(), strPath, false);
    EXPECT_EQ(LOADER_GLIBC, m_loaders.KindOf(file, ""));
    ASSERT_EQ(0, truncate(strPath.c_str(), 0));
    EXPECT_EQ(LOADER_NONE, m_loaders.KindOf(file, ""));
}
