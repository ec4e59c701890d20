// For builds that count the runs of each line: a process that ends with _exit,
// as the agent does, writes its counts first. The linker puts the first of these
// functions in the place of _exit.
#include <stdnoreturn.h>
#include <sys/resource.h>

void __gcov_dump(void);
noreturn void __real__exit(int status);
noreturn void __wrap__exit(int status);

noreturn void __wrap__exit(int status) {
  // Under a limit that a test has set the process would spoil the counts of others.
  struct rlimit none = {RLIM_INFINITY, RLIM_INFINITY};
  if (setrlimit(RLIMIT_FSIZE, &none) == 0)
    __gcov_dump();
  __real__exit(status);
}
