/* SPDX-License-Identifier: BSD-3-Clause */
/* Preloaded into a program, breaks one call of the C library: the FAULT_AT-th one of the function
 * FAULT_CALL. The FAULT_ACTION is "fail" (an error), "end" (the end of the file, as of one that
 * shrank), "kill" (SIGKILL) or "meet" (runs the command FAULT_MEETS, and then the call as usual). A
 * broken write writes half. The call creates the file FAULT_MARK. Other programs run as usual. */
#include <errno.h>
#include <signal.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>

extern void* dlsym(void* handle, const char* name);
extern long syscall(long number, ...);

static const char* call;
static const char* action;
static const char* mark;
static long countdown;

__attribute__((constructor)) static void set_up(void) {
  extern char* program_invocation_short_name;
  if (strcmp(program_invocation_short_name, "bfcl-library") != 0) {
    return; /* a tool that runs it */
  }
  call = getenv("FAULT_CALL");
  action = getenv("FAULT_ACTION");
  mark = getenv("FAULT_MARK");
  countdown = atol(getenv("FAULT_AT"));
  unsetenv("LD_PRELOAD");
  syscall(SYS_alarm, 20); /* ends a program that hangs */
}

typedef int main_function(int, char**, char**);
static main_function* program;

static int watched_main(int argc, char** argv, char** environment) {
  const int status = program(argc, argv, environment);
  call = NULL;
  return status;
}

/* What a sanitizer or a profiler does after the program's own end is left alone. */
int __libc_start_main(main_function* main, int argc, char** argv, void (*init)(void), void (*fini)(void),
                      void (*end)(void), void* stack);
int __libc_start_main(main_function* main, int argc, char** argv, void (*init)(void), void (*fini)(void),
                      void (*end)(void), void* stack) {
  int (*next)(main_function*, int, char**, void (*)(void), void (*)(void), void (*)(void), void*);
  *(void**)&next = dlsym((void*)-1L /* RTLD_NEXT */, "__libc_start_main");
  program = main;
  return next(watched_main, argc, argv, init, fini, end, stack);
}

static int is_action(const char* name) {
  return strcmp(action, name) == 0;
}

static int is_broken(const char* name) {
  if (call == NULL || strcmp(call, name) != 0 || --countdown != 0) {
    return 0;
  }
  syscall(SYS_close, syscall(SYS_open, mark, 0101 /* O_WRONLY | O_CREAT */, 0600));
  if (is_action("meet")) {
    call = NULL;
    return system(getenv("FAULT_MEETS")) == -1;
  }
  return 1;
}

/* In the place of the headers that declare these functions, types of the same size. A broken call
 * does `first` all the same, as closing does, and returns `result`. */
