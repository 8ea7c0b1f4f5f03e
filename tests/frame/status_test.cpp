// The texts of the statuses: the table byte for byte, replacing them, and what is put behind them.
#include "frame/status.h"

#include "codec/text.h"
#include "frame/channel.h"
#include "tests/codec/guarded.h"
#include "tests/support/host.h"
#include "tests/support/temp_folder.h"

#include <set>

using std::string;

struct StatusTest : HostTest {};

static const struct {
    int32_t Code, Number;
    const char* Text;
} Rows[] = {
    { RYN_CANNOT_COMPLY, 0, "Cannot comply." },
    { RYN_ERR_SOCK_CLOSED, -1, "vSock has been closed." },
    { RYN_ERR_DIR_PROTECTED, -6, "Directory is protected by Windows" },
    { RYN_ERR_INVALID_SOCKET, -7, "Invalid socket." },
    { RYN_ERR_TIMED_OUT, -8, "vSock timed out." },
    { RYN_ERR_NO_SOCKADDR, -9, "No available sockaddr structures." },
    { RYN_ERR_NO_HOST_NAME, -12, "No host name." },
    { RYN_ERR_CANNOT_CREATE_SOCKET, -18, "Cannot create socket." },
    { RYN_ERR_INDEX_RANGE, -20, "Index value out of range." },
    { RYN_ERR_EMPTY_ARGUMENT, -21, "Unexpected empty string." },
    { RYN_ERR_RESPONSE_OVERFLOW, -31, "Response buffer has overflowed." },
    { RYN_ERR_BAD_ADDRESS_CHAR, -32, "Bad character in email address." },
    { RYN_ERR_CANNOT_ACCESS_LIBRARY, -34, "Cannot access DLL." },
    { RYN_ERR_CONNECT_FAILED, -36, "Error attempting to connect." },
    { RYN_ERR_EMPTY_STRING, -37, "Unexpected empty string." },
    { RYN_ERR_FROM_IS_NULL, -38, "Required 'From:' argument is NULL." },
    { RYN_ERR_MISSING_AT, -39, "Missing '@' character in email address." },
    { RYN_ERR_MISSING_FROM, -40, "Missing FROM email address." },
    { RYN_ERR_MISSING_LEFT_ANGLE, -41, "Missing '<' delimiter in email address." },
    { RYN_ERR_MISSING_RIGHT_ANGLE, -43, "Missing '>' terminating email address." },
    { RYN_ERR_NOT_CONNECTED, -44, "Not connected to server" },
    { RYN_ERR_NO_RECIPIENT, -45, "Must have at least one recipient." },
    { RYN_ERR_SERVER_NOT_FOUND, -46, "Cannot find SMTP/POP3 server." },
    { RYN_ERR_NULL_POINTER, -47, "Unexpected NULL pointer." },
    { RYN_ERR_PASSWORD_TOO_LONG, -48, "Password too large (max 2048 chars)." },
    { RYN_ERR_SMTP_REPLY, -49, "SMTP returned error." },
    { RYN_ERR_NO_SERVER, -50, "SMTP/POP3 server not specified." },
    { RYN_ERR_SOCK_READ, -51, "vSock read error." },
    { RYN_ERR_SOCK_WRITE, -52, "vSock write error." },
    { RYN_ERR_TOO_MANY_AT, -53, "Too many '@' symbols in email address." },
    { RYN_ERR_NO_MEMORY, -55, "Cannot allocate memory." },
    { RYN_ERR_BAD_SERVER_NAME, -56, "Illegal chars in server name." },
    { RYN_ERR_NO_APOP_TIMESTAMP, -57, "APOP timestamp missing." },
    { RYN_ERR_SMTP_ONLY, -58, "SMTP function ONLY." },
    { RYN_ERR_POP3_ONLY, -59, "POP3 function ONLY." },
    { RYN_ERR_OBSOLETE_PARAM, -60, "Parameter is obsolete." },
    { RYN_ERR_NO_USER, -61, "USER name not specified." },
    { RYN_ERR_NO_PASSWORD, -62, "PASSWORD not specified." },
    { RYN_ERR_POP3_REPLY, -63, "POP3 returned error." },
    { RYN_ERR_NO_SUCH_MESSAGE, -64, "No such message number." },
    { RYN_ERR_NO_FILENAME, -65, "Missing filename." },
    { RYN_ERR_NO_EMAIL_PATH, -66, "Missing email path." },
    { RYN_ERR_NULL_BUFFER, -68, "Buffer is NULL." },
    { RYN_ERR_BUFFER_TOO_SMALL, -69, "Buffer too small." },
    { RYN_ERR_NO_ATTACH_PATH, -70, "Missing path for attachments." },
    { RYN_ERR_NOT_ATTACHED, -71, "Must call rynAttach first." },
    { RYN_ERR_ALREADY_ATTACHED, -72, "Already attached (call rynAttach once)." },
    { RYN_ERR_CHANNEL_RANGE, -73, "Channel out of range." },
    { RYN_ERR_NO_SUCH_FILE, -75, "No such file." },
    { RYN_ERR_PATH_NOT_ALLOWED, -76, "Filename only - path not allowed." },
    { RYN_ERR_NO_SUCH_PATH, -77, "No such path." },
    { RYN_ERR_IMAP_REPLY, -78, "IMAP returned error." },
    { RYN_ERR_IMAP_ONLY, -79, "IMAP function ONLY." },
    { RYN_ERR_POP3_OR_IMAP_ONLY, -80, "POP3 or IMAP function ONLY." },
    { RYN_ERR_IMAP_FLAG, -81, "IMAP flag error." },
    { RYN_ERR_IMAP_SEARCH, -82, "IMAP search error." },
    { RYN_ERR_BUFFER_OVERFLOW, -83, "Buffer overflow." },
    { RYN_ERR_PROXY_START, -84, "Could not start proxy server." },
    { RYN_ERR_PROXY_NOT_CONFIGURED, -85, "Proxy server not configured (rynSetProxySSL)." },
    { RYN_ERR_NO_SUCH_OPTION, -86, "No such option." },
    { RYN_ERR_SYSTEM_HEADER, -87, "User not allowed to set system headers." },
    { RYN_ERR_NO_SUCH_PAGE_CODE, -88, "No such page code." },
    { RYN_ERR_NO_SUCH_VSOCK, -89, "No such (virtual) socket." },
    { RYN_ERR_INTERNAL, -99, "Internal RYN error." },
    { RYN_ERR_SIMULATED, -100, "Simulated error." },
    { RYN_WSAEINTR, -10004, "Interrupted system call." },
    { RYN_WSAEBADF, -10009, "Bad file number." },
    { RYN_WSAEACCES, -10013, "Access denied." },
    { RYN_WSAEFAULT, -10014, "Bad address." },
    { RYN_WSAEINVAL, -10022, "Invalid argument." },
    { RYN_WSAEMFILE, -10024, "Too many open files." },
    { RYN_WSAEWOULDBLOCK, -10035, "Would block socket in non-blocking mode." },
    { RYN_WSAEINPROGRESS, -10036, "Blocking call already in progress." },
    { RYN_WSAEALREADY, -10037, "Operation already completed." },
    { RYN_WSAENOTSOCK, -10038, "Not a valid socket." },
    { RYN_WSAEDESTADDRREQ, -10039, "Destination address required." },
    { RYN_WSAEMSGSIZE, -10040, "Message too big for buffer." },
    { RYN_WSAEPROTOTYPE, -10041, "Protocol mismatch." },
    { RYN_WSAENOPROTOOPT, -10042, "Protocol option invalid." },
    { RYN_WSAEPROTONOSUPPORT, -10043, "Protocol not supported." },
    { RYN_WSAESOCKTNOSUPPORT, -10044, "vSock type not supported." },
    { RYN_WSAEOPNOTSUPP, -10045, "vSock operation not supported." },
    { RYN_WSAEAFNOSUPPORT, -10047, "vSock address family not supported." },
    { RYN_WSAEADDRINUSE, -10048, "vSock address already in use." },
    { RYN_WSAEADDRNOTAVAIL, -10049, "vSock address not available." },
    { RYN_WSAENETDOWN, -10050, "Network error." },
    { RYN_WSAENETUNREACH, -10051, "Cannot reach network." },
    { RYN_WSAENETRESET, -10052, "Connection dropped." },
    { RYN_WSAECONNABORTED, -10053, "Connection timed-out or aborted." },
    { RYN_WSAECONNRESET, -10054, "Connection reset by remote host." },
    { RYN_WSAENOBUFS, -10055, "Out of buffer space." },
    { RYN_WSAEISCONN, -10056, "vSock already connected." },
    { RYN_WSAENOTCONN, -10057, "vSock not connected." },
    { RYN_WSAESHUTDOWN, -10058, "vSock functionality shut down." },
    { RYN_WSAETIMEDOUT, -10060, "Timed-out attempting to connect." },
    { RYN_WSAECONNREFUSED, -10061, "Connection refused by remote host." },
    { RYN_WSAEHOSTDOWN, -10064, "Host is down." },
    { RYN_WSAEHOSTUNREACH, -10065, "No route to host." },
    { RYN_WSASYSNOTREADY, -10091, "Network not yet ready." },
    { RYN_WSAVERNOTSUPPORTED, -10092, "WINSOCK doesn't support requested version." },
    { RYN_WSANOTINITIALISED, -10093, "vSocks not initialized. Call WSAStartup." },
    { RYN_WSAHOST_NOT_FOUND, -11001, "Host does not exist." },
    { RYN_WSATRY_AGAIN, -11002, "Host not found. Try again." },
    { RYN_WSANO_RECOVERY, -11003, "Non-recoverable error has occurred." },
    { RYN_WSANO_DATA, -11004, "No data is available." },
};

