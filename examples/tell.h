/* What the examples share: telling a status in words, and a log on demand. */
#ifndef EXAMPLES_TELL_H
#define EXAMPLES_TELL_H

#include <ctype.h>
#include <ryn32.h>
#include <stdio.h>
#include <stdlib.h>

/* A text from outside, fit for a terminal: control chars could steer it. */
static inline void BlankControls(char* text)
{
    for (; *text; text++)
        if (iscntrl((unsigned char)*text))
            *text = ' ';
}

/* The text of a status; for some of them the server's own words follow. */
static inline void PrintStatus(uint32_t channel, int32_t status)
{
    char text[2400];
    if (rynErrorText(channel, status, text, sizeof text) < 1)
        snprintf(text, sizeof text, "status %d", (int)status);
    BlankControls(text);
    fprintf(stderr, ": %s", text);
}

/* Tells what has failed and why. Returns the exit code. */
static inline int Tell(uint32_t channel, const char* doing, int32_t status)
{
    /* What the network said, where the status only says that it failed: asked before anything else. */
    const int32_t cause = rynStatistics(channel, RYN_STAT_SOCK_CODE);
    fprintf(stderr, "%s", doing);
    PrintStatus(channel, status);
    if (cause < -10000 && cause != status)
        PrintStatus(channel, cause);
    fputc('\n', stderr);
    return 1;
}

/* Opens the channel's log if the environment names one. */
static inline void OpenLog(uint32_t channel)
{
    const char* name = getenv("MAIL_LOG");
    if (name && *name && rynStringParam(channel, RYN_LOG_FILE, name) < 1)
        fprintf(stderr, "can't create the log '%s'\n", name);
}

/* Puts an address into brackets and tests it. False: it is none that may go out. */
static inline int MakeAddress(char* target, size_t size, const char* address)
{
    const int length = snprintf(target, size, "<%s>", address);
    if (length > 0 && (size_t)length < size && rynVerifyFormat(target) == 1)
        return 1;
    fprintf(stderr, "'%s' is no address\n", address);
    return 0;
}

#endif
