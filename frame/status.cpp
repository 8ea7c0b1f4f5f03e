// The status codes with their texts, and the operations that read and replace a text.
#include "frame/status.h"

#include "codec/text.h"
#include "frame/channel.h"
#include "frame/log.h"
#include "frame/settings.h"

constexpr int32_t SettableChars = 50;       // what rynSetErrorText and the file names may fill
constexpr size_t StatusTextCapacity = 72;   // the longest fixed prefix, such a tail, the zero
constexpr int32_t CreateFailurePrefix = 19; // behind "Cannot create file "
constexpr int32_t OpenFailurePrefix = 17;   // behind "Cannot open file "

struct StatusRow {
    int32_t Code;
    char Text[StatusTextCapacity];
};

// Ended by a row that no status has. Texts are replaced in place; the rows never move.
constexpr int32_t TableEnd = 999;
static StatusRow StatusTable[] = {
    { RYN_CANNOT_COMPLY, "Cannot comply." },
    { RYN_ERR_SOCK_CLOSED, "vSock has been closed." },
    { RYN_ERR_DIR_PROTECTED, "Directory is protected by Windows" },
    { RYN_ERR_INVALID_SOCKET, "Invalid socket." },
    { RYN_ERR_TIMED_OUT, "vSock timed out." },
    { RYN_ERR_NO_SOCKADDR, "No available sockaddr structures." },
    { RYN_ERR_NO_HOST_NAME, "No host name." },
    { RYN_ERR_CANNOT_CREATE_SOCKET, "Cannot create socket." },
    { RYN_ERR_INDEX_RANGE, "Index value out of range." },
    { RYN_ERR_EMPTY_ARGUMENT, "Unexpected empty string." },
    { RYN_ERR_RESPONSE_OVERFLOW, "Response buffer has overflowed." },
    { RYN_ERR_BAD_ADDRESS_CHAR, "Bad character in email address." },
    { RYN_ERR_CANNOT_ACCESS_LIBRARY, "Cannot access DLL." },
    { RYN_ERR_CANNOT_OPEN_FILE,
      "Cannot open file XXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXX" },
    { RYN_ERR_CONNECT_FAILED, "Error attempting to connect." },
    { RYN_ERR_EMPTY_STRING, "Unexpected empty string." },
    { RYN_ERR_FROM_IS_NULL, "Required 'From:' argument is NULL." },
    { RYN_ERR_MISSING_AT, "Missing '@' character in email address." },
    { RYN_ERR_MISSING_FROM, "Missing FROM email address." },
    { RYN_ERR_MISSING_LEFT_ANGLE, "Missing '<' delimiter in email address." },
    { RYN_ERR_MISSING_RIGHT_ANGLE, "Missing '>' terminating email address." },
    { RYN_ERR_NOT_CONNECTED, "Not connected to server" },
    { RYN_ERR_NO_RECIPIENT, "Must have at least one recipient." },
    { RYN_ERR_SERVER_NOT_FOUND, "Cannot find SMTP/POP3 server." },
    { RYN_ERR_NULL_POINTER, "Unexpected NULL pointer." },
    { RYN_ERR_PASSWORD_TOO_LONG, "Password too large (max 2048 chars)." },
    { RYN_ERR_SMTP_REPLY, "SMTP returned error." },
    { RYN_ERR_NO_SERVER, "SMTP/POP3 server not specified." },
    { RYN_ERR_SOCK_READ, "vSock read error." },
    { RYN_ERR_SOCK_WRITE, "vSock write error." },
    { RYN_ERR_TOO_MANY_AT, "Too many '@' symbols in email address." },
    { RYN_ERR_NO_MEMORY, "Cannot allocate memory." },
    { RYN_ERR_BAD_SERVER_NAME, "Illegal chars in server name." },
    { RYN_ERR_NO_APOP_TIMESTAMP, "APOP timestamp missing." },
    { RYN_ERR_SMTP_ONLY, "SMTP function ONLY." },
    { RYN_ERR_POP3_ONLY, "POP3 function ONLY." },
    { RYN_ERR_OBSOLETE_PARAM, "Parameter is obsolete." },
    { RYN_ERR_NO_USER, "USER name not specified." },
    { RYN_ERR_NO_PASSWORD, "PASSWORD not specified." },
    { RYN_ERR_POP3_REPLY, "POP3 returned error." },
    { RYN_ERR_NO_SUCH_MESSAGE, "No such message number." },
    { RYN_ERR_NO_FILENAME, "Missing filename." },
    { RYN_ERR_NO_EMAIL_PATH, "Missing email path." },
    { RYN_ERR_CANNOT_CREATE_FILE,
      "Cannot create file XXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXX" },
    { RYN_ERR_NULL_BUFFER, "Buffer is NULL." },
    { RYN_ERR_BUFFER_TOO_SMALL, "Buffer too small." },
    { RYN_ERR_NO_ATTACH_PATH, "Missing path for attachments." },
    { RYN_ERR_NOT_ATTACHED, "Must call rynAttach first." },
    { RYN_ERR_ALREADY_ATTACHED, "Already attached (call rynAttach once)." },
    { RYN_ERR_CHANNEL_RANGE, "Channel out of range." },
    { RYN_ERR_NO_SUCH_FILE, "No such file." },
    { RYN_ERR_PATH_NOT_ALLOWED, "Filename only - path not allowed." },
    { RYN_ERR_NO_SUCH_PATH, "No such path." },
    { RYN_ERR_IMAP_REPLY, "IMAP returned error." },
    { RYN_ERR_IMAP_ONLY, "IMAP function ONLY." },
    { RYN_ERR_POP3_OR_IMAP_ONLY, "POP3 or IMAP function ONLY." },
    { RYN_ERR_IMAP_FLAG, "IMAP flag error." },
    { RYN_ERR_IMAP_SEARCH, "IMAP search error." },
    { RYN_ERR_BUFFER_OVERFLOW, "Buffer overflow." },
    { RYN_ERR_PROXY_START, "Could not start proxy server." },
    { RYN_ERR_PROXY_NOT_CONFIGURED, "Proxy server not configured (rynSetProxySSL)." },
    { RYN_ERR_NO_SUCH_OPTION, "No such option." },
    { RYN_ERR_SYSTEM_HEADER, "User not allowed to set system headers." },
    { RYN_ERR_NO_SUCH_PAGE_CODE, "No such page code." },
    { RYN_ERR_NO_SUCH_VSOCK, "No such (virtual) socket." },
    { RYN_ERR_INTERNAL, "Internal RYN error." },
    { RYN_ERR_SIMULATED, "Simulated error." },
    { RYN_WSAEINTR, "Interrupted system call." },
    { RYN_WSAEBADF, "Bad file number." },
    { RYN_WSAEACCES, "Access denied." },
    { RYN_WSAEFAULT, "Bad address." },
    { RYN_WSAEINVAL, "Invalid argument." },
    { RYN_WSAEMFILE, "Too many open files." },
    { RYN_WSAEWOULDBLOCK, "Would block socket in non-blocking mode." },
    { RYN_WSAEINPROGRESS, "Blocking call already in progress." },
    { RYN_WSAEALREADY, "Operation already completed." },
    { RYN_WSAENOTSOCK, "Not a valid socket." },
    { RYN_WSAEDESTADDRREQ, "Destination address required." },
    { RYN_WSAEMSGSIZE, "Message too big for buffer." },
    { RYN_WSAEPROTOTYPE, "Protocol mismatch." },
    { RYN_WSAENOPROTOOPT, "Protocol option invalid." },
    { RYN_WSAEPROTONOSUPPORT, "Protocol not supported." },
    { RYN_WSAESOCKTNOSUPPORT, "vSock type not supported." },
    { RYN_WSAEOPNOTSUPP, "vSock operation not supported." },
    { RYN_WSAEAFNOSUPPORT, "vSock address family not supported." },
    { RYN_WSAEADDRINUSE, "vSock address already in use." },
    { RYN_WSAEADDRNOTAVAIL, "vSock address not available." },
    { RYN_WSAENETDOWN, "Network error." },
    { RYN_WSAENETUNREACH, "Cannot reach network." },
    { RYN_WSAENETRESET, "Connection dropped." },
    { RYN_WSAECONNABORTED, "Connection timed-out or aborted." },
    { RYN_WSAECONNRESET, "Connection reset by remote host." },
    { RYN_WSAENOBUFS, "Out of buffer space." },
    { RYN_WSAEISCONN, "vSock already connected." },
    { RYN_WSAENOTCONN, "vSock not connected." },
    { RYN_WSAESHUTDOWN, "vSock functionality shut down." },
    { RYN_WSAETIMEDOUT, "Timed-out attempting to connect." },
    { RYN_WSAECONNREFUSED, "Connection refused by remote host." },
    { RYN_WSAEHOSTDOWN, "Host is down." },
    { RYN_WSAEHOSTUNREACH, "No route to host." },
    { RYN_WSASYSNOTREADY, "Network not yet ready." },
    { RYN_WSAVERNOTSUPPORTED, "WINSOCK doesn't support requested version." },
    { RYN_WSANOTINITIALISED, "vSocks not initialized. Call WSAStartup." },
    { RYN_WSAHOST_NOT_FOUND, "Host does not exist." },
    { RYN_WSATRY_AGAIN, "Host not found. Try again." },
    { RYN_WSANO_RECOVERY, "Non-recoverable error has occurred." },
    { RYN_WSANO_DATA, "No data is available." },
    { TableEnd, "" },
};

