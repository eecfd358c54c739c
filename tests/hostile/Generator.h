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
    // Paths are taken from those given, the last one most often, besides made-up ones.
    Generator(uint32_t nSeed, std::vector<std::string> paths);

    // An event message, and how often its text asks for a place in the queue, when it parses: the
    // elements of "param" with the group and one of the two contexts. Of members that stand there
    // twice the last counts.
    std::string Message(long& nQueued);

    // A cloud's answer, of which anything may be wrong.
    std::string Verdict();

    // A message's type: most often that of an event or an answer.
    int64_t Type();

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
    std::string Head(bool& bQueued);
    std::string Deep();
    std::string Member(const std::string& strName, const std::string& strRight);

    std::mt19937 m_random;
    const std::vector<std::string> m_paths;
};

#endif
