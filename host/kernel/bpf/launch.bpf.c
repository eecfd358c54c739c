/* SPDX-License-Identifier: GPL-2.0-only OR BSD-2-Clause */
/* Reports every start, copy and end of a process, from raw tracepoints, into one ring buffer. */
#include "host/kernel/bpf/kernel_types.h"

#include <bpf/bpf_core_read.h>
#include <bpf/bpf_helpers.h>

#include "host/kernel/bpf/launch_record.h"

/* The helpers that read kernel memory refuse programs that do not offer GPL terms. */
char LICENSE[] SEC("license") = "Dual BSD/GPL";

#define TEXT_MASK 0x7fff
#define NAME_MOST 256
#define INVOKED_MOST 4096
#define WALK_STEPS 80
#define WALK_BYTES 4096
#define NANOS 1000000000LL

/* One record that is being filled. The walk keeps its state in here and not in registers: only then
 * does the verifier see the same state in every round. Texts are written at offsets up to TEXT_MASK
 * and may be as long again; the room behind is for that. */
struct scratch {
    __u32 offset;
    __u32 walk_start;
    __u64 walk_dentry;
    __u64 walk_mount;
    struct launch_record record;
    char texts[LAUNCH_TEXTS_MOST];
};

struct {
    __uint(type, BPF_MAP_TYPE_RINGBUF);
    __uint(max_entries, 8 << 20);
} ring SEC(".maps");

/* One element a processor; the loader sets how many. A per-processor map refuses this size. */
struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(max_entries, 1);
    __type(key, __u32);
    __uint(value_size, sizeof(struct scratch));
} scratches SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_PERCPU_ARRAY);
    __uint(max_entries, LAUNCH_COUNTS);
    __type(key, __u32);
    __type(value, __u64);
} counts SEC(".maps");

/* Whether the reader sleeps. It sets this before, and whoever wakes it clears it. */
struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(map_flags, BPF_F_MMAPABLE);
    __uint(max_entries, 1);
    __type(key, __u32);
    __type(value, __u32);
} reader SEC(".maps");

static __always_inline void count(__u32 which) {
    __u64* value = bpf_map_lookup_elem(&counts, &which);
    if (value) {
        (*value)++;
    }
}

/* Appends the names from path up to the root of its mount namespace; the length in bytes. */
static __noinline __u32 walk(struct scratch* s, const struct path* path) {
    struct dentry* dentry = BPF_CORE_READ(path, dentry);
    struct vfsmount* vfsmount = BPF_CORE_READ(path, mnt);
    s->walk_start = s->offset;
    s->walk_dentry = (__u64)dentry;
    s->walk_mount = (__u64)vfsmount - bpf_core_field_offset(struct mount, mnt);
    for (int i = 0; i < WALK_STEPS; i++) {
        dentry = (struct dentry*)s->walk_dentry;
        struct mount* mount = (struct mount*)s->walk_mount;
        struct dentry* parent = BPF_CORE_READ(dentry, d_parent);
        if (dentry == BPF_CORE_READ(mount, mnt.mnt_root)) {
            struct mount* above = BPF_CORE_READ(mount, mnt_parent);
            if (above == mount) {
                return s->offset - s->walk_start;
            }
            s->walk_dentry = (__u64)BPF_CORE_READ(mount, mnt_mountpoint);
            s->walk_mount = (__u64)above;
            continue;
        }
        if (dentry == parent) { /* stands in no tree: a memfd, a pipe */
            return s->offset - s->walk_start;
        }
        __u32 offset = s->offset;
        if (offset - s->walk_start > WALK_BYTES) {
            break;
        }
        long length = bpf_probe_read_kernel_str(&s->texts[offset & TEXT_MASK], NAME_MOST,
                                                BPF_CORE_READ(dentry, d_name.name));
        if (length > 0) {
            s->offset = offset + (length & 0x1ff);
        }
        s->walk_dentry = (__u64)parent;
    }
    s->record.flags |= LAUNCH_PATH_CUT;
    return s->offset - s->walk_start;
}

/* Appends a text of the kernel; its length with the NUL. */
static __always_inline __u32 append(struct scratch* s, const char* text) {
    __u32 offset = s->offset;
    long length = bpf_probe_read_kernel_str(&s->texts[offset & TEXT_MASK], INVOKED_MOST, text);
    if (length <= 0) {
        return 0;
    }
    s->offset = offset + (length & 0x1fff);
    return length & 0x1fff;
}

static __always_inline int is_relative(struct scratch* s, __u32 length) {
    return length == 0 || s->texts[(s->offset - length) & TEXT_MASK] != '/';
}

/* The kernel has kept it under three names. The highest bit of the newest one's nanoseconds is a
 * mark of its own. */
