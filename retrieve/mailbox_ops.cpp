// The operations on a mailbox, and on stored messages in its place. Each notes its arguments in the
// channel and lets the driver do the rest.
#include "codec/text.h"
#include "decode/decoder.h"
#include "frame/channel.h"
#include "frame/driver.h"
#include "frame/log.h"
#include "frame/memory.h"
#include "frame/retrieval.h"
#include "frame/settings.h"
#include "retrieve/message_file.h"
#include "transport/vfile.h"
#include "transport/vsock.h"

#include <cstring>

constexpr int32_t SmallestBuffer = 128; // that a host may give

// The guards of an operation, and its line in the log: 0 or a status.
static int32_t BeginOperation(uint32_t channel, const char* name)
{
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    LogFormat(*ChannelTable[channel], "*** %s\r\n", name);
    return 0;
}

// The same for an operation on one message of the server's.
static int32_t BeginOnMessage(uint32_t channel, const char* name, int32_t message)
{
    if (const int32_t status = BeginOperation(channel, name); status < 0)
        return status;
    if (ChannelTable[channel]->Protocol == 'S')
        return RYN_ERR_POP3_OR_IMAP_ONLY;
    return message < 1 ? RYN_ERR_NO_SUCH_MESSAGE : 0;
}

// --- count, size, id, deletion. Each closes what a fetch that broke off has left open: a raw copy
// would take the replies for lines of its message. ---

