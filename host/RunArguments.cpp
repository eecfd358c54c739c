#include "host/RunArguments.h"

#include <utility>

#include "host/StateDir.h"

void AddRunOptions(CLI::App& command, const std::shared_ptr<RunArguments>& pArguments) {
    RunOptions& run = pArguments->run;
    command
        .add_option("--block", run.blockLists,
                    "List of programs to block (sha1sum, md5sum, .hdb or .hsb); repeatable")
        ->type_name("LIST")
        ->expected(1)
        ->allow_extra_args(false)  // what follows the list is a place
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command
        .add_option("--allow", run.allowLists, "List of programs to allow, likewise; repeatable")
        ->type_name("LIST")
        ->expected(1)
        ->allow_extra_args(false)  // what follows the list is a place
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command.add_flag("--no-packages", pArguments->bNoPackages,
                     "Do not ask the package database of this machine");
    command.add_option("--for", run.dForSeconds, "End after this many seconds at the latest")
        ->type_name("SECONDS")
        ->check(CLI::PositiveNumber);
    command.add_flag("--keep-privileges", run.bKeepPrivileges,
                     "Keep every privilege, and allow debuggers and core files");
    command.add_option("--queue-rows", run.queue.nRows, "Messages that may wait for the module")
        ->type_name("N")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    command
        .add_option("--queue-bytes", run.queue.nBytes,
                    "What they may take in the file; with K, M or G in powers of 1024 "
                    "(default: 512M)")
        ->type_name("SIZE")
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::PositiveNumber);
}

int RunNow(const GlobalOptions& options, RunArguments& arguments) {
    // The session changes the current directory, so every path is made absolute before it.
    for (std::vector<std::string>* pPaths :
         {&arguments.run.blockLists, &arguments.run.allowLists, &arguments.places}) {
        for (std::string& strPath : *pPaths) {
            strPath = StateDir::Absolute(strPath);
        }
    }
    arguments.run.bPackages = !arguments.bNoPackages;
    RunSession session(options, std::move(arguments.run));
    return session.Run();
}
