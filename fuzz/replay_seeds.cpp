// Runs a target over files instead of making inputs up: what builds without a fuzzer do with the
// corpus. Arguments are files and folders of files.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize);

namespace {

void RunFile(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), {}};
    // A copy of exactly its size on the heap: the sanitizers see a byte read behind it.
    const std::vector<uint8_t> data(bytes.begin(), bytes.end());
    (void)LLVMFuzzerTestOneInput(data.data(), data.size());
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    int nFiles = 0;
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < nArguments; ++i) {
        const std::filesystem::path path = std::filesystem::absolute(ppszArguments[i]);
        if (!std::filesystem::is_directory(path)) {
            files.push_back(path);
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(path)) {
            files.push_back(entry.path());
        }
    }
    for (const auto& file : files) {
        RunFile(file);
        ++nFiles;
    }
    fprintf(stderr, "%d inputs\n", nFiles);
    return nFiles > 0 ? 0 : 1;
}
