/* Makes a file and writes to it through io_uring, without any open, write or close of its own.
 *
 * Usage: uring FILE; 0: done, 3: the kernel has no io_uring for us, 1: it failed. */
#define _GNU_SOURCE
#include <fcntl.h>
#include <linux/io_uring.h>
#include <stdatomic.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

static int ring;
static unsigned* submitTail;
static unsigned* submitMask;
static unsigned* submitArray;
static unsigned* doneHead;
static unsigned* doneMask;
static struct io_uring_sqe* entries;
static struct io_uring_cqe* results;

static int run(const struct io_uring_sqe* entry) {
    const unsigned tail = *submitTail;
    const unsigned index = tail & *submitMask;
    entries[index] = *entry;
    submitArray[index] = index;
    atomic_store_explicit((_Atomic unsigned*)submitTail, tail + 1, memory_order_release);
    if (syscall(SYS_io_uring_enter, ring, 1, 1, IORING_ENTER_GETEVENTS, NULL, 0) < 0) {
        return -1;
    }
    const unsigned head = *doneHead;
    const int result = results[head & *doneMask].res;
    atomic_store_explicit((_Atomic unsigned*)doneHead, head + 1, memory_order_release);
    return result;
}

static int set_up(void) {
    struct io_uring_params params;
    memset(&params, 0, sizeof(params));
    ring = (int)syscall(SYS_io_uring_setup, 4, &params);
    if (ring < 0) {
        return 0;
    }
    const size_t size = 65536;
    char* submit = mmap(NULL, size, PROT_READ | PROT_WRITE, MAP_SHARED, ring, IORING_OFF_SQ_RING);
    char* done = mmap(NULL, size, PROT_READ | PROT_WRITE, MAP_SHARED, ring, IORING_OFF_CQ_RING);
    entries = mmap(NULL, params.sq_entries * sizeof(*entries), PROT_READ | PROT_WRITE, MAP_SHARED,
                   ring, IORING_OFF_SQES);
    if (submit == MAP_FAILED || done == MAP_FAILED || entries == MAP_FAILED) {
        return 0;
    }
    submitTail = (unsigned*)(submit + params.sq_off.tail);
    submitMask = (unsigned*)(submit + params.sq_off.ring_mask);
    submitArray = (unsigned*)(submit + params.sq_off.array);
    doneHead = (unsigned*)(done + params.cq_off.head);
    doneMask = (unsigned*)(done + params.cq_off.ring_mask);
    results = (struct io_uring_cqe*)(done + params.cq_off.cqes);
    return 1;
}

int main(int count, char** arguments) {
    static const char TEXT[] = "# nothing\n";
    if (count != 2 || !set_up()) {
        perror("io_uring");
        return 3;
    }
    struct io_uring_sqe entry;
    memset(&entry, 0, sizeof(entry));
    entry.opcode = IORING_OP_OPENAT;
    entry.fd = AT_FDCWD;
    entry.addr = (unsigned long)arguments[1];
    entry.open_flags = O_CREAT | O_WRONLY;
    entry.len = 0644;
    const int file = run(&entry);
    memset(&entry, 0, sizeof(entry));
    entry.opcode = IORING_OP_WRITE;
    entry.fd = file;
    entry.addr = (unsigned long)TEXT;
    entry.len = sizeof(TEXT) - 1;
    const int written = run(&entry);
    memset(&entry, 0, sizeof(entry));
    entry.opcode = IORING_OP_CLOSE;
    entry.fd = file;
    const int closed = run(&entry);
    return file >= 0 && written == (int)sizeof(TEXT) - 1 && closed == 0 ? 0 : 1;
}
