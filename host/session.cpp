// The conversation around the commands: how a host drives the library by hand.
#include "session.h"

#include "ryn32.h"
#include "terminal.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

constexpr size_t ServerNameLimit = 255; // chars that rynSmtpConnect takes
constexpr int32_t ProgressStep = 4096;  // bytes between two rewritings of the progress line
constexpr size_t ErrorTextSize = 2400;  // a status text with the server's own line

// --- progress: one line, rewritten in place ---

static void ShowProgress(Session& session)
{
    const int32_t bytes = rynStatistics(Channel, RYN_STAT_BYTES_OUT);
    if (bytes < session.ShownBytes)
        session.ShownBytes = 0; // the next message counts anew
    if (!session.ShowsProgress || bytes - session.ShownBytes < ProgressStep)
        return;
    session.ShownBytes = bytes;
    fprintf(stderr, "\r%s, %d bytes sent\033[K", session.Doing.c_str(), bytes);
}

void BeginStep(Session& session, const std::string& doing)
{
    session.Doing = doing;
    session.ShownBytes = rynStatistics(Channel, RYN_STAT_BYTES_OUT);
    session.Refusal[0] = 0;
    if (session.ShowsProgress)
        fprintf(stderr, "\r%s\033[K", doing.c_str());
}

static void ClearProgress(const Session& session)
{
    if (session.ShowsProgress)
        fputs("\r\033[K", stderr);
}

// --- failures ---

struct StatusRow {
    int32_t Status;
    ExitCode Exit;
};

// Any other status is EXIT_OTHER; those below -10000 come from the network.
constexpr StatusRow StatusTable[] = {
    { RYN_ERR_SMTP_REPLY, EXIT_REFUSED },
    { RYN_ERR_CONNECT_FAILED, EXIT_CONNECTION },
    { RYN_ERR_SERVER_NOT_FOUND, EXIT_CONNECTION },
    { RYN_ERR_BAD_SERVER_NAME, EXIT_CONNECTION },
    { RYN_ERR_CANNOT_CREATE_SOCKET, EXIT_CONNECTION },
    { RYN_ERR_INVALID_SOCKET, EXIT_CONNECTION },
    { RYN_ERR_NOT_CONNECTED, EXIT_CONNECTION },
    { RYN_ERR_SOCK_CLOSED, EXIT_CONNECTION },
    { RYN_ERR_SOCK_READ, EXIT_CONNECTION },
    { RYN_ERR_SOCK_WRITE, EXIT_CONNECTION },
    { RYN_ERR_TIMED_OUT, EXIT_CONNECTION },
    { RYN_ERR_CANNOT_OPEN_FILE, EXIT_LOCAL_FILE },
    { RYN_ERR_CANNOT_CREATE_FILE, EXIT_LOCAL_FILE },
    { RYN_ERR_NO_SUCH_FILE, EXIT_LOCAL_FILE },
};

static ExitCode ExitOfStatus(int32_t status)
{
    if (status < -10000)
        return EXIT_CONNECTION;
    for (const StatusRow& row : StatusTable)
        if (row.Status == status)
            return row.Exit;
    return EXIT_OTHER;
}

// The text of a status with its line ends turned into blanks, none at the end.
static void TextOfStatus(int32_t status, char* text, int32_t size)
{
    if (rynErrorText(Channel, status, text, size) < 1)
        snprintf(text, static_cast<size_t>(size), "status %d", status);
    size_t length = strlen(text);
    while (length > 0 && strchr("\r\n ", text[length - 1]))
        text[--length] = 0;
    for (size_t i = 0; i < length; ++i)
        if (text[i] == '\r' || text[i] == '\n')
            text[i] = ' ';
}

ExitCode ReportFailure(Session& session, int32_t status)
{
    char text[ErrorTextSize];
    // What the network said, where the status only says that it failed. Asked for before anything
    // else can change it.
    const int32_t socketStatus = rynStatistics(Channel, RYN_STAT_SOCK_CODE);
    ClearProgress(session);
    TextOfStatus(status, text, sizeof text);
    fprintf(stderr, "rynmail: %s: %s", session.Doing.c_str(), text);
    if (ExitOfStatus(status) == EXIT_CONNECTION && socketStatus < 0 && socketStatus != status) {
        TextOfStatus(socketStatus, text, sizeof text);
        fprintf(stderr, " (%s)", text);
    }
    fputc('\n', stderr);
    return ExitOfStatus(status);
}

