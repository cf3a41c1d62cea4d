/* GlibcFloor: keeps the library loadable on glibc 2.17 and later although it
 * is linked against a newer glibc. The linker binds every libc reference to
 * the newest version of the symbol it sees; those that are newer than 2.17
 * (from our code and from the statically linked C++ runtime and unwinder)
 * are renamed at link time with --wrap=SYMBOL to the __wrap_SYMBOL below,
 * which either calls the symbol's 2.2.5 version (pinned with .symver) or
 * does the work with interfaces every glibc has. A test reads the dynamic
 * symbol table and fails on any version newer than 2.17. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <stdint.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#define HIDDEN __attribute__((visibility("hidden")))

/* The original versions of symbols that glibc has since given new ones. */
__asm__(".symver glibc225_log, log@GLIBC_2.2.5");
__asm__(".symver glibc225_pthread_once, pthread_once@GLIBC_2.2.5");
__asm__(".symver glibc225_pthread_key_create, __pthread_key_create@GLIBC_2.2.5");
__asm__(".symver glibc225_fxstat64, __fxstat64@GLIBC_2.2.5");
double glibc225_log(double);
int glibc225_pthread_once(pthread_once_t*, void (*)(void));
int glibc225_pthread_key_create(pthread_key_t*, void (*)(void*));
int glibc225_fxstat64(int, int, struct stat64*);

HIDDEN double __wrap_log(double x) { return glibc225_log(x); }

HIDDEN int __wrap_pthread_once(pthread_once_t* once, void (*init)(void)) {
    return glibc225_pthread_once(once, init);
}

HIDDEN int __wrap___pthread_key_create(pthread_key_t* key, void (*destructor)(void*)) {
    return glibc225_pthread_key_create(key, destructor);
}

HIDDEN int __wrap_fstat64(int fd, struct stat64* buf) {
    return glibc225_fxstat64(1 /* _STAT_VER_LINUX on x86-64 */, fd, buf);
}

/* Never claim to be single-threaded: the runtime then always uses atomic
 * reference counts, which is right in any host. */
HIDDEN char __wrap___libc_single_threaded = 0;

/* Random bytes for std::random_device, from the kernel (getrandom, Linux
 * 3.17), else from /dev/urandom. */
static int FillRandom(void* buffer, size_t length) {
    unsigned char* p = (unsigned char*)buffer;
    size_t done = 0;
    while (done < length) {
        long n = syscall(SYS_getrandom, p + done, length - done, 0);
        if (n > 0) {
            done += (size_t)n;
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        break;
    }
    if (done == length) return 0;
    int fd = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    if (fd < 0) return -1;
    while (done < length) {
        ssize_t n = read(fd, p + done, length - done);
        if (n > 0) {
            done += (size_t)n;
        } else if (!(n < 0 && errno == EINTR)) {
            break;
        }
    }
    close(fd);
    return done == length ? 0 : -1;
}

HIDDEN int __wrap_getentropy(void* buffer, size_t length) {
    if (length > 256) {
        errno = EIO;
        return -1;
    }
    return FillRandom(buffer, length);
}

HIDDEN uint32_t __wrap_arc4random(void) {
    uint32_t v = 0;
    if (FillRandom(&v, sizeof v) != 0) __builtin_trap(); /* as arc4random, which cannot fail */
    return v;
}

/* The unwinder asks which loaded object holds a code address and where its
 * exception-frame index is. Older glibc has no _dl_find_object: walk the
 * program headers instead. */
struct FindData {
    uintptr_t pc;
    struct dl_find_object* result;
    int found;
};

static int FindObject(struct dl_phdr_info* info, size_t size, void* data) {
    (void)size;
    struct FindData* d = (struct FindData*)data;
    uintptr_t lo = UINTPTR_MAX, hi = 0;
    int contains = 0;
    const ElfW(Phdr)* frames = NULL;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr)* ph = &info->dlpi_phdr[i];
        if (ph->p_type == PT_LOAD) {
            uintptr_t start = info->dlpi_addr + ph->p_vaddr;
            uintptr_t end = start + ph->p_memsz;
            if (start < lo) lo = start;
            if (end > hi) hi = end;
            if (d->pc >= start && d->pc < end) contains = 1;
        } else if (ph->p_type == PT_GNU_EH_FRAME) {
            frames = ph;
        }
    }
    if (!contains) return 0;
    memset(d->result, 0, sizeof *d->result);
    d->result->dlfo_map_start = (void*)lo;
    d->result->dlfo_map_end = (void*)hi;
    d->result->dlfo_eh_frame = frames ? (void*)(info->dlpi_addr + frames->p_vaddr) : NULL;
    d->found = 1;
    return 1;
}

HIDDEN int __wrap__dl_find_object(void* pc, struct dl_find_object* result) {
    struct FindData d = {(uintptr_t)pc, result, 0};
    dl_iterate_phdr(FindObject, &d);
    return d.found ? 0 : -1;
}
