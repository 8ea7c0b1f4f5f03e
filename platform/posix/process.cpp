// Child processes of a POSIX system.
#include "platform/platform.h"
#include "platform/posix/posix_common.h"

#include <csignal>
#include <cstring>
#include <spawn.h>
#include <sys/wait.h>

extern char** environ;

constexpr size_t CommandCapacity = 4096; // bytes of a command line with its terminating zero
constexpr size_t MostWords = 64;         // of a command line, the final null included

// Splits a command line in place: blanks part words, double quotes group, '\' outside of them becomes
// '/'. The number of words, or -E2BIG.
static int32_t SplitWords(char* line, char* (&words)[MostWords])
{
    size_t count = 0;
    for (char* from = line; *from != 0;) {
        while (*from == ' ')
            from++;
        if (*from == 0)
            break;
        if (count == MostWords - 1)
            return -E2BIG;
        char* to = from;
        words[count++] = to;
        for (bool isQuoted = false; *from != 0 && (isQuoted || *from != ' '); from++) {
            if (*from == '"')
                isQuoted = !isQuoted;
            else
                *to++ = *from == '\\' && !isQuoted ? '/' : *from;
        }
        from += *from == ' ' ? 1 : 0;
        *to = 0;
    }
    words[count] = nullptr;
    return static_cast<int32_t>(count);
}

// What the child begins with: no signal ignored or held back, no descriptor but the standard streams.
static int PrepareSpawn(posix_spawnattr_t& attributes, posix_spawn_file_actions_t& actions)
{
    sigset_t all;
    sigset_t none;
    sigfillset(&all);
    sigemptyset(&none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    return posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
}

int32_t osProcessStart(const char* commandLine)
{
    char line[CommandCapacity];
    char* words[MostWords];
    const size_t length = strnlen(commandLine, CommandCapacity);
    if (length == CommandCapacity)
        return -E2BIG;
    memcpy(line, commandLine, length + 1);
    const int32_t count = SplitWords(line, words);
    if (count < 1)
        return count < 0 ? count : -ENOENT;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t actions;
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_init(&actions);
    pid_t process = 0;
    int error = PrepareSpawn(attributes, actions);
    if (error == 0)
        error = posix_spawnp(&process, words[0], &actions, &attributes, words, environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    return error == 0 ? process : -error;
}

// Waits for a child that has ended or is about to: true once it is gone, by whoever reaped it.
static bool Reap(int32_t process, int options)
{
    for (;;) {
        const pid_t ended = waitpid(process, nullptr, options);
        if (ended == process)
            return true;
        if (ended == 0)
            return false;
        if (errno != EINTR)
            return true;
    }
}

int32_t osProcessIsRunning(int32_t process)
{
    return process > 0 && !Reap(process, WNOHANG) ? 1 : 0;
}

int32_t osProcessKill(int32_t process)
{
    if (process <= 0)
        return -ESRCH;
    if (Reap(process, WNOHANG)) // the number may be another's by now
        return 0;
    if (kill(process, SIGKILL) != 0)
        return -errno;
    Reap(process, 0);
    return 0;
}
