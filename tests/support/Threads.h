// The threads and descriptors of this process, as the kernel lists them.
#ifndef TESTS_SUPPORT_THREADS_H
#define TESTS_SUPPORT_THREADS_H

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <system_error>

// Thread id -> name. A thread that was joined may stand there for a moment longer.
inline std::map<int, std::string> ThreadsById() {
    std::map<int, std::string> threads;
    std::error_code ignored;  // a thread may end while it is examined
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task", ignored)) {
        std::ifstream file(entry.path() / "comm");
        std::string strName;
        if (std::getline(file, strName)) {
            threads[std::stoi(entry.path().filename().string())] = strName;
        }
    }
    return threads;
}

inline std::multiset<std::string> ThreadNames() {
    std::multiset<std::string> names;
    for (const auto& thread : ThreadsById()) {
        names.insert(thread.second);
    }
    return names;
}

inline size_t DescriptorCount() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

#endif
