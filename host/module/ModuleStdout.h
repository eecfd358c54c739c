// What a module prints on file descriptor 1, always read, passed on line by line with its repeats
// folded. A module prints up to 300 lines about one failed operation, and a writer whose pipe
// nobody reads stands still.
//
// Threads: Begin and End on the control thread; fnSink is called on a thread of this class.
// Errors: without a pipe or a thread file descriptor 1 stays what it was.
// Ownership: fnSink must not wait for the module.
#ifndef HOST_MODULE_MODULESTDOUT_H
#define HOST_MODULE_MODULESTDOUT_H

#include <functional>
#include <string>
#include <thread>

#include "host/base/UniqueFd.h"
#include "host/base/WakeFd.h"
#include "host/module/RepeatFilter.h"

class ModuleStdout {
public:
    // One line without its line feed; longer ones come in pieces of this size.
    using Sink = std::function<void(const std::string& strLine)>;
    static constexpr size_t MOST_BYTES = 4096;

    explicit ModuleStdout(Sink fnSink);
    ~ModuleStdout();  // End

    ModuleStdout(const ModuleStdout&) = delete;
    ModuleStdout& operator=(const ModuleStdout&) = delete;

    // Before the module is loaded: file descriptor 1 leads here from now on.
    bool Begin();
    // After it was unloaded: everything printed until now is passed on, and file descriptor 1 is
    // what it was before Begin.
    void End();

private:
    void Read();
    bool ReadSome(std::string& strRest);
    void Emit(const std::vector<std::string>& lines) const;
    int WaitTime() const;

    const Sink m_fnSink;
    RepeatFilter m_repeats;  // of the thread
    bool m_bPieces = false;  // of the thread: inside a line that is given in pieces
    UniqueFd m_saved;        // file descriptor 1 before Begin
    UniqueFd m_read;
    WakeFd m_end;  // End wakes Read
    std::thread m_thread;
};

#endif
