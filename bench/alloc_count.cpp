// Heap-allocation counter for `make bench`, loaded into the daemon with LD_PRELOAD.
//
// Counts, per thread, every allocation call (malloc, calloc, realloc, the aligned forms; C++'s
// operator new ends in malloc) and every timed wait (pthread_cond_timedwait/clockwait,
// nanosleep, clock_nanosleep), which marks one tick on the sampling thread. The counters live in
// a file mapped shared (TARN_ALLOC_COUNTS), one slot per thread id, so the bench reads them from
// outside while the daemon runs.
//
// TARN_ALLOC_SKIP lists code ranges of the executable as "start:size,..." (hex, from nm): an
// allocation made while one of them is on the call stack is counted apart, as "skipped". The
// bench passes the telemetry SDK stand-in's entry points, whose framing allocates in a way the
// real SDK need not.
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>
#include <unwind.h>

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
void __libc_free(void*);
}

namespace {

struct Slot {
    int32_t tid;
    int32_t unused;
    uint64_t allocs;
    uint64_t skipped;
    uint64_t frees;
    uint64_t waits;
};
constexpr int kSlots = 256;
constexpr int kRanges = 16;

Slot* g_slots = nullptr;
uintptr_t g_skip_start[kRanges];
uintptr_t g_skip_end[kRanges];
int g_skip_count = 0;

__thread Slot* t_slot __attribute__((tls_model("initial-exec"))) = nullptr;
__thread int t_busy __attribute__((tls_model("initial-exec"))) = 0;

Slot* my_slot() {
    if (g_slots == nullptr) return nullptr;
    if (t_slot != nullptr) return t_slot;
    int32_t tid = static_cast<int32_t>(syscall(SYS_gettid));
    for (int i = 0; i < kSlots; i++) {
        int32_t expected = 0;
        if (__atomic_load_n(&g_slots[i].tid, __ATOMIC_ACQUIRE) == tid ||
            __atomic_compare_exchange_n(&g_slots[i].tid, &expected, tid, false, __ATOMIC_ACQ_REL,
                                        __ATOMIC_ACQUIRE)) {
            t_slot = &g_slots[i];
            return t_slot;
        }
    }
    return nullptr;
}

_Unwind_Reason_Code find_skipped(struct _Unwind_Context* ctx, void* arg) {
    uintptr_t ip = _Unwind_GetIP(ctx);
    for (int i = 0; i < g_skip_count; i++) {
        if (ip > g_skip_start[i] && ip <= g_skip_end[i]) {
            *static_cast<bool*>(arg) = true;
            return _URC_END_OF_STACK;
        }
    }
    return _URC_NO_REASON;
}

void count_alloc() {
    if (t_busy) return;
    t_busy = 1;
    if (Slot* s = my_slot()) {
        bool skipped = false;
        if (g_skip_count > 0) _Unwind_Backtrace(find_skipped, &skipped);
        __atomic_add_fetch(skipped ? &s->skipped : &s->allocs, 1, __ATOMIC_RELAXED);
    }
    t_busy = 0;
}

void count_free(void* p) {
    if (p == nullptr || t_busy) return;
    if (Slot* s = my_slot()) __atomic_add_fetch(&s->frees, 1, __ATOMIC_RELAXED);
}

void count_wait() {
    if (Slot* s = my_slot()) __atomic_add_fetch(&s->waits, 1, __ATOMIC_RELAXED);
}

int main_program(struct dl_phdr_info* info, size_t, void* bias) {
    *static_cast<uintptr_t*>(bias) = info->dlpi_addr;
    return 1;  // the first object is the executable
}

__attribute__((constructor)) void setup() {
    const char* path = getenv("TARN_ALLOC_COUNTS");
    if (path == nullptr) return;
    int fd = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) return;
    size_t size = sizeof(Slot) * kSlots;
    if (ftruncate(fd, static_cast<off_t>(size)) == 0) {
        void* map = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        if (map != MAP_FAILED) {
            memset(map, 0, size);
            g_slots = static_cast<Slot*>(map);
        }
    }
    close(fd);

    uintptr_t bias = 0;
    dl_iterate_phdr(main_program, &bias);
    const char* p = getenv("TARN_ALLOC_SKIP");
    while (p != nullptr && *p != '\0' && g_skip_count < kRanges) {
        char* end = nullptr;
        uintptr_t start = strtoull(p, &end, 16);
        if (end == p || *end != ':') break;
        p = end + 1;
        uintptr_t len = strtoull(p, &end, 16);
        if (end == p) break;
        g_skip_start[g_skip_count] = bias + start;
        g_skip_end[g_skip_count] = bias + start + len;
        g_skip_count++;
        p = *end == ',' ? end + 1 : end;
    }
}

template <typename Fn>
Fn next(const char* name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

void* malloc(size_t n) {
    count_alloc();
    return __libc_malloc(n);
}

void* calloc(size_t n, size_t m) {
    count_alloc();
    return __libc_calloc(n, m);
}

void* realloc(void* p, size_t n) {
    count_alloc();
    return __libc_realloc(p, n);
}

void free(void* p) {
    count_free(p);
    __libc_free(p);
}

void* memalign(size_t align, size_t n) {
    count_alloc();
    return __libc_memalign(align, n);
}

void* aligned_alloc(size_t align, size_t n) {
    count_alloc();
    return __libc_memalign(align, n);
}

int posix_memalign(void** out, size_t align, size_t n) {
    if (align < sizeof(void*) || (align & (align - 1)) != 0) return EINVAL;
    count_alloc();
    void* p = __libc_memalign(align, n);
    if (p == nullptr) return ENOMEM;
    *out = p;
    return 0;
}

int pthread_cond_timedwait(pthread_cond_t* c, pthread_mutex_t* m, const struct timespec* t) {
    static auto real =
        next<int (*)(pthread_cond_t*, pthread_mutex_t*, const struct timespec*)>(__func__);
    count_wait();
    return real(c, m, t);
}

int pthread_cond_clockwait(pthread_cond_t* c, pthread_mutex_t* m, clockid_t clock,
                           const struct timespec* t) {
    static auto real =
        next<int (*)(pthread_cond_t*, pthread_mutex_t*, clockid_t, const struct timespec*)>(
            __func__);
    count_wait();
    return real(c, m, clock, t);
}

int nanosleep(const struct timespec* t, struct timespec* rem) {
    static auto real = next<int (*)(const struct timespec*, struct timespec*)>(__func__);
    count_wait();
    return real(t, rem);
}

int clock_nanosleep(clockid_t clock, int flags, const struct timespec* t, struct timespec* rem) {
    static auto real =
        next<int (*)(clockid_t, int, const struct timespec*, struct timespec*)>(__func__);
    count_wait();
    return real(clock, flags, t, rem);
}

}  // extern "C"
