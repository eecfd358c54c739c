#include "host/kernel/script/LoaderArguments.h"

#include <algorithm>
#include <iterator>
#include <vector>

namespace {

struct Option {
    const char* pszName;
    bool bValue;  // another argument follows it
};

// Those with which the program is started; with the others it is not.
constexpr Option GLIBC[] = {{"--inhibit-cache", false},    {"--library-path", true},
                            {"--inhibit-rpath", true},     {"--audit", true},
                            {"--preload", true},           {"--argv0", true},
                            {"--glibc-hwcaps-mask", true}, {"--glibc-hwcaps-prepend", true}};
constexpr Option MUSL[] = {{"--library-path", true}, {"--preload", true}, {"--argv0", true}};

// More are not examined: what comes behind them is of the program.
constexpr size_t MOST_ARGUMENTS = 64;

std::vector<std::string> Split(const std::string& strArguments) {
    std::vector<std::string> arguments;
    for (size_t nBegin = 0; nBegin < strArguments.size() && arguments.size() < MOST_ARGUMENTS;) {
        const size_t nEnd = strArguments.find('\0', nBegin);
        if (nEnd == std::string::npos) {
            return arguments;  // its end is missing
        }
        arguments.push_back(strArguments.substr(nBegin, nEnd - nBegin));
        nBegin = nEnd + 1;
    }
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

std::string ProgramOfGlibc(const std::vector<std::string>& arguments) {
    size_t i = 1;
    while (i < arguments.size() && IsOption(arguments[i])) {
        const Option* const pOption = OptionOf(GLIBC, arguments[i]);
        if (pOption == nullptr) {
            return "";
        }
        i += pOption->bValue ? 2 : 1;
    }
    // A name alone is that of a library, and "$" begins a word that it replaces.
    const bool bPath = i < arguments.size() && arguments[i].find('/') != std::string::npos &&
                       arguments[i].find('$') == std::string::npos;
    return bPath ? arguments[i] : "";
}

std::string ProgramOfMusl(const std::vector<std::string>& arguments) {
    if (arguments.empty() || EndsIn(arguments[0], "ldd")) {
        return "";
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
            return "";
        }
        i += nEquals == std::string::npos ? 2 : 1;
    }
    return i < arguments.size() ? arguments[i] : "";
}

}  // namespace

std::string loader_arguments::ProgramOf(LoaderKind eKind, const std::string& strArguments) {
    switch (eKind) {
        case LOADER_GLIBC:
            return ProgramOfGlibc(Split(strArguments));
        case LOADER_MUSL:
            return ProgramOfMusl(Split(strArguments));
        case LOADER_NONE:
            break;
    }
    return "";
}