static StatusRow* FindStatus(int32_t code)
{
    StatusRow* row = StatusTable;
    while (row->Code != code && row->Code != TableEnd)
        row++;
    return row->Code == TableEnd ? nullptr : row;
}

// What stands behind the fixed text of some statuses: the server's line, or the path that failed.
static const char* StatusTail(const Channel& ch, int32_t code)
{
    switch (code) {
    case RYN_ERR_SMTP_REPLY:
    case RYN_ERR_POP3_REPLY:
    case RYN_ERR_CONNECT_FAILED:
        return ch.ReplyBuffer;
    case RYN_ERR_NO_SUCH_PATH:
    case RYN_ERR_NO_SUCH_FILE:
        return ch.ErrorFileName;
    default:
        return nullptr;
    }
}

int32_t ErrorText(Channel& ch, int32_t code, char* buffer, int32_t size)
{
    if (buffer == nullptr || size <= 0)
        return 0;
    buffer[0] = 0;
    const StatusRow* row = FindStatus(code);
    if (row == nullptr)
        return 0;
    LoadShared(buffer, row->Text, size - 1);
    if (const char* tail = StatusTail(ch, code); tail != nullptr) {
        AppendText(buffer, " ", size - 1);
        AppendText(buffer, tail, size - 1);
    }
    LogText(&ch, buffer);
    LogText(&ch, "\r\n");
    return TextLength(buffer);
}

