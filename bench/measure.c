// Runs a program and prints its run time in seconds and the most memory that it had at a time, in
// bytes. A program of its own, and a small one: Linux counts what a process was before it executed
// a program as that program's memory.
//
// Usage: measure PROGRAM [ARGUMENT]...
#include <stdio.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

static double Seconds(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (double)now.tv_sec + (double)now.tv_nsec / 1e9;
}

int main(int argc, char** argv) {
  if (argc < 2) {
    return 2;
  }
  const double start = Seconds();
  const pid_t child = fork();
  if (child == 0) {
    execv(argv[1], argv + 1);
    _exit(127);
  }
  int status = 0;
  struct rusage usage;
  if (wait4(child, &status, 0, &usage) != child || status != 0) {
    return 1;
  }
  printf("%.6f %ld\n", Seconds() - start, usage.ru_maxrss * 1024);
  return 0;
}
