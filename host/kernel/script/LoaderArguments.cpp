#include "host/kernel/script/LoaderArguments.h"

#include <algorithm>
#include <iterator>
#include <vector>

namespace {

struct Option {
    const char* pszName;
    bool bValue;  // another argument follows it
};

// Those with which the program is started.
constexpr Option GLIBC[] = {{"--inhibit-cache", false},    {"--library-path", true},
                            {"--inhibit-rpath", true},     {"--audit", true},
                            {"--preload", true},           {"--argv0", true},
                            {"--glibc-hwcaps-mask", true}, {"--glibc-hwcaps-prepend", true}};
constexpr Option MUSL[] = {{"--library-path", true}, {"--preload", true}, {"--argv0", true}};
// Those with which none is.
constexpr Option WITHOUT[] = {{"--list", false},          {"--verify", false},
                              {"--list-tunables", false}, {"--list-diagnostics", false},
                              {"--help", false},          {"--version", false}};

constexpr size_t MOST_ARGUMENTS = 4096;  // more count as cut

std::vector<std::string> Split(const std::string& strArguments, bool& bCut) {
    std::vector<std::string> arguments;
    for (size_t nBegin = 0; nBegin < strArguments.size() && arguments.size() < MOST_ARGUMENTS;) {
        const size_t nEnd = strArguments.find('\0', nBegin);
        if (nEnd == std::string::npos) {
            bCut = true;
            return arguments;
        }
        arguments.push_back(strArguments.substr(nBegin, nEnd - nBegin));
        nBegin = nEnd + 1;
    }
    bCut = bCut || arguments.size() == MOST_ARGUMENTS;
    return arguments;
}

template <size_t nCount>
const Option* OptionOf(const Option (&options)[nCount], const std::string& strName) {
    const auto* const found =
        std::find_if(std::begin(options), std::end(options),
                     [&](const Option& option) { return strName == option.pszName; });
    return found == std::end(options) ? nullptr : found;
}

bool EndsIn(const std::string& strText, const std::string& strEnd) {
    return strText.size() >= strEnd.size() &&
           strText.compare(strText.size() - strEnd.size(), strEnd.size(), strEnd) == 0;
}

bool IsOption(const std::string& strArgument) {
    return strArgument.compare(0, 2, "--") == 0;
}

// Of an option that starts no program with these.
GivenProgram Ended(const std::string& strOption) {
    return {"", OptionOf(WITHOUT, strOption) == nullptr};
}

GivenProgram At(const std::vector<std::string>& arguments, size_t nProgram, bool bCut) {
    return nProgram < arguments.size() ? GivenProgram{arguments[nProgram]} : GivenProgram{"", bCut};
}

GivenProgram ProgramOfGlibc(const std::vector<std::string>& arguments, bool bCut) {
    size_t i = 1;
    while (i < arguments.size() && IsOption(arguments[i])) {
        const Option* const pOption = OptionOf(GLIBC, arguments[i]);
        if (pOption == nullptr) {
            return Ended(arguments[i]);
        }
        i += pOption->bValue ? 2 : 1;
    }
    GivenProgram program = At(arguments, i, bCut);
    // A name alone is that of a library, and "$" begins a word that it replaces.
    const bool bLibrary = program.strPath.find('/') == std::string::npos ||
                          program.strPath.find('$') != std::string::npos;
    return !program.strPath.empty() && bLibrary ? GivenProgram{"", true} : program;
}

GivenProgram ProgramOfMusl(const std::vector<std::string>& arguments, bool bCut) {
    if (!arguments.empty() && EndsIn(arguments[0], "ldd")) {
        return {};
    }
    size_t i = 1;
    while (i < arguments.size() && IsOption(arguments[i])) {
        const std::string& strOption = arguments[i];
        if (strOption == "--") {
            ++i;
            break;
        }
        const size_t nEquals = strOption.find('=');
        if (OptionOf(MUSL, strOption.substr(0, nEquals)) == nullptr) {
            return Ended(strOption);
        }
        i += nEquals == std::string::npos ? 2 : 1;
    }
    return At(arguments, i, bCut);
}

}  // namespace

GivenProgram loader_arguments::ProgramOf(LoaderKind eKind, const std::string& strArguments,
                                         bool bCut) {
    if (eKind == LOADER_NONE) {
        return {};
    }
    const std::vector<std::string> arguments = Split(strArguments, bCut);
    return eKind == LOADER_GLIBC ? ProgramOfGlibc(arguments, bCut) : ProgramOfMusl(arguments, bCut);
}
