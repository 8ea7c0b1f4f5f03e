// The conversation around the commands: how a host drives the library by hand.
#include "session.h"

#include "login.h"
#include "protocol.h"
#include "ryn32.h"
#include "system.h"
#include "terminal.h"
#include "terminal_text.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

constexpr size_t ServerNameLimit = 255; // chars that rynSmtpConnect takes
constexpr size_t ErrorTextSize = 2400;  // a status text with the server's own line
constexpr int32_t LeastRefusal = 400;   // of reply codes; mailboxes have 100 for yes and 500 for no
constexpr int32_t MailboxYes = 100;

// --- steps ---

void BeginStep(Session& session, const std::string& doing)
{
    BeginStep(session, doing, 0, 0);
}

void BeginStep(Session& session, const std::string& doing, uint64_t total, int32_t countedBy)
{
    session.CountedBy = countedBy;
    session.Refusal.clear();
    BeginProgress(session.Step, doing, total);
}

static uint32_t BytesBy(int32_t code)
{
    return static_cast<uint32_t>(rynStatistics(Channel, static_cast<uint32_t>(code)));
}

// --- replies ---

std::string LastReply(const Session& session)
{
    const size_t size = session.IsImap ? 65535 : 512; // that the library keeps, or that is shown
    std::string reply(size + 1, '\0');
    rynDebug(Channel, RYN_DEBUG_LAST_REPLY, reply.data(), static_cast<int32_t>(size));
    reply.resize(strlen(reply.c_str()));
    return reply;
}

std::string LastVerdict(const Session& session)
{
    std::string reply = LastReply(session);
    if (!session.IsImap)
        return ForTerminal(reply.substr(0, reply.find_first_of("\r\n")));
    while (reply.ends_with('\n') || reply.ends_with('\r'))
        reply.pop_back();
    reply.erase(0, reply.rfind('\n') + 1);
    reply.erase(0, reply.find(' ') + 1);
    return reply.empty() ? "no answer" : ForTerminal(reply);
}

bool IsAccepted(const Session& session)
{
    if (session.IsImap) // the library takes any answer to some commands for a yes
        return LastVerdict(session).starts_with("OK");
    return rynStatistics(Channel, RYN_STAT_REPLY_CODE) == MailboxYes;
}

// --- failures ---

struct StatusRow {
    int32_t Status;
    ExitCode Exit;
};

