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
#include <unistd.h>

namespace vask_bench {

// CPU seconds (user and system) used so far by process `pid`, or 0 when it cannot be read.
inline double process_cpu_seconds(pid_t pid, pid_t *parent = nullptr)
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
    if (end_of_name == std::string::npos)
        return 0;
    // After the name: state, ppid, then eleven fields up to utime and stime.
    char state = 0;
    long ppid = 0;
    unsigned long utime = 0;
    unsigned long stime = 0;
    if (sscanf(text.c_str() + end_of_name + 1, " %c %ld %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu", &state, &ppid,
               &utime, &stime) != 4)
        return 0;
    if (parent != nullptr)
        *parent = static_cast<pid_t>(ppid);
    return static_cast<double>(utime + stime) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// CPU seconds used so far by this process and its children (the broker and the simulator): the
// whole cost of the calls or signals measured, whichever process it falls in. Clock-tick
// resolution, so meant for runs of many operations.
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
        pid_t parent = 0;
        double used = process_cpu_seconds(static_cast<pid_t>(pid), &parent);
        if (parent == getpid())
            total += used;
    }
    closedir(proc);
    return total;
}

} // namespace vask_bench

#endif
