// Stands between SQLite and the files of this process: counts its I/O calls and makes the n-th one
// fail, write half of what it should, or kill the process.
//
// Threads: any; Arm and Disarm while nobody else uses a database.
#ifndef TESTS_FAULTS_FAULTVFS_H
#define TESTS_FAULTS_FAULTVFS_H

struct FaultPlan {
    enum Kind {
        FAIL,       // any call fails as an I/O error
        FULL,       // a write or an enlargement finds the disk full
        SHORT,      // a write does half of its bytes and fails
        CANTOPEN,   // a file cannot be opened
        UNLOCK,     // a lock has been let go and that fails all the same
        KILL,       // SIGKILL in the place of the call
        TORN_KILL,  // SIGKILL after half of a write
    };
    Kind eKind = FAIL;
    long nAt = 0;           // which of the calls that the kind concerns, from 1; 0 for none
    bool bForGood = false;  // all that follow fail too
};

class FaultVfs {
public:
    static void Register();  // as what every connection opened from now on uses
    // What the plan struck is written there, at most 15 characters, also before a kill.
    static void NoteInto(char* pszStruck);
    static void Arm(const FaultPlan& plan);
    static bool Disarm();     // true when the plan struck
    static bool HasStruck();  // by now
};

#endif
