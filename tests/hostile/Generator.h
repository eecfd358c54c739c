// Makes hostile messages and keys up: the same from the same seed.
//
// Threads: one object, one thread.
#ifndef TESTS_HOSTILE_GENERATOR_H
#define TESTS_HOSTILE_GENERATOR_H

#include <cstdint>
#include <random>
#include <string>
#include <vector>

class Generator {
public:
    // Paths are taken from those given besides made-up ones.
    Generator(uint32_t nSeed, std::vector<std::string> paths);

    // A message, and how often its text asks for a place in the queue: the elements of "param"
    // with the group and one of the two contexts, 0 when it does not parse.
    std::string Message(long& nQueued);

    // A key that tries to be SQL of its own.
    std::string Key();

private:
    uint32_t Below(uint32_t nLimit) { return m_random() % nLimit; }
    std::string OneOf(const std::vector<std::string>& texts) {
        return texts[Below(static_cast<uint32_t>(texts.size()))];
    }
    std::string Value(int nDepth);
    std::string Path();
    std::string Element(bool& bQueued);

    std::mt19937 m_random;
    const std::vector<std::string> m_paths;
};

#endif