// A refusal that the operation goes on from shows only while it is the last reply.
static void NoteRefusal(Session& session)
{
    if (rynStatistics(Channel, RYN_STAT_REPLY_CODE) < 400)
        return;
    rynDebug(Channel, RYN_DEBUG_LAST_REPLY, session.Refusal, sizeof session.Refusal - 1);
    session.Refusal[strcspn(session.Refusal, "\r\n")] = 0;
}

// --- driving ---

int32_t Drive(Session& session)
{
    int32_t lastStep = 0;
    int32_t lastBytes = 0;
    for (;;) {
        const int32_t step = rynDriver(Channel);
        NoteRefusal(session);
        if (step <= 0) {
            ClearProgress(session);
            return step;
        }
        ShowProgress(session);
        // The library sleeps by itself when it answers DRIVER_NOT_YET. A step that comes back
        // without having moved a byte waits for the server.
        const int32_t bytes = rynStatistics(Channel, RYN_STAT_BYTES_OUT);
        if (step == lastStep && bytes == lastBytes)
            PauseMilliseconds(1);
        if (step != DRIVER_NOT_YET)
            lastStep = step;
        lastBytes = bytes;
    }
}

// --- opening and leaving ---

bool StartSession(Session& session)
{
    session = {};
    session.Doing = "starting";
    session.ShowsProgress = ErrorsGoToTerminal();
    const int32_t status = rynAttach(1);
    if (status < 0)
        fprintf(stderr, "rynmail: the library can't start, status %d\n", status);
    return status >= 0;
}

// HOST or HOST:PORT; false: neither.
static bool SplitServer(const char* server, std::string& hostOut, uint32_t& portOut)
{
    hostOut = server;
    portOut = 25;
    const size_t colon = hostOut.find(':');
    if (colon != std::string::npos) {
        const char* digits = server + colon + 1;
        char* end;
        const unsigned long port = strtoul(digits, &end, 10);
        if (*digits < '0' || *digits > '9' || *end || port < 1 || port > 65535)
            return false;
        portOut = static_cast<uint32_t>(port);
        hostOut.erase(colon);
    }
    return !hostOut.empty() && hostOut.size() <= ServerNameLimit;
}

static ExitCode OpenLog(const char* fileName)
{
    if (!*fileName || rynStringParam(Channel, RYN_LOG_FILE, fileName) <= 0) {
        fprintf(stderr, "rynmail: can't create the log file '%s'\n", fileName);
        return EXIT_LOCAL_FILE;
    }
    return EXIT_DONE;
}

ExitCode Connect(Session& session, const Options& options, const char* from)
{
    std::string host;
    uint32_t port;
    if (!SplitServer(options.Server, host, port)) {
        fprintf(stderr, "rynmail: '%s' is no HOST or HOST:PORT\n", options.Server);
        return EXIT_USAGE;
    }
    if (options.LogFile && OpenLog(options.LogFile) != EXIT_DONE)
        return EXIT_LOCAL_FILE;
    rynIntegerParam(Channel, RYN_AUTO_CALL_DRIVER, 0);
    // The connect blocks, which is the start value: a refusal is then told at once, by its name.
    // One attempt, for the system makes several of its own and takes minutes for a silent server.
    rynIntegerParam(Channel, RYN_CONNECT_ATTEMPTS, 1);
    rynIntegerParam(Channel, RYN_SMTP_PORT, port);
    rynIntegerParam(Channel, RYN_USE_EHLO, options.UseEhlo ? 1 : 0);
    BeginStep(session, "connecting to " + std::string(options.Server));
    int32_t status = rynSmtpConnect(Channel, host.c_str(), from, nullptr);
    if (status >= 0)
        status = Drive(session);
    return status < 0 ? ReportFailure(session, status) : EXIT_DONE;
}

void EndSession(Session& session, bool politely)
{
    // The outcome of a farewell changes nothing any more: what was sent is sent.
    BeginStep(session, "taking leave");
    if (politely && rynClose(Channel) >= 0)
        Drive(session);
    ClearProgress(session);
    rynAbort(Channel);
    rynRelease();
}