static __always_inline __s64 change_time(struct inode* inode) {
    struct inode___6_6* older = (void*)inode;
    struct inode___6_5* oldest = (void*)inode;
    if (bpf_core_field_exists(inode->i_ctime_sec)) {
        return BPF_CORE_READ(inode, i_ctime_sec) * NANOS +
               (BPF_CORE_READ(inode, i_ctime_nsec) & 0x7fffffff);
    }
    if (bpf_core_field_exists(older->__i_ctime)) {
        return BPF_CORE_READ(older, __i_ctime.tv_sec) * NANOS +
               BPF_CORE_READ(older, __i_ctime.tv_nsec);
    }
    return BPF_CORE_READ(oldest, i_ctime.tv_sec) * NANOS + BPF_CORE_READ(oldest, i_ctime.tv_nsec);
}

/* The numbers of linux/magic.h, which not every version of it has. */
static __always_inline int is_served(struct super_block* super) {
    __u64 magic = BPF_CORE_READ(super, s_magic);
    /* FUSE, NFS, CIFS, SMB2, Ceph, 9P, AFS twice, Coda; an overlay that a user may have made */
    return magic == 0x65735546 || magic == 0x6969 || magic == 0xff534d42 || magic == 0xfe534d42 ||
           magic == 0x00c36400 || magic == 0x01021997 || magic == 0x5346414f ||
           magic == 0x6b414653 || magic == 0x73757245 ||
           (magic == 0x794c7630 && BPF_CORE_READ(super, s_user_ns, level) != 0);
}

static __always_inline int has_loose_times(struct super_block* super) {
    __u64 magic = BPF_CORE_READ(super, s_magic);
    /* tmpfs and memfd, ramfs, hugetlbfs, FAT, exFAT */
    return magic == 0x01021994 || magic == 0x858458f6 || magic == 0x958458f6 || magic == 0x4d44 ||
           magic == 0x2011bab0 || BPF_CORE_READ(super, s_time_gran) > 1000000;
}

static __always_inline void read_file(struct scratch* s, struct file* file) {
    struct inode* inode = BPF_CORE_READ(file, f_inode);
    struct mount* mount =
        (void*)BPF_CORE_READ(file, f_path.mnt) - bpf_core_field_offset(struct mount, mnt);
    s->record.mount_id = BPF_CORE_READ(mount, mnt_id);
    s->record.size = BPF_CORE_READ(inode, i_size);
    s->record.changed = change_time(inode);
    s->record.inode = BPF_CORE_READ(inode, i_ino);
    s->record.device = BPF_CORE_READ(inode, i_sb, s_dev);
    if (BPF_CORE_READ(inode, i_nlink) == 0) {
        s->record.flags |= LAUNCH_UNLINKED;
    }
    if (is_served(BPF_CORE_READ(inode, i_sb))) {
        s->record.flags |= LAUNCH_SERVED;
    }
    if (has_loose_times(BPF_CORE_READ(inode, i_sb))) {
        s->record.flags |= LAUNCH_LOOSE_TIMES;
    }
    s->record.path_length = walk(s, &file->f_path);
}

/* A mount of another namespace than the task's, or of none: its path leads elsewhere here. */
static __always_inline int is_foreign(struct task_struct* task, struct vfsmount* vfsmount) {
    struct mount* mount = (void*)vfsmount - bpf_core_field_offset(struct mount, mnt);
    return BPF_CORE_READ(mount, mnt_ns) != BPF_CORE_READ(task, nsproxy, mnt_ns);
}

/* By the file's name, "ld-linux-x86-64.so.2" or "libc.so": what it loads is an argument, which may
 * be relative. A copy under another name is known too late for that. */
static __always_inline int may_be_loader(struct task_struct* task) {
    char name[2] = {};
    bpf_probe_read_kernel(name, sizeof(name),
                          BPF_CORE_READ(task, mm, exe_file, f_path.dentry, d_name.name));
    return name[0] == 'l' && (name[1] == 'd' || name[1] == 'i');
}

static __always_inline void read_names(struct scratch* s, struct task_struct* task,
                                       struct linux_binprm* binprm) {
    const char* filename = BPF_CORE_READ(binprm, filename);
    const char* interp = BPF_CORE_READ(binprm, interp);
    s->record.name_length = append(s, filename);
    int relative = is_relative(s, s->record.name_length);
    s->record.interp_length = 0;
    if (interp != filename) {
        s->record.interp_length = append(s, interp);
        relative |= is_relative(s, s->record.interp_length);
    }
    relative |= may_be_loader(task);
    struct fs_struct* fs = BPF_CORE_READ(task, fs);
    s->record.cwd_length = relative ? walk(s, &fs->pwd) : 0;
    if (relative && is_foreign(task, BPF_CORE_READ(fs, pwd.mnt))) {
        s->record.flags |= LAUNCH_PATH_CUT;
    }
    s->record.root_length = walk(s, &fs->root);
}

