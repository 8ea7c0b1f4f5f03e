// The table of started programs, and the operations on it.
#include "transport/process_ops.h"

#include "codec/text.h"
#include "frame/channel.h"
#include "frame/log.h"
#include "frame/settings.h"
#include "platform/platform.h"
#include "transport/vfile.h"

static int32_t ProcessTable[MostPrograms]; // processes; 0 = free. Guarded by OS_LOCK_PROCESSES

void ClearProcessTable()
{
    osLockEnter(OS_LOCK_PROCESSES);
    for (int32_t& process : ProcessTable) {
        if (process != 0)
            osProcessIsRunning(process); // leaves no trace of one that has ended
        process = 0;
    }
    osLockLeave(OS_LOCK_PROCESSES);
}

// The entry in which a process was stored, or -1 if none is free.
static int32_t StoreProcess(int32_t process)
{
    int32_t entry = 0;
    osLockEnter(OS_LOCK_PROCESSES);
    while (entry < MostPrograms && ProcessTable[entry] != 0)
        entry++;
    if (entry < MostPrograms)
        ProcessTable[entry] = process;
    osLockLeave(OS_LOCK_PROCESSES);
    return entry < MostPrograms ? entry : -1;
}

static int32_t ProcessOf(int32_t entry)
{
    osLockEnter(OS_LOCK_PROCESSES);
    const int32_t process = ProcessTable[entry];
    osLockLeave(OS_LOCK_PROCESSES);
    return process;
}

// Frees an entry, unless another program has got it meanwhile.
static void ClearEntry(int32_t entry, int32_t process)
{
    osLockEnter(OS_LOCK_PROCESSES);
    if (ProcessTable[entry] == process)
        ProcessTable[entry] = 0;
    osLockLeave(OS_LOCK_PROCESSES);
}

int32_t StartProgram(const char* commandLine)
{
    const int32_t process = osProcessStart(commandLine);
    if (process < 0) {
        SetLastFileError(-process);
        return -1;
    }
    const int32_t entry = StoreProcess(process);
    if (entry < 0)
        return -1; // the program runs on, out of reach
    char line[FormatCapacity];
    FormatText(line, sizeof line, "CreateProcess %d: pid=%d thr=%d: \n", entry, process, 0);
    LogGlobal(line);
    return entry;
}

int32_t KillProgram(int32_t entry, int32_t)
{
    constexpr int KillTries = 3;
    constexpr uint32_t RetryPause = 100; // ms
    if (entry < 0 || entry >= MostPrograms)
        return 0;
    const int32_t process = ProcessOf(entry);
    char line[FormatCapacity];
    FormatText(line, sizeof line, "TerminateProcess %d: pid=%d thr=%d\n", entry, process, 0);
    LogGlobal(line);
    if (process == 0)
        return 0;
    int32_t status = -1;
    for (int i = 0; i < KillTries && status < 0; i++) {
        LogGlobal(".");
        status = osProcessKill(process);
        if (status < 0)
            osSleep(RetryPause);
    }
    ClearEntry(entry, process);
    return status < 0 ? 0 : 1;
}

int32_t ProgramIsRunning(int32_t entry)
{
    if (entry < 0 || entry >= MostPrograms)
        return 0;
    const int32_t process = ProcessOf(entry);
    if (process != 0 && osProcessIsRunning(process) == 1)
        return 1;
    ClearEntry(entry, process);
    return 0;
}

int32_t rynStartProgram(const char* commandLine)
{
    if (ChannelCount.load(std::memory_order_acquire) == 0)
        return RYN_ERR_NOT_ATTACHED;
    return commandLine == nullptr ? RYN_ERR_NULL_POINTER : StartProgram(commandLine);
}

int32_t rynKillProgram(int32_t entry, int32_t exitCode)
{
    if (ChannelCount.load(std::memory_order_acquire) == 0)
        return RYN_ERR_NOT_ATTACHED;
    return KillProgram(entry, exitCode);
}