static bool HasTail(int32_t code)
{
    return code == RYN_ERR_SMTP_REPLY || code == RYN_ERR_POP3_REPLY ||
           code == RYN_ERR_CONNECT_FAILED || code == RYN_ERR_NO_SUCH_PATH ||
           code == RYN_ERR_NO_SUCH_FILE;
}

TEST_F(StatusTest, EachStatusHasItsText)
{
    HostAttach(1);
    const string unknown(50, 'X');
    EXPECT_EQ(HostErrorText(0, RYN_ERR_CANNOT_OPEN_FILE), "Cannot open file " + unknown);
    EXPECT_EQ(HostErrorText(0, RYN_ERR_CANNOT_CREATE_FILE), "Cannot create file " + unknown);
    std::set<int32_t> known = { RYN_ERR_CANNOT_OPEN_FILE, RYN_ERR_CANNOT_CREATE_FILE };
    EXPECT_EQ(RYN_ERR_CANNOT_OPEN_FILE, -35);
    EXPECT_EQ(RYN_ERR_CANNOT_CREATE_FILE, -67);
    for (const auto& row : Rows) {
        EXPECT_EQ(row.Code, row.Number);
        EXPECT_EQ(HostErrorText(0, row.Code), string(row.Text) + (HasTail(row.Code) ? " " : ""));
        known.insert(row.Code);
    }
    for (int32_t code = -12000; code < 2000; ++code)
        if (known.count(code) == 0) {
            EXPECT_EQ(HostErrorText(0, code), "") << code;
        }
}