int32_t rynGetEmailCount(uint32_t channel)
{
    if (const int32_t status = BeginOperation(channel, "rynGetEmailCount"); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    if (ch.Protocol == 'S')
        return RYN_ERR_POP3_ONLY;
    CloseFetchFiles(ch);
    ch.WaitWritable = 1;
    if (ch.Protocol == 'I') {
        ch.EmailCount = ch.ImapCount;
        return ch.EmailCount;
    }
    ch.NextState = ch.Protocol == 'P' ? ST_POP3_STAT : ST_IDLE;
    if (ch.AutoCallDriver == 0)
        return 0;
    if (const int32_t result = RunDriver(ch); result < 0)
        return result;
    LogFormat(ch, "[EmailCount=%d]\r\n", ch.EmailCount);
    return ch.EmailCount;
}

int32_t rynGetEmailSize(uint32_t channel, int32_t message)
{
    if (const int32_t status = BeginOnMessage(channel, "rynGetEmailSize", message); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    CloseFetchFiles(ch);
    ch.MessageNumber = message;
    ch.WaitWritable = 1;
    ch.NextState = ch.Protocol == 'P' ? ST_POP3_LIST : ST_IMAP_GET_SIZE;
    if (ch.AutoCallDriver == 0)
        return 0;
    const int32_t result = RunDriver(ch);
    return result < 0 ? result : ch.MessageSize;
}

int32_t rynGetEmailUID(uint32_t channel, int32_t message, char* buffer, int32_t size)
{
    if (const int32_t status = BeginOperation(channel, "rynGetEmailUID"); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    if (ch.Protocol == 'S')
        return RYN_ERR_POP3_OR_IMAP_ONLY;
    if (buffer == nullptr)
        return RYN_ERR_NULL_BUFFER;
    if (size < SmallestBuffer)
        return RYN_ERR_BUFFER_TOO_SMALL;
    CloseFetchFiles(ch);
    buffer[0] = 0;
    ch.MessageNumber = message;
    ch.UserBuffer = buffer;
    ch.UserBufferSize = size - 1;
    ch.UserBufferUsed = 0;
    ch.WaitWritable = 1;
    ch.NextState = ch.Protocol == 'I' ? ST_IMAP_GET_UID : ST_POP3_UIDL;
    RunDriver(ch);
    return TextLength(buffer);
}

int32_t rynDeleteEmail(uint32_t channel, int32_t message)
{
    if (const int32_t status = BeginOnMessage(channel, "rynDeleteEmail", message); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    CloseFetchFiles(ch);
    ch.MessageNumber = message;
    ch.WaitWritable = 1;
    ch.NextState = ST_DELETE;
    return RunDriver(ch);
}

// --- fetching ---

// Finds the place for the lines: 1, or a status; 0 = nothing can be stored.
static int32_t PrepareLinesBuffer(Channel& ch, char* buffer, int32_t size)
{
    const bool isOwn = buffer == nullptr || strcmp(buffer, "*") == 0;
    if (!isOwn && size < SmallestBuffer)
        return RYN_ERR_BUFFER_TOO_SMALL;
    if (size < 1)
        return 0;
    if (isOwn) {
        constexpr uint32_t Spare = 2; // so that the lines are followed by zeros
        FreeMemory(ch.ChannelNumber, SLOT_EMAIL_LINES, SLOT_EMAIL_LINES);
        buffer = static_cast<char*>(AllocateMemory(ch.ChannelNumber, SLOT_EMAIL_LINES,
                                                   static_cast<uint32_t>(size) + Spare));
        if (buffer == nullptr)
            return RYN_ERR_NO_MEMORY;
    }
    ch.UserBuffer = buffer;
    ch.UserBufferSize = size;
    ch.UserBufferUsed = 0;
    return 1;
}

int32_t rynGetEmailLines(uint32_t channel, int32_t message, int32_t lines, char* buffer,
                         int32_t size)
{
    if (const int32_t status = BeginOnMessage(channel, "rynGetEmailLines", message); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    if (const int32_t status = PrepareLinesBuffer(ch, buffer, size); status < 1)
        return status;
    CloseFetchFiles(ch);
    ch.MessageLines = lines < 0 ? 0 : lines;
    ch.MessageNumber = message;
    ch.EmailDir[0] = 0;
    ch.AttachDir[0] = 0;
    ch.MsgBytesRead = 0;
    ch.AttachBytesRead = 0;
    ch.WaitWritable = 1;
    ch.NextState = ST_FETCH_LINES_START;
    if (ch.AutoCallDriver == 0)
        return 0;
    const int32_t result = RunDriver(ch);
    return result < 0 ? result : ch.UserBufferUsed;
}

// A message file has a name of its own in its folder, and leads nowhere else.
static int32_t CheckEmailName(const char* name)
{
    if (name == nullptr)
        return RYN_ERR_NO_FILENAME;
    const bool isFolder = strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
    return isFolder || strpbrk(name, "\\/") != nullptr ? RYN_ERR_PATH_NOT_ALLOWED : 0;
}

static int32_t CheckFolder(Channel& ch, const char* folder)
{
    if (TextLength(folder) > static_cast<int32_t>(FetchPathChars)) {
        CopyField(ch.ErrorFileName, folder);
        return RYN_ERR_NO_SUCH_PATH;
    }
    if (TestDirWritable(&ch, folder) != 0)
        return 0;
    CopyField(ch.ErrorFileName, folder); // an empty text, too
    return RYN_ERR_NO_SUCH_PATH;
}

static int32_t CheckPlaces(Channel& ch, const char* name, const char* folder,
                           const char* attachFolder)
{
    if (const int32_t status = CheckEmailName(name); status < 0)
        return status;
    if (folder == nullptr)
        return RYN_ERR_NO_EMAIL_PATH;
    if (attachFolder == nullptr)
        return RYN_ERR_NO_ATTACH_PATH;
    if (const int32_t status = CheckFolder(ch, folder); status < 0)
        return status;
    return strcmp(folder, attachFolder) == 0 ? 0 : CheckFolder(ch, attachFolder);
}

// Forgets the message before.
static void ResetFetch(Channel& ch)
{
    CloseFetchFiles(ch); // of a fetch that broke off
    ResetDecoder(ch);
    ch.UserBuffer = nullptr;
    ch.UserBufferSize = 0;
    ch.UserBufferUsed = 0;
    ch.MsgBytesRead = 0;
    ch.AttachBytesRead = 0;
}

int32_t rynGetEmailFile(uint32_t channel, int32_t message, const char* emailName,
                        const char* emailFolder, const char* attachFolder)
{
    if (const int32_t status = BeginOnMessage(channel, "rynGetEmailFile", message); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    if (const int32_t status = CheckPlaces(ch, emailName, emailFolder, attachFolder); status < 0)
        return status;
    ResetFetch(ch);
    ch.MessageNumber = message;
    CopyField(ch.EmailName, emailName);
    CopyField(ch.EmailDir, emailFolder);
    CopyField(ch.AttachDir, attachFolder);
    ch.WaitWritable = ch.SourceMode != 0 ? 0 : 1;
    ch.NextState = ST_FETCH_START;
    return RunDriver(ch);
}

// --- a command of the host's own ---

int32_t rynCommand(uint32_t channel, const char* text)
{
    constexpr int32_t LoggedBelow = 255; // chars
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    if (text == nullptr)
        return RefuseNull(117);
    if (strnlen(text, LoggedBelow) < LoggedBelow)
        LogFormat(ch, "*** rynCommand(%d,'%s') %c \r\n", ch.ChannelNumber, text,
                  ch.Protocol == 0 ? ' ' : ch.Protocol);
    CloseFetchFiles(ch);
    CopyField(ch.RawCommand, text);
    switch (ch.Protocol) {
    case 'S':
        ch.NextState = ST_SMTP_RAW;
        break;
    case 'P':
        ch.NextState = ST_POP3_RAW;
        break;
    case 'I':
        ch.NextState = ST_IMAP_RAW;
        break;
    default:
        return RYN_ERR_BAD_SERVER_NAME;
    }
    return RunDriver(ch);
}

// --- a stored message in the place of a server ---

// True if the file can be read, or is memory, which is asked for once only.
static bool IsReadable(Channel& ch, const char* fileName)
{
    return FindChar(fileName, FileIndexChar) != nullptr || TestFileExists(&ch, fileName) != 0;
}

// Lets go of whatever the channel reads from, and attaches the file: 1 or a status.
static int32_t AttachSource(Channel& ch, char protocol, const char* fileName)
{
    if (!IsReadable(ch, fileName))
        return RYN_ERR_NO_SUCH_FILE; // a connection is not given up for nothing
    CloseFetchFiles(ch);
    DetachFiles(ch);
    CloseChannelSocket(ch); // it would be out of reach behind the file
    ch.Protocol = protocol;
    StopDriver(ch); // a fetch that still runs is over
    ResetRetrieval(ch);
    const int32_t vs = ch.ChannelNumber;
    const int32_t result = vsOpenSource(vs, fileName);
    if (result == VS_ERR_NO_SLOT)
        return RYN_ERR_CANNOT_CREATE_SOCKET;
    if (result != VS_OK) {
        CopyField(ch.ErrorFileName, fileName);
        return RYN_ERR_NO_SUCH_FILE;
    }
    ch.ErrorFileName[0] = 0;
    ch.VSock = vs;
    ch.SourceMode = 1;
    return 1;
}

static int32_t SetSource(uint32_t channel, const char* operation, char protocol,
                         const char* fileName)
{
    if (const int32_t status = BeginOperation(channel, operation); status < 0)
        return status;
    Channel& ch = *ChannelTable[channel];
    if (fileName != nullptr && *fileName != 0)
        return AttachSource(ch, protocol, fileName);
    ch.SourceMode = 0;
    ch.ErrorFileName[0] = 0;
    return 1;
}

int32_t rynPop3Source(uint32_t channel, const char* fileName)
{
    return SetSource(channel, "rynPop3Source", 'P', fileName);
}

int32_t rynImapSource(uint32_t channel, const char* fileName)
{
    return SetSource(channel, "rynImapSource", 'I', fileName);
}