int32_t rynErrorText(uint32_t channel, int32_t code, char* buffer, int32_t size)
{
    if (const int32_t status = GuardChannel(channel); status < 0)
        return status;
    return ErrorText(*ChannelTable[channel], code, buffer, size);
}

int32_t rynSetErrorText(int32_t code, const char* text)
{
    StatusRow* row = FindStatus(code);
    if (row == nullptr || text == nullptr)
        return 0;
    char line[SettableChars + 1];
    CopyField(line, text);
    CutAtLineEnd(line);
    // A text that fills the slot counts as cut, whether or not more was given.
    return StoreShared(row->Text, line, SettableChars) < SettableChars ? 1 : 0;
}

static void NoteFailure(int32_t code, int32_t prefix, const char* name)
{
    if (*name == '@') // the mark of a message text that names a file
        name++;
    char line[SettableChars + 1];
    CopyField(line, name);
    CutAtLineEnd(line);
    StoreShared(FindStatus(code)->Text + prefix, line, SettableChars);
}

void NoteCreateFailure(const char* name)
{
    NoteFailure(RYN_ERR_CANNOT_CREATE_FILE, CreateFailurePrefix, name);
}

void NoteOpenFailure(const char* name)
{
    NoteFailure(RYN_ERR_CANNOT_OPEN_FILE, OpenFailurePrefix, name);
}
