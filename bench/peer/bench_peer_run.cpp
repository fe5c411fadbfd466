// Runs one command and reports its wall time and peak resident size:
//   bench_peer_run RESULT_FILE OUTPUT_FILE COMMAND [ARG...]
// writes "<seconds> <peak KB> <exit status>" into RESULT_FILE and the
// command's standard output into OUTPUT_FILE. A forked child inherits the
// resident pages of its parent until it execs, and the kernel keeps that
// figure as the child's peak; starting every measured command from this
// small program keeps the inherited part to its own few pages instead of
// those of the benchmark that wrote hundreds of megabytes of content.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "usage: bench_peer_run RESULT_FILE OUTPUT_FILE COMMAND [ARG...]\n");
        return 2;
    }
    timespec start{}, end{};
    clock_gettime(CLOCK_MONOTONIC, &start);
    pid_t pid = fork();
    if (pid == 0) {
        int out = open(argv[2], O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (out >= 0) dup2(out, 1);
        execv(argv[3], argv + 3);
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    if (pid < 0 || wait4(pid, &status, 0, &usage) < 0) return 1;
    clock_gettime(CLOCK_MONOTONIC, &end);
    const double seconds =
        double(end.tv_sec - start.tv_sec) + 1e-9 * double(end.tv_nsec - start.tv_nsec);
    FILE* result = std::fopen(argv[1], "w");
    if (!result) return 1;
    std::fprintf(result, "%.6f %ld %d\n", seconds, usage.ru_maxrss,
                 WIFEXITED(status) ? WEXITSTATUS(status) : 128);
    std::fclose(result);
    return 0;
}
