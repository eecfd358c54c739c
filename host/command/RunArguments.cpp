#include "host/command/RunArguments.h"

#include <utility>

#include "host/process/StateDir.h"

void AddRunOptions(Command& command, const std::shared_ptr<RunArguments>& pArguments) {
    RunOptions& run = pArguments->run;
    command
        .AddOption("--bad", run.badLists,
                   "List of bad programs (sha1sum, md5sum, .hdb or .hsb); repeatable")
        .TypeName("LIST")
        .Repeatable();
    command.AddOption("--good", run.goodLists, "List of good programs, likewise; repeatable")
        .TypeName("LIST")
        .Repeatable();
    command.AddFlag("--no-packages", pArguments->bNoPackages,
                    "Do not ask the package database of this machine");
    command.AddOption("--for", run.dForSeconds, "End after this many seconds at the latest")
        .TypeName("SECONDS")
        .Positive();
    command.AddFlag("--keep-privileges", run.bKeepPrivileges,
                    "Keep every privilege, and allow debuggers and core files");
    command.AddOption("--queue-rows", run.queue.nRows, "Messages that may wait for the module")
        .TypeName("N")
        .Positive()
        .ShowDefault();
    command
        .AddOption("--queue-bytes", run.queue.nBytes,
                   "What they may take in the file; with K, M or G in powers of 1024 "
                   "(default: 512M)")
        .TypeName("SIZE")
        .ByteSize()
        .Positive();
}

int RunNow(const HostOptions& options, RunArguments& arguments) {
    // The session changes the current directory, so every path is made absolute before it.
    for (std::vector<std::string>* pPaths :
         {&arguments.run.badLists, &arguments.run.goodLists, &arguments.paths}) {
        for (std::string& strPath : *pPaths) {
            strPath = StateDir::Absolute(strPath);
        }
    }
    arguments.run.bPackages = !arguments.bNoPackages;
    RunSession session(options, std::move(arguments.run));
    return session.Run();
}
