// SPDX-License-Identifier: MIT
// The CPU a benchmark's calls cost in every process involved: this one and the processes it started
// (broker, service, responders, dbus-daemon), read from /proc.
#ifndef VASK_BENCH_CPU_USAGE_H
#define VASK_BENCH_CPU_USAGE_H

#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <time.h>
#include <unistd.h>

namespace vask_bench {

// The parent of process `pid`, from /proc/PID/stat, or 0 when it cannot be read.
inline pid_t parent_pid(pid_t pid)
{
    // Plain read(2): a process that exits meanwhile makes the read fail (ESRCH), which a stream
    // would turn into an exception.
    char buffer[1024];
    int fd = ::open(("/proc/" + std::to_string(pid) + "/stat").c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return 0;
    ssize_t length = ::read(fd, buffer, sizeof buffer - 1);
    ::close(fd);
    if (length <= 0)
        return 0;
    std::string text(buffer, static_cast<size_t>(length));
    size_t end_of_name = text.rfind(')');
    long ppid = 0;
    if (end_of_name == std::string::npos || sscanf(text.c_str() + end_of_name + 1, " %*c %ld", &ppid) != 1)
        return 0;
    return static_cast<pid_t>(ppid);
}

// CPU seconds (user and system, all its threads, those gone included) used so far by process
// `pid`, or 0 when it cannot be read. The process's CPU clock counts nanoseconds, where the times
// of /proc/PID/stat count clock ticks (10 ms): fine enough for a few thousand calls of 10 us.
inline double process_cpu_seconds(pid_t pid)
{
    clockid_t clock = 0;
    timespec used{};
    if (clock_getcpuclockid(pid, &clock) != 0 || clock_gettime(clock, &used) != 0)
        return 0;
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
}

// CPU seconds used so far by this process and its children (the broker and the simulator): the
// whole cost of the calls or signals measured, whichever process it falls in.
inline double box_cpu_seconds()
{
    double total = process_cpu_seconds(getpid());
    DIR *proc = opendir("/proc");
    if (proc == nullptr)
        return total;
    while (const dirent *entry = readdir(proc)) {
        char *end = nullptr;
        long pid = strtol(entry->d_name, &end, 10);
        if (end == entry->d_name || *end != '\0' || pid == getpid())
            continue;
        if (parent_pid(static_cast<pid_t>(pid)) == getpid())
            total += process_cpu_seconds(static_cast<pid_t>(pid));
    }
    closedir(proc);
    return total;
}

} // namespace vask_bench

#endif
