// Opening, filling and closing the raw copy.
#include "transport/raw_copy.h"

#include "codec/text.h"
#include "frame/channel.h"
#include "frame/log.h"
#include "transport/channel_io.h"
#include "transport/vfile.h"

#include <cstring>

int32_t OpenRawFile(Channel& ch, bool needsPrefix)
{
    if (needsPrefix && ch.RawPrefix == 0)
        return -1;
    const char prefix[] = { static_cast<char>(ch.RawPrefix), 0 };
    char path[FetchPathChars + 1];
    constexpr int32_t PathRoom = sizeof path - 1;
    JoinPath(path, ch.EmailDir, prefix, PathRoom);
    AppendText(path, ch.EmailName, PathRoom);
    LogFormat(ch, "Email: Saving raw file to '%s'\r\n", path);
    const int32_t handle = u_Create(path, FILE_OF_HOST, false);
    if (handle < 1) {
        LogText(&ch, "Email: Cannot create raw file\r\n");
        return handle < 0 ? handle : -1;
    }
    ch.RawFile = handle;
    ch.RawBytes = 0;
    ch.RawLines = 0;
    u_GatherWrites(handle);
    LogFormat(ch, "Email: File %d (raw) opened\r\n", handle);
    return handle;
}

int32_t CloseRawFile(Channel& ch)
{
    if (ch.RawFile == 0)
        return 0;
    u_Close(ch.RawFile);
    ch.RawFile = 0;
    return 1;
}

static bool IsLoneDot(const char* line, int32_t count)
{
    return count == 3 && memcmp(line, ".\r\n", 3) == 0;
}

int32_t SaveRawLine(Channel& ch, const char* line, int32_t count)
{
    if (ch.LineIsPiece == 0)
        ch.RawLines++;
    if (ch.RawLines < 2)
        return 0;
    if (ch.LineIsPiece == 0 && ch.Protocol == 'I' && HasEndTag(ch, line))
        return 0;
    if (ch.LineIsPiece == 0 && ch.Protocol == 'P' && IsLoneDot(line, count))
        return 0;
    const int32_t written = u_Write(ch.RawFile, line, count);
    if (written >= 0)
        ch.RawBytes += static_cast<uint32_t>(written);
    return written;
}
