// Makes the n-th allocation of this thread fail: every malloc, and with it operator new, SQLite,
// OpenSSL and the C library. The program answers malloc itself; not under the sanitizers, which do.
//
// Threads: Arm, Disarm and what fails are the calling thread's own.
#ifndef TESTS_FAULTS_ALLOCFAULTS_H
#define TESTS_FAULTS_ALLOCFAULTS_H

#if defined(__has_feature)  // clang's way to say it
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TESTS_ALLOC_FAULTS 0
#endif
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TESTS_ALLOC_FAULTS 0
#endif
#ifndef TESTS_ALLOC_FAULTS
#define TESTS_ALLOC_FAULTS 1
#endif

class AllocFaults {
public:
    static void Arm(long nAt, bool bForGood);  // nAt from 1
    static bool Disarm();                      // true when one failed
    static long Calls();                       // allocations while it was armed last
};

#endif
