// The session log and the recipient trace: opening, closing, writing.
#include "frame/log.h"

#include "codec/text.h"
#include "frame/settings.h"
#include "platform/platform.h"
#include "send/header_lines.h"
#include "transport/vfile.h"
#include "transport/vsock.h"

static std::atomic<int32_t> GlobalLogHandle = 0;

static void WriteText(int32_t handle, const char* text)
{
    if (handle != 0)
        u_Write(handle, text, TextLength(text));
}

void LogText(const Channel* ch, const char* text)
{
    if (ch == nullptr)
        LogGlobal(text);
    else
        WriteText(ch->LogHandle, text);
}

void LogGlobal(const char* text)
{
    WriteText(GlobalLogHandle.load(std::memory_order_acquire), text);
}

void ForgetGlobalLog()
{
    GlobalLogHandle.store(0, std::memory_order_relaxed);
}

void LogFormat(const Channel& ch, const char* format, ...)
{
    if (ch.LogHandle == 0)
        return;
    char line[FormatCapacity];
    va_list arguments;
    va_start(arguments, format);
    FormatTextV(line, sizeof line, format, arguments);
    va_end(arguments);
    WriteText(ch.LogHandle, line);
}

void LogWindowsError(const Channel& ch)
{
    const int32_t error = LastFileError();
    if (ch.LogHandle == 0 || error == 0)
        return;
    char text[FormatCapacity];
    osErrorText(error, text, sizeof text);
    LogFormat(ch, "\r\n----- Windows Error %d -----\r\n", error);
    LogText(&ch, text);
    LogText(&ch, "\r\n----------------------------\r\n");
}

static void WriteLogHeader(const Channel& ch)
{
    constexpr int32_t FolderChars = 255;
    const uint32_t major = VersionNumber >> 8 & 15;
    const uint32_t minor = VersionNumber >> 4 & 15;
    const uint32_t patch = VersionNumber & 15;
    char line[FormatCapacity];
    LogText(&ch, "*** RYN Log File ***\r\n");
    FormatDateLine(&ch, line);
    LogFormat(ch, "%s\r\n", line);
    LogFormat(ch, " VS %s Version %u.%u.%u Build %u\r\n", "Win32", major, minor, patch,
              BuildNumber);
    LogFormat(ch, "RYN %s Version %u.%u.%u Build %u\r\n", "Win32", major, minor, patch,
              BuildNumber);
    LogFormat(ch, "CID %u\r\n", CID);
    char folder[FolderChars + 1];
    osCurrentDirectory(folder, sizeof folder);
    LogFormat(ch, "Current Dir: %s\r\n", folder);
}

int32_t OpenLog(Channel& ch, const char* name)
{
    ForgetGlobalLog();
    u_Close(ch.LogHandle);
    ch.LogHandle = 0;
    const int32_t handle = u_Create(name, 0, false);
    if (handle < 1) {
        vsSetOption(ch.VSock, VS_OPT_LOG_HANDLE, 0);
        return -1;
    }
    ch.LogHandle = handle;
    GlobalLogHandle.store(handle, std::memory_order_release);
    vsSetOption(ch.VSock, VS_OPT_LOG_HANDLE, handle);
    WriteLogHeader(ch);
    return handle;
}

void CloseLog(Channel& ch)
{
    ForgetGlobalLog(); // first: another thread may get the handle as soon as it is closed
    vsSetOption(ch.VSock, VS_OPT_LOG_HANDLE, 0);
    u_Close(ch.LogHandle);
    ch.LogHandle = 0;
}

int32_t OpenRecipientTrace(Channel& ch, const char* name)
{
    CloseRecipientTrace(ch);
    if (*name == 0)
        return 0;
    constexpr int32_t NameChars = FormatCapacity - 16; // the rest of the path must fit behind
    char path[FormatCapacity];
    if (TextLength(name) > NameChars)
        return RYN_ERR_CANNOT_CREATE_FILE;
    FormatText(path, sizeof path, "%s_%d.log", name, ch.ChannelNumber);
    LogFormat(ch, "Creating rcpt trace file '%s'\r\n", path);
    const int32_t handle = u_Create(path, 0, false);
    ch.RcptTraceFile = handle > 0 ? handle : 0;
    return handle == 0 ? RYN_ERR_CANNOT_CREATE_FILE : handle;
}