#define WRAP(type, name, params, args, first, result)                                                                  \
  type name params;                                                                                                    \
  type name params {                                                                                                   \
    static type(*next) params;                                                                                         \
    if (next == NULL) {                                                                                                \
      *(void**)&next = dlsym((void*)-1L /* RTLD_NEXT */, #name);                                                       \
    }                                                                                                                  \
    if (!is_broken(#name)) {                                                                                           \
      return next args;                                                                                                \
    }                                                                                                                  \
    first;                                                                                                             \
    if (is_action("kill")) {                                                                                           \
      syscall(SYS_kill, syscall(SYS_getpid), SIGKILL);                                                                 \
    }                                                                                                                  \
    errno = EIO;                                                                                                       \
    return result;                                                                                                     \
  }
#define NOTHING (void)0
#define ERROR_OR_END (is_action("end") ? 0 : -1)
#define MARK_ERROR *(int*)file |= is_action("end") ? 0 : 0x20 /* what ferror looks at */

WRAP(int, open, (const char* path, int flags, unsigned mode), (path, flags, mode), NOTHING, -1)
WRAP(int, close, (int fd), (fd), next(fd), -1)
WRAP(long, read, (int fd, void* to, size_t size), (fd, to, size), NOTHING, ERROR_OR_END)
WRAP(long, pread, (int fd, void* to, size_t size, long at), (fd, to, size, at), NOTHING, ERROR_OR_END)
WRAP(long, pwrite, (int fd, const void* from, size_t size, long at), (fd, from, size, at), next(fd, from, size / 2, at),
     -1)
WRAP(long, write, (int fd, const void* from, size_t size), (fd, from, size), next(fd, from, size / 2), -1)
WRAP(int, fcntl, (int fd, int command, long argument), (fd, command, argument), NOTHING, -1)
WRAP(int, memfd_create, (const char* name, unsigned flags), (name, flags), NOTHING, -1)
WRAP(int, fsync, (int fd), (fd), NOTHING, -1)
WRAP(int, ftruncate, (int fd, long size), (fd, size), NOTHING, -1)
WRAP(int, fallocate, (int fd, int mode, long at, long size), (fd, mode, at, size), NOTHING, -1)
WRAP(int, stat, (const char* path, void* status), (path, status), NOTHING, -1)
WRAP(int, fstat, (int fd, void* status), (fd, status), NOTHING, -1)
WRAP(int, mkostemp, (char* path, int flags), (path, flags), NOTHING, -1)
WRAP(int, fchmod, (int fd, unsigned mode), (fd, mode), NOTHING, -1)
WRAP(int, dup3, (int from, int to, int flags), (from, to, flags), NOTHING, -1)
WRAP(char*, realpath, (const char* path, char* to), (path, to), NOTHING, NULL)
WRAP(int, mkdir, (const char* path, unsigned mode), (path, mode), NOTHING, -1)
WRAP(int, unlink, (const char* path), (path), NOTHING, -1)
WRAP(int, rename, (const char* from, const char* to), (from, to), NOTHING, -1)
WRAP(char*, getcwd, (char* to, size_t size), (to, size), NOTHING, NULL)
WRAP(void*, mmap, (void* at, size_t size, int prot, int flags, int fd, long offset),
     (at, size, prot, flags, fd, offset), NOTHING, (void*)-1L)
WRAP(void*, fopen, (const char* path, const char* mode), (path, mode), NOTHING, NULL)
WRAP(void*, fdopen, (int fd, const char* mode), (fd, mode), NOTHING, NULL)
WRAP(void*, popen, (const char* command, const char* mode), (command, mode), NOTHING, NULL)
WRAP(int, system, (const char* command), (command), NOTHING, -1)
WRAP(size_t, fread, (void* to, size_t size, size_t n, void* file), (to, size, n, file), MARK_ERROR, 0)
WRAP(char*, fgets, (char* to, int size, void* file), (to, size, file), MARK_ERROR, NULL)
WRAP(size_t, fwrite, (const void* from, size_t size, size_t n, void* file), (from, size, n, file), MARK_ERROR,
     next(from, size, n / 2, file))
WRAP(int, fclose, (void* file), (file), next(file), -1)
WRAP(int, pclose, (void* file), (file), next(file), -1)
WRAP(int, fflush, (void* file), (file), MARK_ERROR, -1)

/* The allocation that the program would call, which may be a sanitizer's. Those of C count as
 * malloc, those of C++ as new. */
#define WRAP_ALLOCATION(call_name, name, params, args, broken)                                                         \
  void* name params;                                                                                                   \
  void* name params {                                                                                                  \
    static void*(*next)params;                                                                                         \
    if (next == NULL) {                                                                                                \
      *(void**)&next = dlsym((void*)-1L /* RTLD_NEXT */, #name);                                                       \
    }                                                                                                                  \
    return is_broken(call_name) ? broken : next args;                                                                  \
  }

static void* throw_bad_alloc(void) {
  void (*throw_it)(void);
  *(void**)&throw_it = dlsym(NULL /* RTLD_DEFAULT */, "_ZSt17__throw_bad_allocv");
  throw_it();
  return NULL;
}

WRAP_ALLOCATION("malloc", malloc, (size_t size), (size), NULL)
WRAP_ALLOCATION("malloc", calloc, (size_t n, size_t size), (n, size), NULL)
WRAP_ALLOCATION("malloc", realloc, (void* old, size_t size), (old, size), NULL)
WRAP_ALLOCATION("new", _Znwm, (size_t size), (size), throw_bad_alloc())
WRAP_ALLOCATION("new", _Znam, (size_t size), (size), throw_bad_alloc())
WRAP_ALLOCATION("new", _ZnwmRKSt9nothrow_t, (size_t size, const void* tag), (size, tag), NULL)
WRAP_ALLOCATION("new", _ZnamRKSt9nothrow_t, (size_t size, const void* tag), (size, tag), NULL)
