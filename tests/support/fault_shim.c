// SPDX-License-Identifier: MIT
/* Fault injection for the file calls of the configuration store, linked into a test helper program
 * so that its definitions take the place of the C library's (no LD_PRELOAD, so it also works under
 * the sanitizers, and the same way for root and for an ordinary user).
 *
 * VASK_FAULT="call:errno:match[;call:errno:match...]": `call` fails with `errno` when the path it
 * works on contains `match`. Calls: open (opens for writing only), write, fsync, rename (the new
 * name), fallocate (posix_fallocate), access (faccessat for writing), fopen, fread (reads half of
 * what was asked; errno unused). Without VASK_FAULT every call goes straight to the C library. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>
#include <unistd.h>

#define MAX_FAULTS 4

struct fault {
    char call[16];
    int error;
    char match[256];
};

static struct fault faults[MAX_FAULTS];
static int fault_count = -1;

static void load_faults(void)
{
    const char *text = getenv("VASK_FAULT");
    fault_count = 0;
    while (text != NULL && *text != '\0' && fault_count < MAX_FAULTS) {
        struct fault *f = &faults[fault_count];
        const char *end = strchr(text, ';');
        size_t length = end != NULL ? (size_t)(end - text) : strlen(text);
        char entry[300];
        if (length >= sizeof entry)
            break;
        memcpy(entry, text, length);
        entry[length] = '\0';
        char *first = strchr(entry, ':');
        char *second = first != NULL ? strchr(first + 1, ':') : NULL;
        if (second == NULL)
            break;
        *first = '\0';
        *second = '\0';
        if (strlen(entry) >= sizeof f->call || strlen(second + 1) >= sizeof f->match)
            break;
        memcpy(f->call, entry, strlen(entry) + 1);
        f->error = atoi(first + 1);
        memcpy(f->match, second + 1, strlen(second + 1) + 1);
        ++fault_count;
        text = end != NULL ? end + 1 : "";
    }
}

/* Read before main, so that the threads of the program only ever read the table. */
__attribute__((constructor)) static void load_faults_at_start(void)
{
    if (fault_count < 0)
        load_faults();
}

/* The fault for `call` on `path`, or NULL. */
static const struct fault *fault_for(const char *call, const char *path)
{
    if (fault_count < 0)
        load_faults();
    for (int i = 0; i < fault_count; ++i)
        if (strcmp(faults[i].call, call) == 0 && path != NULL && strstr(path, faults[i].match) != NULL)
            return &faults[i];
    return NULL;
}

static int has_fault(const char *call)
{
    if (fault_count < 0)
        load_faults();
    for (int i = 0; i < fault_count; ++i)
        if (strcmp(faults[i].call, call) == 0)
            return 1;
    return 0;
}

static const struct fault *fault_for_fd(const char *call, int fd)
{
    if (!has_fault(call))
        return NULL;
    char link[64];
    char path[4096];
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    ssize_t length = readlink(link, path, sizeof path - 1);
    if (length <= 0)
        return NULL;
    path[length] = '\0';
    return fault_for(call, path);
}

static void *next(const char *name)
{
    return dlsym(RTLD_NEXT, name);
}

static int fail(const struct fault *f)
{
    errno = f->error;
    return -1;
}

static int open_with(const char *name, const char *path, int flags, mode_t mode)
{
    const struct fault *f = (flags & O_ACCMODE) != O_RDONLY ? fault_for("open", path) : NULL;
    if (f != NULL)
        return fail(f);
    int (*real)(const char *, int, ...) = (int (*)(const char *, int, ...))next(name);
    return real(path, flags, mode);
}

int open(const char *path, int flags, ...)
{
    mode_t mode = 0;
    if (flags & (O_CREAT | O_TMPFILE)) {
        va_list args;
        va_start(args, flags);
        mode = va_arg(args, mode_t);
        va_end(args);
    }
    return open_with("open", path, flags, mode);
}

int open64(const char *path, int flags, ...)
{
    mode_t mode = 0;
    if (flags & (O_CREAT | O_TMPFILE)) {
        va_list args;
        va_start(args, flags);
        mode = va_arg(args, mode_t);
        va_end(args);
    }
    return open_with("open64", path, flags, mode);
}

ssize_t write(int fd, const void *buffer, size_t count)
{
    const struct fault *f = fault_for_fd("write", fd);
    if (f != NULL)
        return fail(f);
    ssize_t (*real)(int, const void *, size_t) = (ssize_t(*)(int, const void *, size_t))next("write");
    return real(fd, buffer, count);
}

int fsync(int fd)
{
    const struct fault *f = fault_for_fd("fsync", fd);
    if (f != NULL)
        return fail(f);
    int (*real)(int) = (int (*)(int))next("fsync");
    return real(fd);
}

int rename(const char *from, const char *to)
{
    const struct fault *f = fault_for("rename", to);
    if (f != NULL)
        return fail(f);
    int (*real)(const char *, const char *) = (int (*)(const char *, const char *))next("rename");
    return real(from, to);
}

static int fallocate_with(const char *name, int fd, off_t offset, off_t length)
{
    const struct fault *f = fault_for_fd("fallocate", fd);
    if (f != NULL)
        return f->error;
    int (*real)(int, off_t, off_t) = (int (*)(int, off_t, off_t))next(name);
    return real(fd, offset, length);
}

int posix_fallocate(int fd, off_t offset, off_t length)
{
    return fallocate_with("posix_fallocate", fd, offset, length);
}

int posix_fallocate64(int fd, off_t offset, off_t length)
{
    return fallocate_with("posix_fallocate64", fd, offset, length);
}

int faccessat(int dirfd, const char *path, int mode, int flags)
{
    const struct fault *f = (mode & W_OK) ? fault_for("access", path) : NULL;
    if (f != NULL)
        return fail(f);
    int (*real)(int, const char *, int, int) = (int (*)(int, const char *, int, int))next("faccessat");
    return real(dirfd, path, mode, flags);
}

static FILE *fopen_with(const char *name, const char *path, const char *mode)
{
    const struct fault *f = fault_for("fopen", path);
    if (f != NULL) {
        errno = f->error;
        return NULL;
    }
    FILE *(*real)(const char *, const char *) = (FILE * (*)(const char *, const char *)) next(name);
    return real(path, mode);
}

FILE *fopen(const char *path, const char *mode)
{
    return fopen_with("fopen", path, mode);
}

FILE *fopen64(const char *path, const char *mode)
{
    return fopen_with("fopen64", path, mode);
}

size_t fread(void *buffer, size_t size, size_t count, FILE *stream)
{
    if (fault_for_fd("fread", fileno(stream)) != NULL)
        count /= 2;
    size_t (*real)(void *, size_t, size_t, FILE *) = (size_t(*)(void *, size_t, size_t, FILE *))next("fread");
    return real(buffer, size, count, stream);
}
