// The command line, in the terms that our commands need. CLI11 does the work and is included by
// CommandLine.cpp alone: what includes it takes ten seconds longer to compile.
//
// Threads: the control thread. Errors: std::exception for what the program itself gets wrong; what
//   the user gets wrong is said by CommandLine::Parse.
// Ownership: CommandLine owns everything. Command and CommandOption are handles that live no longer
//   than it; the values that options fill belong to the caller and outlive Parse.
#ifndef HOST_COMMAND_COMMANDLINE_H
#define HOST_COMMAND_COMMANDLINE_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

class CommandOption {
public:
    explicit CommandOption(CLI::Option* pOption) : m_pOption(pOption) {}

    CommandOption& TypeName(const std::string& strName);  // as --help shows it
    CommandOption& Required();
    CommandOption& ShowDefault();  // --help shows the value that stands there by now

    // What is refused, each with a text of its own.
    CommandOption& InRange(int nLeast, int nMost);
    CommandOption& InRange(double dLeast, double dMost);
    CommandOption& Positive();
    CommandOption& OneOf(const std::vector<std::string>& words);
    // fnCheck answers "", or what is wrong with the value.
    CommandOption& Check(const std::function<std::string(const std::string&)>& fnCheck);

    CommandOption& ByteSize();    // K, M and G after the number multiply by powers of 1024
    CommandOption& Repeatable();  // each time with one value; what follows that is no value of it
    CommandOption& Needs(const CommandOption& other);
    CommandOption& Excludes(const CommandOption& other);

private:
    CLI::Option* m_pOption;
};

class Command {
public:
    explicit Command(CLI::App* pApp) : m_pApp(pApp) {}

    Command AddCommand(const std::string& strName, const std::string& strHelp);
    CommandOption AddFlag(const std::string& strNames, bool& bValue, const std::string& strHelp);
    // Value: std::string, int, int64_t, uint64_t, double or std::vector<std::string>. Names without
    // dashes are filled by position.
    template <class Value>
    CommandOption AddOption(const std::string& strNames, Value& value, const std::string& strHelp);

    void Footer(const std::string& strText);  // below the options in --help
    // One of the commands below it has to be named. The options above may stand behind them.
    void NeedsCommand();
    // Called once the whole command line is understood.
    void OnRun(const std::function<void()>& fnRun);

protected:
    CLI::App* m_pApp;
};

class CommandLine : public Command {
public:
    CommandLine(const std::string& strProgram, const std::string& strHelp);
    ~CommandLine();
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    void AddVersion(const std::string& strText);           // --version prints it
    void OnParsed(const std::function<void()>& fnParsed);  // before any command runs

    // Runs the command named, or says on standard error what is wrong. False when nothing ran; then
    // nExitCode is EXIT_CODE_SUCCESS after --help and --version, else EXIT_CODE_USAGE.
    bool Parse(int nArguments, const char* const* ppszArguments, int& nExitCode);
    // The same of one text with blanks between the words, without the program's name.
    bool Parse(const std::string& strArguments, int& nExitCode);

private:
    template <class... Arguments>
    bool ParseAny(int& nExitCode, Arguments... arguments);

    std::unique_ptr<CLI::App> m_pOwned;
};

#endif
