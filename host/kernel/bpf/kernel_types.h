/* SPDX-License-Identifier: GPL-2.0-only OR BSD-2-Clause */
/* The few kernel types that launch.bpf.c reads. Offsets are put in when the program is loaded, so
 * only the names count here, and neither kernel headers nor BTF are needed to compile. */
#ifndef HOST_KERNEL_BPF_KERNEL_TYPES_H
#define HOST_KERNEL_BPF_KERNEL_TYPES_H

typedef unsigned char __u8;
typedef unsigned short __u16;
typedef unsigned int __u32;
typedef unsigned long long __u64;
typedef signed char __s8;
typedef short __s16;
typedef int __s32;
typedef long long __s64;
typedef __u16 __be16;
typedef __u32 __be32;
typedef __u64 __be64;
typedef __u32 __wsum;

enum { BPF_MAP_TYPE_ARRAY = 2, BPF_MAP_TYPE_PERCPU_ARRAY = 6, BPF_MAP_TYPE_RINGBUF = 27 };
enum { BPF_RB_NO_WAKEUP = 1, BPF_RB_FORCE_WAKEUP = 2 };
enum { BPF_F_MMAPABLE = 1024 };

#ifdef __bpf__
#pragma clang attribute push(__attribute__((preserve_access_index)), apply_to = record)
#endif
struct qstr {
    const unsigned char* name;
};
struct user_namespace {
    int level; /* 0: the first one */
};
struct super_block {
    __u32 s_dev;
    unsigned long s_magic;
    __u32 s_time_gran; /* of its time stamps, in ns */
    struct user_namespace* s_user_ns;
};
struct timespec64 {
    __s64 tv_sec;
    long tv_nsec;
};
struct inode {
    unsigned long i_ino;
    unsigned int i_nlink;
    __s64 i_size;
    struct super_block* i_sb;
    __s64 i_ctime_sec; /* since Linux 6.11 */
    __u32 i_ctime_nsec;
};
struct inode___6_6 { /* until 6.10 */
    struct timespec64 __i_ctime;
};
struct inode___6_5 { /* until that */
    struct timespec64 i_ctime;
};
struct dentry {
    struct dentry* d_parent;
    struct qstr d_name;
};
struct vfsmount {
    struct dentry* mnt_root;
};
struct mnt_namespace;
struct mount {
    struct mount* mnt_parent;
    struct dentry* mnt_mountpoint;
    struct vfsmount mnt;
    struct mnt_namespace* mnt_ns;
    int mnt_id;
};
struct path {
    struct vfsmount* mnt;
    struct dentry* dentry;
};
struct file {
    struct path f_path;
    struct inode* f_inode;
};
struct mm_struct {
    unsigned long arg_start;
    unsigned long arg_end;
    struct file* exe_file;
};
struct fs_struct {
    struct path root;
    struct path pwd;
};
struct ns_common {
    unsigned int inum;
};
struct mnt_namespace {
    struct ns_common ns;
};
struct nsproxy {
    struct mnt_namespace* mnt_ns;
};
typedef struct {
    int counter;
} atomic_t;
struct signal_struct {
    atomic_t live;
};
struct task_struct {
    int pid;
    int tgid;
    struct task_struct* real_parent;
    struct mm_struct* mm;
    struct fs_struct* fs;
    struct nsproxy* nsproxy;
    struct signal_struct* signal;
};
struct linux_binprm {
    const char* filename;
    const char* interp;
};
#ifdef __bpf__
#pragma clang attribute pop
#endif

/* The context of a raw tracepoint, whose layout is fixed. */
struct bpf_raw_tracepoint_args {
    __u64 args[3];
};

#endif
