/* Ends at once; with an argument that begins with '~' after one millisecond of work. */
#if defined(__x86_64__)
static long call(long number, long first, long second) {
    long result;
    __asm__ volatile("syscall"
                     : "=a"(result)
                     : "a"(number), "D"(first), "S"(second)
                     : "rcx", "r11", "memory");
    return result;
}
enum { EXIT = 231, CLOCK = 228 };
__asm__(".globl _start\n_start:\n  mov %rsp, %rdi\n  call begin\n");
#elif defined(__aarch64__)
static long call(long number, long first, long second) {
    register long x8 __asm__("x8") = number;
    register long x0 __asm__("x0") = first;
    register long x1 __asm__("x1") = second;
    __asm__ volatile("svc 0" : "+r"(x0) : "r"(x8), "r"(x1) : "memory");
    return x0;
}
enum { EXIT = 94, CLOCK = 113 };
__asm__(".globl _start\n_start:\n  mov x0, sp\n  bl begin\n");
#else
#error "no system calls known for this processor"
#endif

static long now(void) {
    long time[2];
    call(CLOCK, 1, (long)time);
    return time[0] * 1000000000L + time[1];
}

__attribute__((used)) void begin(long* stack) {
    char** arguments = (char**)(stack + 1);
    if (stack[0] > 1 && arguments[1][0] == '~') {
        const long end = now() + 1000000;
        while (now() < end) {
        }
    }
    call(EXIT, 0, 0);
}
