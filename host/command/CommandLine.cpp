#include "host/command/CommandLine.h"

#include <CLI/CLI.hpp>

#include "host/process/ExitCodes.h"

namespace {

// What is wrong with a command line. Of a missing command CLI11 says that one is required; which
// there are, and the word that is none of them, help more.
std::string FailureMessage(const CLI::App* pApp, const CLI::Error& error) {
    const std::vector<std::string> unknown = pApp->remaining(true);
    std::string strCommand = pApp->get_name();
    while (!pApp->get_subcommands().empty()) {
        pApp = pApp->get_subcommands().back();
        strCommand += " " + pApp->get_name();
    }
    const std::vector<const CLI::App*> commands =
        pApp->get_subcommands([](const CLI::App*) { return true; });
    if (error.get_name() != "RequiredError" || commands.empty()) {
        return CLI::FailureMessage::simple(pApp, error);
    }
    std::string strNames;
    for (const CLI::App* pCommand : commands) {
        strNames += (strNames.empty() ? "" : ", ") + pCommand->get_name();
    }
    return strCommand + ": " +
           (unknown.empty() ? "no command given" : "no command '" + unknown.front() + "'") +
           "; there are " + strNames + "\nRun with --help for more information.\n";
}

}  // namespace

CommandOption& CommandOption::TypeName(const std::string& strName) {
    m_pOption->type_name(strName);
    return *this;
}

CommandOption& CommandOption::Required() {
    m_pOption->required();
    return *this;
}

CommandOption& CommandOption::ShowDefault() {
    m_pOption->capture_default_str();
    return *this;
}

CommandOption& CommandOption::InRange(int nLeast, int nMost) {
    m_pOption->check(CLI::Range(nLeast, nMost));
    return *this;
}

CommandOption& CommandOption::InRange(double dLeast, double dMost) {
    m_pOption->check(CLI::Range(dLeast, dMost));
    return *this;
}

CommandOption& CommandOption::Positive() {
    m_pOption->check(CLI::PositiveNumber);
    return *this;
}

CommandOption& CommandOption::OneOf(const std::vector<std::string>& words) {
    m_pOption->check(CLI::IsMember(words));
    return *this;
}

CommandOption& CommandOption::Check(const std::function<std::string(const std::string&)>& fnCheck) {
    m_pOption->check(fnCheck);
    return *this;
}

CommandOption& CommandOption::ByteSize() {
    m_pOption->transform(CLI::AsSizeValue(false));
    return *this;
}

CommandOption& CommandOption::Repeatable() {
    m_pOption->expected(1)->allow_extra_args(false);
    m_pOption->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    return *this;
}

CommandOption& CommandOption::Needs(const CommandOption& other) {
    m_pOption->needs(other.m_pOption);
    return *this;
}

CommandOption& CommandOption::Excludes(const CommandOption& other) {
    m_pOption->excludes(other.m_pOption);
    return *this;
}

Command Command::AddCommand(const std::string& strName, const std::string& strHelp) {
    return Command(m_pApp->add_subcommand(strName, strHelp));
}

CommandOption Command::AddFlag(const std::string& strNames, bool& bValue,
                               const std::string& strHelp) {
    return CommandOption(m_pApp->add_flag(strNames, bValue, strHelp));
}

template <class Value>
CommandOption Command::AddOption(const std::string& strNames, Value& value,
                                 const std::string& strHelp) {
    return CommandOption(m_pApp->add_option(strNames, value, strHelp));
}

template CommandOption Command::AddOption(const std::string&, std::string&, const std::string&);
template CommandOption Command::AddOption(const std::string&, int&, const std::string&);
template CommandOption Command::AddOption(const std::string&, int64_t&, const std::string&);
template CommandOption Command::AddOption(const std::string&, uint64_t&, const std::string&);
template CommandOption Command::AddOption(const std::string&, double&, const std::string&);
template CommandOption Command::AddOption(const std::string&, std::vector<std::string>&,
                                          const std::string&);

void Command::Footer(const std::string& strText) {
    m_pApp->footer(strText);
}

void Command::NeedsCommand() {
    m_pApp->fallthrough();
    m_pApp->require_subcommand(1);
}

void Command::OnRun(const std::function<void()>& fnRun) {
    m_pApp->callback(fnRun);
}

CommandLine::CommandLine(const std::string& strProgram, const std::string& strHelp)
    : Command(nullptr), m_pOwned(std::make_unique<CLI::App>(strHelp, strProgram)) {
    m_pApp = m_pOwned.get();
    m_pApp->failure_message(FailureMessage);
}

CommandLine::~CommandLine() = default;

void CommandLine::AddVersion(const std::string& strText) {
    m_pApp->set_version_flag("--version", strText);
}

void CommandLine::OnParsed(const std::function<void()>& fnParsed) {
    m_pApp->parse_complete_callback(fnParsed);
}

bool CommandLine::Parse(int nArguments, const char* const* ppszArguments, int& nExitCode) {
    return ParseAny(nExitCode, nArguments, ppszArguments);
}

bool CommandLine::Parse(const std::string& strArguments, int& nExitCode) {
    return ParseAny(nExitCode, strArguments);
}

template <class... Arguments>
bool CommandLine::ParseAny(int& nExitCode, Arguments... arguments) {
    try {
        m_pApp->parse(arguments...);
        return true;
    } catch (const CLI::ParseError& result) {
        nExitCode = m_pApp->exit(result) == 0 ? EXIT_CODE_SUCCESS : EXIT_CODE_USAGE;
        return false;
    }
}
