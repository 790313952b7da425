/* Runs a program and writes down its CPU time and its peak memory:
 *
 *   bench_rusage_of OUT-FILE PROGRAM [ARGUMENTS...]
 *
 * The program inherits standard input, output and error. OUT-FILE gets one
 * line, "<user us> <system us> <peak resident KiB>", from wait4() on the
 * program; for a program that starts processes of its own and waits for
 * them (vkagnss-line), their CPU time is in it too. The exit status is the
 * program's, 128 + N when signal N ended it, 127 when it could not start.
 *
 * Why a process of its own: the peak resident size the kernel reports for a
 * child (ru_maxrss) is never less than what the process that called exec had
 * resident, because exec keeps the larger of the two. Forked from a bench
 * that holds files, receivers and their records, the tool would be charged
 * with the bench's memory. Forked from this small C program, it is charged
 * with about 1 MiB at most, less than any vkagnss run needs.
 */
#include <errno.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char **argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: bench_rusage_of OUT-FILE PROGRAM [ARGUMENTS...]\n");
        return 2;
    }
    pid_t pid = fork();
    if (pid < 0) {
        perror("fork");
        return 127;
    }
    if (pid == 0) {
        execvp(argv[2], argv + 2);
        perror(argv[2]);
        _exit(127);
    }
    int status = 0;
    struct rusage ru;
    pid_t got;
    do {
        got = wait4(pid, &status, 0, &ru);
    } while (got < 0 && errno == EINTR);
    if (got < 0) {
        perror("wait4");
        return 127;
    }
    FILE *out = fopen(argv[1], "w");
    if (out == NULL) {
        perror(argv[1]);
        return 127;
    }
    long peak_kib = ru.ru_maxrss;
#ifdef __APPLE__
    peak_kib /= 1024; /* bytes there, KiB on Linux */
#endif
    fprintf(out, "%lld %lld %ld\n",
            (long long)ru.ru_utime.tv_sec * 1000000 + (long long)ru.ru_utime.tv_usec,
            (long long)ru.ru_stime.tv_sec * 1000000 + (long long)ru.ru_stime.tv_usec, peak_kib);
    if (fclose(out) != 0) {
        perror(argv[1]);
        return 127;
    }
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    return 128 + WTERMSIG(status);
}
