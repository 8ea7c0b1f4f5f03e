// The conversation around the commands: how a host drives the library by hand.
#include "session.h"

#include "login.h"
#include "ryn32.h"
#include "system.h"
#include "terminal.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

constexpr size_t ServerNameLimit = 255; // chars that rynSmtpConnect takes
constexpr size_t ErrorTextSize = 2400;  // a status text with the server's own line

// --- steps ---

void BeginStep(Session& session, const std::string& doing)
{
    BeginStep(session, doing, 0, 0);
}

void BeginStep(Session& session, const std::string& doing, uint64_t total, int32_t countedBy)
{
    session.CountedBy = countedBy;
    session.Refusal[0] = 0;
    BeginProgress(session.Step, doing, total);
}

static uint32_t BytesBy(int32_t code)
{
    return static_cast<uint32_t>(rynStatistics(Channel, static_cast<uint32_t>(code)));
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

// The text of a status in one line: control chars become blanks, none stands at the end.
static void TextOfStatus(int32_t status, char* text, int32_t size)
{
    if (rynErrorText(Channel, status, text, size) < 1)
        snprintf(text, static_cast<size_t>(size), "status %d", status);
    size_t length = strlen(text);
    while (length > 0 && strchr("\r\n ", text[length - 1]))
        text[--length] = 0;
    for (size_t i = 0; i < length; ++i)
        if ((text[i] & 0xE0) == 0)
            text[i] = ' ';
}

ExitCode ReportFailure(Session& session, int32_t status)
{
    char text[ErrorTextSize];
    // What the network said, where the status only says that it failed. Asked for before anything
    // else can change it.
    const int32_t socketStatus = rynStatistics(Channel, RYN_STAT_SOCK_CODE);
    ClearProgress(session.Step);
    TextOfStatus(status, text, sizeof text);
    fprintf(stderr, "rynmail: %s: %s", session.Step.Doing.c_str(), text);
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
    uint32_t lastBytes = 0;
    for (;;) {
        const int32_t step = StopIsAsked() ? RYN_WSAEINTR : rynDriver(Channel);
        NoteRefusal(session);
        if (step <= 0) {
            ClearProgress(session.Step);
            return step;
        }
        if (session.Step.Total > 0)
            ShowProgress(session.Step, BytesBy(session.CountedBy));
        // The library sleeps by itself when it answers DRIVER_NOT_YET. A step that comes back
        // without having moved a byte waits for the server.
        const uint32_t bytes = BytesBy(RYN_STAT_BYTES_IN) + BytesBy(RYN_STAT_BYTES_OUT);
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
    session.Step.Doing = "starting";
    session.Step.IsShown = ErrorsGoToTerminal();
    const int32_t status = rynAttach(1);
    if (status < 0)
        fprintf(stderr, "rynmail: the library can't start, status %d\n", status);
    return status >= 0;
}

// HOST or HOST:PORT; false: neither. Without a port portOut stays as it is.
static bool SplitServer(const char* server, std::string& hostOut, uint32_t& portOut)
{
    hostOut = server;
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

// Begins the connect: 0 or a status.
static int32_t StartConnecting(Session& session, const std::string& host, uint32_t port,
                               const Login& login, const char* from)
{
    if (session.Tls.Folder.empty()) {
        // One attempt, for the system makes several of its own and takes minutes for a silent
        // server. A tunnel of this machine refuses at once, if it isn't ready yet.
        rynIntegerParam(Channel, RYN_CONNECT_ATTEMPTS, 1);
        rynIntegerParam(Channel, RYN_SMTP_PORT, port);
        return rynSmtpConnect(Channel, host.c_str(), from, nullptr);
    }
    // A secure connect asks for an account; without a login it is never sent.
    const char* user = login.IsWanted ? login.User.c_str() : "none";
    const char* secret = login.IsWanted ? login.Secret.c_str() : "none";
    return rynSmtpConnectSSL(Channel, session.Tls.LocalPort, port, host.c_str(), user, secret, from,
                             nullptr, "127.0.0.1");
}

static ExitCode ConnectAs(Session& session, const Options& options, uint32_t port,
                          const std::string& host, const Login& login, const char* from)
{
    rynIntegerParam(Channel, RYN_AUTO_CALL_DRIVER, 0);
    // The connect blocks, which is the start value: a refusal is then told at once, by its name.
    rynIntegerParam(Channel, RYN_USE_EHLO, options.UseEhlo || login.IsWanted ? 1 : 0);
    if (const ExitCode outcome = SetLogin(login); outcome != EXIT_DONE)
        return outcome;
    BeginStep(session, "connecting to " + std::string(options.Server));
    int32_t status = StartConnecting(session, host, port, login, from);
    if (status >= 0)
        status = Drive(session);
    if (status >= 0)
        return login.IsWanted && !HasLoggedIn() ? EXIT_REFUSED : EXIT_DONE;
    const ExitCode outcome = ReportFailure(session, status);
    TellTunnelTroubles(session.Tls);
    return outcome;
}

ExitCode Connect(Session& session, const Options& options, const char* from)
{
    std::string host;
    uint32_t port = UsualPort(options);
    Login login;
    if (!SplitServer(options.Server, host, port)) {
        fprintf(stderr, "rynmail: '%s' is no HOST or HOST:PORT\n", options.Server);
        return EXIT_USAGE;
    }
    if (const ExitCode outcome = CheckTunnel(options, port); outcome != EXIT_DONE)
        return outcome;
    if (const ExitCode outcome = PrepareLogin(options, login); outcome != EXIT_DONE)
        return outcome;
    if (options.LogFile && OpenLog(options.LogFile) != EXIT_DONE)
        return EXIT_LOCAL_FILE;
    ExitCode outcome = options.Tls ? PrepareTunnel(options, session.Tls) : EXIT_DONE;
    if (outcome == EXIT_DONE)
        outcome = ConnectAs(session, options, port, host, login, from);
    ForgetSecret(login);
    return outcome;
}

void EndSession(Session& session, bool politely)
{
    // The outcome of a farewell changes nothing any more: what was sent is sent.
    BeginStep(session, "taking leave");
    if (politely && rynClose(Channel) >= 0)
        Drive(session);
    ClearProgress(session.Step);
    rynAbort(Channel);
    rynRelease();
    EndTunnel(session.Tls);
}
