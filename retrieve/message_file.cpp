// Files and buffer of a fetch.
#include "retrieve/message_file.h"

#include "codec/text.h"
#include "decode/attachment_save.h"
#include "frame/channel.h"
#include "frame/log.h"
#include "frame/status.h"
#include "transport/raw_copy.h"
#include "transport/vfile.h"

#include <cstring>

int32_t BeginEmailFile(Channel& ch)
{
    JoinPath(ch.EmailPath, ch.EmailDir, ch.EmailName, static_cast<int32_t>(FetchPathChars));
    LogFormat(ch, "Email: Saving email file to '%s'\r\n", ch.EmailPath);
    const int32_t handle = u_Create(ch.EmailPath, FILE_OF_HOST, false);
    if (handle < 1) {
        NoteCreateFailure(ch.EmailPath);
        return RYN_ERR_CANNOT_CREATE_FILE;
    }
    ch.EmailHandle = handle;
    u_GatherWrites(handle);
    LogFormat(ch, "Email: File %d opened\r\n", handle);
    return 0;
}

void EndEmailFile(Channel& ch)
{
    if (ch.EmailHandle == 0)
        return;
    const int32_t handle = ch.EmailHandle;
    u_Close(handle);
    ch.EmailHandle = 0;
    LogFormat(ch, "Email: File %d closed\r\n", handle);
}

void CloseFetchFiles(Channel& ch)
{
    CloseRawFile(ch);
    if (ch.Protocol != 'S') // else the handle is a file being sent
        CloseAttachmentFile(ch);
    EndEmailFile(ch);
}

void FlushFetchFiles(const Channel& ch)
{
    u_Flush(ch.EmailHandle);
    u_Flush(ch.RawFile);
    if (ch.Protocol != 'S')
        u_Flush(ch.AttachHandle);
}

void KeepInUserBuffer(Channel& ch, int32_t length)
{
    const int32_t room = ch.UserBufferSize - ch.UserBufferUsed;
    const int32_t kept = length < room ? length : room;
    if (ch.UserBuffer == nullptr || kept < 1)
        return;
    memcpy(ch.UserBuffer + ch.UserBufferUsed, ch.ReplyBuffer, static_cast<size_t>(kept));
    ch.UserBufferUsed += kept;
}