TEST_F(StatusTest, TellsTheServersLineOrThePathBehindTheText)
{
    HostAttach(2);
    const string path(128, 'p');
    CopyField(ChannelTable[1]->ReplyBuffer, "550 no\r\n");
    CopyField(ChannelTable[1]->ErrorFileName, path.c_str());
    const struct {
        int32_t Code;
        string Text;
    } rows[] = { { RYN_ERR_SMTP_REPLY, "SMTP returned error. 550 no\r\n" },
                 { RYN_ERR_POP3_REPLY, "POP3 returned error. 550 no\r\n" },
                 { RYN_ERR_CONNECT_FAILED, "Error attempting to connect. 550 no\r\n" },
                 { RYN_ERR_IMAP_REPLY, "IMAP returned error." },
                 { RYN_ERR_NO_SUCH_PATH, "No such path. " + path },
                 { RYN_ERR_NO_SUCH_FILE, "No such file. " + path } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Code);
        for (size_t size = 1; size <= row.Text.size() + 2; ++size) {
            const string kept = row.Text.substr(0, size - 1);
            Guarded buffer(size);
            EXPECT_EQ(rynErrorText(1, row.Code, buffer.Data(), static_cast<int32_t>(size)),
                      static_cast<int32_t>(kept.size()));
            EXPECT_EQ(buffer.Text(), kept);
            EXPECT_TRUE(buffer.MarginsWhole());
        }
        for (const int32_t size : { 0, -1, INT32_MIN }) {
            Guarded buffer(1);
            EXPECT_EQ(rynErrorText(1, row.Code, buffer.Data(), size), 0);
            EXPECT_TRUE(buffer.UntouchedFrom(0));
        }
        EXPECT_EQ(rynErrorText(1, row.Code, nullptr, 80), 0);
    }
    EXPECT_EQ(HostErrorText(0, RYN_ERR_SMTP_REPLY), "SMTP returned error. ");
}

