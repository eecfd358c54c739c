/* SPDX-License-Identifier: GPL-2.0-only OR BSD-2-Clause */
/* What launch.bpf.c writes: for a start launch_record, then its texts one after the other in the
 * order of the lengths, for a copy or an end of a process launch_life alone. Both sides are built
 * for one machine, so byte order and sizes are its own. */
#ifndef HOST_KERNEL_BPF_LAUNCH_RECORD_H
#define HOST_KERNEL_BPF_LAUNCH_RECORD_H

enum {
    LAUNCH_EXEC = 1,
    LAUNCH_FORK = 2,
    LAUNCH_EXIT = 3,
    LAUNCH_WAKE = 4 /* says nothing; it wakes a reader that fell asleep as a record was written */
};

enum {
    LAUNCH_ARGS_CUT = 1,        /* more arguments than LAUNCH_ARGS_MOST bytes */
    LAUNCH_ARGS_UNREADABLE = 2, /* the arguments could not be read; none follow */
    LAUNCH_PATH_CUT = 4,        /* path, directory or root is incomplete, or the directory is one of
                                   another mount namespace */
    LAUNCH_UNLINKED = 8,        /* the file has no name any more, or never had one */
    LAUNCH_LOOSE_TIMES = 32,    /* its content may change without its change time: its file system
                                   stamps coarsely, or takes writes through a mapping unseen */
    LAUNCH_SERVED = 16          /* its content is somebody's answer, for which a reader waits: a
                                   program's (FUSE) or another machine's; it is there also for an
                                   overlay that a user may have made, over who knows what */
};

enum { LAUNCH_ARGS_MOST = 16384, LAUNCH_TEXTS_MOST = 0x10000 };

/* Which counter stands where in the map "counts". */
enum { LAUNCH_COUNT_CAPTURED, LAUNCH_COUNT_LOST, LAUNCH_COUNT_OTHERS_LOST, LAUNCH_COUNTS };

struct launch_life {
    unsigned int type; /* LAUNCH_EXEC or one of the others */
    unsigned int pid;
    unsigned int ppid;
};

struct launch_record {
    struct launch_life life;
    unsigned int flags;
    unsigned long long inode;   /* of the file that was started */
    unsigned long long size;    /* in bytes */
    long long changed;          /* its change time, ns since 1970 */
    unsigned long long cgroup;  /* number of the control group in the unified hierarchy */
    unsigned long long started; /* ns since the boot, time asleep included; 0: not known */
    unsigned int device;        /* in the kernel's form: major << 20 | minor */
    unsigned int mount_ns;      /* number of the mount namespace */
    unsigned int mount_id;      /* of the mount that it was started from, as statx names it */
    unsigned int uid;
    unsigned int args_length;     /* argument vector, each argument ends in a NUL */
    unsigned short path_length;   /* names from the file up to the root, each ends in a NUL */
    unsigned short name_length;   /* as invoked, with its NUL; a script where there is one */
    unsigned short interp_length; /* a script's interpreter as it names it, with its NUL; or 0 */
    unsigned short cwd_length;    /* like path; only when one of the two names is relative, or
                                     the program's file has the name of an ELF loader */
    unsigned short root_length;   /* like path; 0 unless the process has a root of its own */
    unsigned short reserved;
};

/* The texts stand in the order path, name, interp, cwd, root, args. */

#endif
