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