TEST_F(StatusTest, GoesToTheLogUnlessThereIsNoText)
{
    HostAttach(1);
    ASSERT_GT(HostSetText(0, RYN_LOG_FILE, Path("log")), 0);
    const size_t seen = ReadWholeFile(Path("log")).size();
    char text[80] = "x";
    EXPECT_EQ(rynErrorText(0, -2, text, sizeof(text)), 0);
    EXPECT_STREQ(text, "");
    rynErrorText(0, RYN_ERR_TIMED_OUT, text, sizeof(text));
    rynErrorText(0, RYN_ERR_TIMED_OUT, text, 6);
    EXPECT_EQ(ReadWholeFile(Path("log")).substr(seen), "vSock timed out.\r\nvSock\r\n");
}

TEST_F(StatusTest, TextsAreReplacedForTheWholeProcess)
{
    const string fifty = "12345678901234567890123456789012345678901234567890";
    const struct {
        string Text;
        int32_t Result;
        string Kept;
    } rows[] = { { fifty.substr(0, 49), 1, fifty.substr(0, 49) },
                 { fifty, 0, fifty },
                 { fifty + "1", 0, fifty },
                 { fifty + "\r\n", 0, fifty },
                 { fifty.substr(0, 49) + "\r\n", 1, fifty.substr(0, 49) },
                 { "short\r\nrest", 1, "short" },
                 { "other\nrest", 1, "other" },
                 { "\r\n", 1, "" },
                 { "", 1, "" },
                 { "last %s", 1, "last %s" } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Text);
        EXPECT_EQ(rynSetErrorText(RYN_ERR_TIMED_OUT, row.Text.c_str()), row.Result);
        HostAttach(2);
        EXPECT_EQ(HostErrorText(0, RYN_ERR_TIMED_OUT), row.Kept);
        EXPECT_EQ(HostErrorText(1, RYN_ERR_TIMED_OUT), row.Kept);
        rynRelease();
    }
    EXPECT_EQ(rynSetErrorText(RYN_ERR_SMTP_REPLY, "Refused:"), 1);
    EXPECT_EQ(rynSetErrorText(RYN_CANNOT_COMPLY, "Nothing."), 1);
    EXPECT_EQ(rynSetErrorText(RYN_ERR_TIMED_OUT, nullptr), 0);
    for (const int32_t code : { 999, -2, -90, 1 })
        EXPECT_EQ(rynSetErrorText(code, "x"), 0) << code;
    HostAttach(1);
    EXPECT_EQ(HostErrorText(0, 999), "");
    EXPECT_EQ(HostErrorText(0, RYN_ERR_TIMED_OUT), "last %s");
    EXPECT_EQ(HostErrorText(0, RYN_CANNOT_COMPLY), "Nothing.");
    EXPECT_EQ(HostErrorText(0, RYN_ERR_SMTP_REPLY), "Refused: ");
    EXPECT_EQ(HostErrorText(0, RYN_ERR_INVALID_SOCKET), "Invalid socket."); // the row before
    EXPECT_EQ(HostErrorText(0, RYN_ERR_NO_SOCKADDR), "No available sockaddr structures.");
}

TEST_F(StatusTest, NotesTheFileThatFailed)
{
    HostAttach(2);
    const string fifty = "12345678901234567890123456789012345678901234567890";
    const string rows[][2] = { { "a.txt", "a.txt" },
                               { "@b.txt", "b.txt" },
                               { "@@c", "@c" },
                               { fifty, fifty },
                               { "x" + fifty, "x" + fifty.substr(0, 49) },
                               { "@" + fifty, fifty },
                               { "", "" } };
    for (const auto& row : rows) {
        NoteOpenFailure(row[0].c_str());
        EXPECT_EQ(HostErrorText(0, RYN_ERR_CANNOT_OPEN_FILE), "Cannot open file " + row[1]);
        NoteCreateFailure(row[0].c_str());
        EXPECT_EQ(HostErrorText(1, RYN_ERR_CANNOT_CREATE_FILE), "Cannot create file " + row[1]);
    }
}
