/* Linked into what is run where coverage is counted: what was counted is kept however a program ends, but
   for SIGKILL and faults of its own. */

#include <signal.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>

void __gcov_dump(void);
void __real__exit(int status) __attribute__((noreturn));
void __wrap__exit(int status) __attribute__((noreturn));

/* The limits that a test sets are meant for the program. Room for descriptors is made by closing those that
   it leaves open; where no file may grow, nothing is kept: half a file of counts would spoil those of every
   other run. What the library of the counts says of files that it can't write, it says on standard error,
   which tests look at. */
__attribute__((destructor)) static void makeReady(void) {
  for (int descriptor = 0; descriptor < 1024; ++descriptor) {
    if (descriptor != STDOUT_FILENO && descriptor != STDERR_FILENO) close(descriptor);
  }
  struct rlimit limit;
  if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY) {
    setenv("GCOV_PREFIX", "/dev/null", 1);
  }
  static char unread[1024];
  FILE *const silent = fmemopen(unread, sizeof unread, "w");
  if (silent != NULL) stderr = silent;
}

static void keep(void) {
  makeReady();
  __gcov_dump();
}

void __wrap__exit(int status) {
  keep();
  __real__exit(status);
}

/* The signal was set back to what it does by itself, and waits until this returns. */
static void keepAndEnd(int number) {
  keep();
  raise(number);
}

/* Before main, so that what the program arranges for a signal takes the place of this. */
__attribute__((constructor)) static void keepAtSignals(void) {
  static const int ending[] = {SIGHUP, SIGINT, SIGPIPE, SIGTERM};
  for (size_t index = 0; index < sizeof ending / sizeof *ending; ++index) {
    struct sigaction action;
    if (sigaction(ending[index], NULL, &action) != 0 || action.sa_handler != SIG_DFL) continue;
    action.sa_handler = keepAndEnd;
    action.sa_flags = (int)SA_RESETHAND;
    sigaction(ending[index], &action, NULL);
  }
}
