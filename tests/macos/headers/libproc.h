// A stand-in: README.md. Lists of processes and what sys/proc_info.h has for them.
#pragma once

#include <stdint.h>

struct proc_fdinfo {
    int32_t proc_fd;
    uint32_t proc_fdtype;
};

struct proc_taskinfo {
    uint64_t pti_virtual_size;
    uint64_t pti_resident_size;
    uint64_t pti_total_user;
    uint64_t pti_total_system;
    uint64_t pti_threads_user;
    uint64_t pti_threads_system;
    int32_t pti_policy;
    int32_t pti_faults;
    int32_t pti_pageins;
    int32_t pti_cow_faults;
    int32_t pti_messages_sent;
    int32_t pti_messages_received;
    int32_t pti_syscalls_mach;
    int32_t pti_syscalls_unix;
    int32_t pti_csw;
    int32_t pti_threadnum;
    int32_t pti_numrunning;
    int32_t pti_priority;
};

#define PROC_PPID_ONLY 6
#define PROC_PIDLISTFDS 1
#define PROC_PIDTASKINFO 4

extern "C" int proc_pidinfo(int pid, int flavor, uint64_t arg, void* buffer, int buffersize);
extern "C" int proc_listpids(uint32_t type, uint32_t typeinfo, void* buffer, int buffersize);