static __always_inline void read_args(struct scratch* s, struct task_struct* task) {
    unsigned long start = BPF_CORE_READ(task, mm, arg_start);
    __u64 length = BPF_CORE_READ(task, mm, arg_end) - start;
    if (length > LAUNCH_ARGS_MOST) {
        length = LAUNCH_ARGS_MOST;
        s->record.flags |= LAUNCH_ARGS_CUT;
    }
    length &= TEXT_MASK;
    if (bpf_probe_read_user(&s->texts[s->offset & TEXT_MASK], length, (void*)start)) {
        s->record.flags |= LAUNCH_ARGS_UNREADABLE;
        length = 0;
    }
    s->record.args_length = length;
}

/* Whoever reads is to hold the file before anybody can put another in its place. An interrupt costs
 * more than the record: only a reader that sleeps is woken, and only once. */
static __always_inline void write_and_wake(struct scratch* s, __u64 size) {
    __u32 key = 0;
    volatile __u32* sleeps = bpf_map_lookup_elem(&reader, &key);
    __u64 wake = sleeps && *sleeps ? (*sleeps = 0, BPF_RB_FORCE_WAKEUP) : BPF_RB_NO_WAKEUP;
    if (bpf_ringbuf_output(&ring, &s->record, size, wake)) {
        count(LAUNCH_COUNT_LOST);
    }
    if (sleeps && *sleeps) { /* it fell asleep since it was asked, without having seen this */
        struct launch_life nothing = {.type = LAUNCH_WAKE};
        *sleeps = 0;
        bpf_ringbuf_output(&ring, &nothing, sizeof(nothing), BPF_RB_FORCE_WAKEUP);
    }
}

SEC("raw_tp/sched_process_exec")
int on_exec(struct bpf_raw_tracepoint_args* ctx) {
    struct task_struct* task = (struct task_struct*)ctx->args[0];
    count(LAUNCH_COUNT_CAPTURED);
    __u32 processor = bpf_get_smp_processor_id();
    struct scratch* s = bpf_map_lookup_elem(&scratches, &processor);
    if (!s) {
        count(LAUNCH_COUNT_LOST);
        return 0;
    }
    s->offset = 0;
    s->record.life.type = LAUNCH_EXEC;
    s->record.flags = 0;
    s->record.life.pid = BPF_CORE_READ(task, tgid);
    s->record.life.ppid = BPF_CORE_READ(task, real_parent, tgid);
    s->record.started = bpf_ktime_get_boot_ns();
    s->record.uid = bpf_get_current_uid_gid();
    s->record.cgroup = bpf_get_current_cgroup_id();
    s->record.mount_ns = BPF_CORE_READ(task, nsproxy, mnt_ns, ns.inum);
    read_file(s, BPF_CORE_READ(task, mm, exe_file));
    read_names(s, task, (struct linux_binprm*)ctx->args[2]);
    read_args(s, task);
    __u64 size =
        sizeof(s->record) + ((s->offset & TEXT_MASK) + (s->record.args_length & TEXT_MASK));
    write_and_wake(s, size);
    return 0;
}

static __always_inline void report(__u32 type, __u32 pid, __u32 ppid) {
    struct launch_life life = {.type = type, .pid = pid, .ppid = ppid};
    if (bpf_ringbuf_output(&ring, &life, sizeof(life), BPF_RB_NO_WAKEUP)) {
        count(LAUNCH_COUNT_OTHERS_LOST);
    }
}

SEC("raw_tp/sched_process_fork")
int on_fork(struct bpf_raw_tracepoint_args* ctx) {
    struct task_struct* parent = (struct task_struct*)ctx->args[0];
    struct task_struct* child = (struct task_struct*)ctx->args[1];
    __u32 pid = BPF_CORE_READ(child, tgid);
    if ((__u32)BPF_CORE_READ(child, pid) == pid) { /* no thread */
        report(LAUNCH_FORK, pid, BPF_CORE_READ(parent, tgid));
    }
    return 0;
}

SEC("raw_tp/sched_process_exit")
int on_exit(struct bpf_raw_tracepoint_args* ctx) {
    struct task_struct* task = (struct task_struct*)ctx->args[0];
    if (BPF_CORE_READ(task, signal, live.counter) == 0) { /* the last thread */
        report(LAUNCH_EXIT, BPF_CORE_READ(task, tgid), 0);
    }
    return 0;
}