// Any other status is EXIT_OTHER; those below -10000 come from the network.
constexpr StatusRow StatusTable[] = {
    { RYN_ERR_SMTP_REPLY, EXIT_REFUSED },
    { RYN_ERR_POP3_REPLY, EXIT_REFUSED },
    { RYN_ERR_IMAP_REPLY, EXIT_REFUSED },
    { RYN_ERR_NO_APOP_TIMESTAMP, EXIT_REFUSED },
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
    { RYN_ERR_NO_SUCH_PATH, EXIT_LOCAL_FILE },
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

// The text of a status in one line: line ends become blanks, none stands at the end.
static std::string TextOfStatus(int32_t status)
{
    char text[ErrorTextSize];
    if (rynErrorText(Channel, status, text, sizeof text) < 1)
        snprintf(text, sizeof text, "status %d", status);
    size_t length = strlen(text);
    while (length > 0 && strchr("\r\n ", text[length - 1]))
        text[--length] = 0;
    for (size_t i = 0; i < length; ++i)
        if (text[i] == '\r' || text[i] == '\n')
            text[i] = ' ';
    return ForTerminal(text);
}

ExitCode ReportFailure(Session& session, int32_t status)
{
    // What the network said, where the status only says that it failed. Asked for before anything
    // else can change it.
    const int32_t socketStatus = rynStatistics(Channel, RYN_STAT_SOCK_CODE);
    ClearProgress(session.Step);
    fprintf(stderr, "rynmail: %s: %s", session.Step.Doing.c_str(), TextOfStatus(status).c_str());
    if (ExitOfStatus(status) == EXIT_CONNECTION && socketStatus < 0 && socketStatus != status)
        fprintf(stderr, " (%s)", TextOfStatus(socketStatus).c_str());
    if (status == RYN_ERR_IMAP_REPLY) // the one refusal whose text lacks the server's words
        fprintf(stderr, " %s", LastVerdict(session).c_str());
    fputc('\n', stderr);
    return ExitOfStatus(status);
}

// A refusal that the operation goes on from shows only while it is the last reply. By IMAP no
// operation goes on.
static void NoteRefusal(Session& session, int32_t step)
{
    const bool isRefused = session.IsImap
                               ? step <= 0 && !IsAccepted(session)
                               : rynStatistics(Channel, RYN_STAT_REPLY_CODE) >= LeastRefusal;
    if (isRefused)
        session.Refusal = LastVerdict(session);
}

// --- driving ---

int32_t Drive(Session& session)
{
    int32_t lastStep = 0;
    uint32_t lastBytes = 0;
    for (;;) {
        const int32_t step = StopIsAsked() ? RYN_WSAEINTR : rynDriver(Channel);
        NoteRefusal(session, step);
        if (step <= 0) {
            session.IsBroken = session.IsBroken || ExitOfStatus(step) == EXIT_CONNECTION;
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

// The pause between two looks at a silent server can be set only when the sockets are made already,
// which take it over when they are made: so they are made twice.
static int32_t AttachWithShortPauses()
{
    constexpr uint32_t pollDelay = 10; // ms
    if (const int32_t status = rynAttach(1); status < 0)
        return status;
    rynIntegerParam(Channel, RYN_POLL_DELAY, pollDelay);
    rynRelease();
    return rynAttach(1);
}

bool StartSession(Session& session)
{
    session = {};
    session.Step.Doing = "starting";
    session.Step.IsShown = ErrorsGoToTerminal();
    const int32_t status = AttachWithShortPauses();
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

ExitCode OpenLog(const Options& options)
{
    if (!options.LogFile ||
        (*options.LogFile && rynStringParam(Channel, RYN_LOG_FILE, options.LogFile) > 0))
        return EXIT_DONE;
    fprintf(stderr, "rynmail: can't create the log file '%s'\n", options.LogFile);
    return EXIT_LOCAL_FILE;
}

static void SetSessionParams(const Options& options, const Login& login)
{
    rynIntegerParam(Channel, RYN_AUTO_CALL_DRIVER, 0);
    // The connect blocks, which is the start value: a refusal is then told at once, by its name.
    rynIntegerParam(Channel, RYN_USE_EHLO, options.UseEhlo || login.IsWanted ? 1 : 0);
    rynIntegerParam(Channel, RYN_USE_APOP, options.UseApop ? 1 : 0);
    // Messages that somebody has marked for deletion go when this user says so, and not in passing.
    rynIntegerParam(Channel, RYN_EXPUNGE_ON_CLOSE, 0);
    // One attempt, for the system makes several of its own and takes minutes for a silent server. A
    // tunnel of this machine refuses at once, if it isn't ready yet.
    if (!options.Tls)
        rynIntegerParam(Channel, RYN_CONNECT_ATTEMPTS, 1);
}

static ExitCode ConnectAs(Session& session, const Options& options, const Target& target,
                          const Login& login)
{
    const Protocol& protocol = ProtocolOf(options);
    session.IsImap = options.Imap != nullptr;
    SetSessionParams(options, login);
    if (const ExitCode outcome = SetLogin(login); outcome != EXIT_DONE)
        return outcome;
    BeginStep(session, "connecting to " + std::string(options.*protocol.Server));
    int32_t status = protocol.Start(target, login);
    if (status >= 0)
        status = Drive(session);
    if (status >= 0)
        return HasLoggedIn(login) ? EXIT_DONE : EXIT_REFUSED;
    const ExitCode outcome = ReportFailure(session, status);
    TellTunnelTroubles(options, session.Tls);
    return outcome;
}

ExitCode Connect(Session& session, const Options& options, const char* from)
{
    const char* server = options.*ProtocolOf(options).Server;
    Target target = { "", UsualPort(options), 0, from };
    Login login;
    if (!SplitServer(server, target.Host, target.Port)) {
        fprintf(stderr, "rynmail: '%s' is no HOST or HOST:PORT\n", server);
        return EXIT_USAGE;
    }
    if (const ExitCode outcome = CheckTunnel(options, target.Port); outcome != EXIT_DONE)
        return outcome;
    if (const ExitCode outcome = PrepareLogin(options, login); outcome != EXIT_DONE)
        return outcome;
    if (const ExitCode outcome = OpenLog(options); outcome != EXIT_DONE)
        return outcome;
    ExitCode outcome = options.Tls ? PrepareTunnel(options, session.Tls) : EXIT_DONE;
    target.TunnelPort = session.Tls.LocalPort;
    if (outcome == EXIT_DONE)
        outcome = ConnectAs(session, options, target, login);
    ForgetSecret(login);
    return outcome;
}

bool EndSession(Session& session, bool politely)
{
    BeginStep(session, "taking leave");
    const bool isSaid = politely && rynClose(Channel) >= 0 && Drive(session) >= 0;
    const bool isAccepted = isSaid && rynStatistics(Channel, RYN_STAT_REPLY_CODE) < LeastRefusal;
    ClearProgress(session.Step);
    rynAbort(Channel);
    rynRelease();
    EndTunnel(session.Tls);
    return isAccepted;
}
