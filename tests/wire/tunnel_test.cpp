// Programs and tunnels: what the settings accept and keep, the configuration byte for byte, the table
// of processes. The network and the clock are the test's own; the processes are real, and a tunnel is
// a script that does nothing but live.
#include "tests/real/stunnel_watch.h"
#include "tests/wire/dialogue.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int32_t MostPrograms = 64;
constexpr uint16_t LocalPort = 2600; // where tunnels listen, on a network that is the test's own
constexpr char Sleeper[] = "sleep 100";

// The numbers behind each "pid=" of a log's lines that begin so.
std::vector<int32_t> PidsIn(const std::string& log, const std::string& begin)
{
    std::vector<int32_t> pids;
    for (size_t at = log.find(begin); at != std::string::npos; at = log.find(begin, at + 1))
        pids.push_back(atoi(log.c_str() + log.find("pid=", at) + 4));
    return pids;
}

struct TunnelTest : WireTest {
    void SetUp() override
    {
        WireTest::SetUp();
        MakeProgram("stunnel", "exec sleep 100");
        WriteWholeFile(Path("client.pem"), "certificate\n");
    }

    void TearDown() override
    {
        rynRelease();
        EXPECT_EQ(ChildProcesses(), std::vector<int32_t>());
        for (const int32_t stray : ChildProcesses()) {
            kill(stray, SIGKILL);
            waitpid(stray, nullptr, 0);
        }
        WireTest::TearDown();
    }

    void MakeProgram(const std::string& name, const std::string& commands)
    {
        WriteWholeFile(Path(name), "#!/bin/sh\n" + commands + "\n");
        chmod(Path(name).c_str(), 0755);
    }

    // Attaches with a log and names the tunnel program.
    void Configure(uint32_t options = 0, const char* program = "stunnel", uint32_t channels = 1)
    {
        HostAttach(channels);
        ASSERT_GT(HostSetText(0, RYN_LOG_FILE, Path("log")), 0);
        ASSERT_EQ(rynSetProxySSL(0, options, Folder.c_str(), "client.pem", program), 1);
    }

    int32_t ConnectSecure(uint32_t securePort = 465, const char* server = "mail.test",
                          uint32_t channel = 0)
    {
        return rynSmtpConnectSSL(channel, LocalPort, securePort, server, "u", "p", Sender, nullptr,
                                 "localhost");
    }

    void Serve(const std::string& farewell = ByeScript())
    {
        PeerScript(LocalPort, "S: 220 hi\nC: EHLO x.example\nS: 250 ok\n" + farewell);
    }

    std::string Config(int channel = 0)
    {
        return ReadWholeFile(Path("SmtpConfig(" + std::to_string(channel) + ").txt"));
    }

    std::string Log()
    {
        return ReadWholeFile(Path("log"));
    }

    // What the library has written to the log since the mark.
    std::string LogFrom(const std::string& mark)
    {
        const std::string log = Log();
        return log.substr(std::min(log.find(mark), log.size()));
    }

    int32_t LastPid()
    {
        const std::vector<int32_t> pids = PidsIn(Log(), "CreateProcess ");
        return pids.empty() ? 0 : pids.back();
    }
};

} // namespace

// --- settings ---

TEST_F(TunnelTest, TellsWhatItsSettingsLack)
{
    HostAttach();
    EXPECT_EQ(ConnectSecure(), RYN_ERR_PROXY_NOT_CONFIGURED);
    const std::string whole = Path("stunnel");
    const std::string longName = std::string(300, 'x');
    const char* const folder = Folder.c_str();
    const struct {
        const char *Folder, *Certificate, *Program;
        int32_t Status;
        const char* Missing; // what RYN_ERR_NO_SUCH_FILE speaks of
    } rows[] = {
        { nullptr, "client.pem", "stunnel", RYN_ERR_NO_SERVER, "" },
        { folder, "client.pem", "", RYN_ERR_NO_SERVER, "" },
        { "/no/such/folder", "client.pem", whole.c_str(), RYN_ERR_NO_SUCH_PATH, "" },
        { whole.c_str(), "client.pem", "stunnel", RYN_ERR_NO_SUCH_PATH, "" }, // a file
        { folder, "client.pem", "nothing", RYN_ERR_NO_SUCH_FILE, "\\nothing" },
        { folder, "client.pem", "/no/such/program", RYN_ERR_NO_SUCH_FILE, "/no/such/program" },
        { folder, "client.pem", "c:\\stunnel.exe", RYN_ERR_NO_SUCH_FILE, "c:\\stunnel.exe" },
        { folder, "client.pem", longName.c_str(), RYN_ERR_NO_SUCH_FILE, "\\x" },
        { folder, "other.pem", "stunnel", RYN_ERR_NO_SUCH_FILE, "\\other.pem" },
        { folder, "", "stunnel", RYN_ERR_NO_SUCH_FILE, "\\" },
        { folder, folder, "stunnel", RYN_ERR_NO_SUCH_FILE, folder }, // a folder is no certificate
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.Program == nullptr ? "null" : row.Program));
        EXPECT_EQ(rynSetProxySSL(0, 0, row.Folder, row.Certificate, row.Program), row.Status);
        if (row.Status == RYN_ERR_NO_SUCH_FILE) {
            EXPECT_NE(HostErrorText(0, row.Status).find(row.Missing), std::string::npos);
        }
        EXPECT_EQ(ConnectSecure(), RYN_ERR_PROXY_NOT_CONFIGURED); // nothing was stored
    }
    EXPECT_EQ(rynSetProxySSL(7, 0, folder, "client.pem", whole.c_str()), 1);
    EXPECT_EQ(rynSetProxySSL(7, 0, (Folder + "\\").c_str(), Path("client.pem").c_str(), "stunnel"),
              1);
    EXPECT_EQ(Config(), "<no file>");
}

TEST_F(TunnelTest, KeepsTheSettingsBeforeWhenAnyCheckFails)
{
    Configure(2);
    EXPECT_EQ(rynSetCertAuth("/authorities", "/authorities/ca.pem"), 19);
    EXPECT_EQ(rynConfigSSL(1, "debug = 3"), 11);
    Serve();
    EXPECT_EQ(ConnectSecure(), 0);
    EXPECT_EQ(Close(), 0);
    const std::string before = Config();
    std::filesystem::create_directory(Path("elsewhere"));
    const std::string elsewhere = Path("elsewhere");
    EXPECT_EQ(rynSetProxySSL(0, 1, elsewhere.c_str(), "missing.pem", Path("stunnel").c_str()),
              RYN_ERR_NO_SUCH_FILE);
    EXPECT_EQ(rynSetCertAuth("/others", "\r\nverify = 0"), RYN_ERR_NO_SERVER);
    EXPECT_EQ(rynConfigSSL(2, "verify = 0"), RYN_ERR_NO_SUCH_OPTION);
    Serve();
    EXPECT_EQ(ConnectSecure(), 0);
    EXPECT_EQ(Close(), 0);
    EXPECT_EQ(Config(), before);
    EXPECT_TRUE(std::filesystem::is_empty(elsewhere)); // no probe file stays
}

TEST_F(TunnelTest, LogsWhichFilesServe)
{
    setenv("TZ", "UTC", 1);
    tzset();
    const timespec times[2] = { { 1795042326, 0 }, { 1795042326, 0 } }; // 2026-11-18 22:52:06
    ASSERT_EQ(utimensat(AT_FDCWD, Path("stunnel").c_str(), times, 0), 0);
    ASSERT_EQ(utimensat(AT_FDCWD, Path("client.pem").c_str(), times, 0), 0);
    Configure(3);
    EXPECT_EQ(rynConfigSSL(1, "a = b"), 7);
    rynSetProxySSL(5, 0, Folder.c_str(), "client.pem", "missing");
    const std::string log = LogFrom("*** rynSetProxySSL(0");
    EXPECT_EQ(log, "*** rynSetProxySSL(0,3,'" + Folder + "','client.pem','stunnel')\r\n" +
                       " EXE:  11/18/2026 22:52:06 (25 bytes) " + Folder + "\\stunnel\r\n" +
                       "CERT:  11/18/2026 22:52:06 (12 bytes) " + Folder + "\\client.pem\r\n" +
                       "*** rynConfigSSL(1,'a = b')\r\n*** rynSetProxySSL(5,0,'" + Folder +
                       "','client.pem','missing')\r\n");
}

// --- configuration ---

TEST_F(TunnelTest, WritesTheConfigurationByteForByte)
{
    const struct {
        uint32_t Options, SecurePort;
        const char *CaFolder, *CaFile, *Extra, *Server;
        const char *Output, *Taskbar; // "" or the lines
        const char *ExtraLines, *Connect, *Protocol, *CaPath;
        bool Verifies;
    } rows[] = {
        { 0, 465, nullptr, nullptr, nullptr, "mail.test", "*", "no", "", "mail.test:465", "", "",
          false },
        { 1, 587, nullptr, nullptr, nullptr, "mail.test", "*", "yes", "", "mail.test:587", "smtp",
          "", false },
        { 3, 465, nullptr, "/c/ca.pem", nullptr, "mail.test", "", "yes", "", "mail.test:465", "",
          "", true },
        { 0, 587, "\\c\\", "\\c\\ca.pem", "debug = 7", "mail.test", "*", "no", "debug = 7\r\n",
          "mail.test:587", "smtp", "CApath = \\c\r\n", true },
        { 0, 465, "/c\r\nverify = 0", "/c/ca.pem\nverify = 0", "a\r", "mail.test\r\nverify = 0",
          "*", "no", "a\r\r\n", "mail.test:465", "", "CApath = /c\r\n", true },
        { 0, 0x10000 + 465, nullptr, nullptr, nullptr, "mail.test\nx", "*", "no", "",
          "mail.test:465", "", "", false },
        { 0, 65535, nullptr, nullptr, nullptr, "", "*", "no", "", ":65535", "smtp", "", false },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.Connect) + " " + std::to_string(row.Options));
        Renew();
        Configure(row.Options);
        if (row.CaFolder != nullptr || row.CaFile != nullptr)
            rynSetCertAuth(row.CaFolder, row.CaFile);
        if (row.Extra != nullptr) {
            EXPECT_EQ(rynConfigSSL(1, row.Extra), static_cast<int32_t>(strlen(row.ExtraLines)));
        }
        Serve();
        EXPECT_EQ(ConnectSecure(row.SecurePort, row.Server), 0);
        EXPECT_EQ(Close(), 0);
        const std::string caFile = row.CaFile == nullptr ? "" : row.CaFile;
        const std::string host(row.Connect, strcspn(row.Connect, ":"));
        std::string wanted =
            "; Configuration file (CID " + std::to_string(rynStatistics(0, RYN_STAT_CID)) + ")\r\n";
        if (*row.Output != 0)
            wanted += "output = " + Folder + "\\SmtpLog(0).txt\r\n";
        wanted += "taskbar = " + std::string(row.Taskbar) + "\r\ncert = " + Folder +
                  "\\client.pem\r\nclient = yes\r\n" + row.ExtraLines +
                  "[ssmtp]\r\naccept = 2600\r\nconnect = " + row.Connect + "\r\n";
        if (*row.Protocol != 0)
            wanted += "protocol = smtp\r\n";
        if (row.Verifies)
            wanted += std::string("verifyChain = yes\r\n") + row.CaPath +
                      "CAfile = " + caFile.substr(0, caFile.find('\n')) +
                      "\r\ncheckHost = " + host + "\r\nOCSPaia = yes\r\n";
        EXPECT_EQ(Config(), wanted);
        EXPECT_EQ(std::filesystem::status(Path("SmtpConfig(0).txt")).permissions(),
                  std::filesystem::perms{ 0600 });
    }
}

TEST_F(TunnelTest, BoundsTheHostsOwnLines)
{
    const struct {
        size_t Chars;
        const char* End;
        int32_t Result;
    } rows[] = { { 1, "", 3 },         { 1, "\n", 2 },     { 1021, "\n", 1022 },
                 { 1022, "\n", 1024 }, { 1023, "", 1024 }, { 5000, "\n", 1024 } };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.Chars) + row.End);
        Renew();
        Configure();
        EXPECT_EQ(rynConfigSSL(1, "forgotten"), 11);
        EXPECT_EQ(rynConfigSSL(1, (std::string(row.Chars, ';') + row.End).c_str()), row.Result);
        Serve();
        EXPECT_EQ(ConnectSecure(), 0);
        EXPECT_EQ(Close(), 0);
        const std::string config = Config();
        const size_t begin = config.find("client = yes\r\n") + 14;
        const std::string lines = config.substr(begin, config.find("[ssmtp]") - begin);
        EXPECT_EQ(lines.size(), static_cast<size_t>(row.Result));
        EXPECT_EQ(lines.find_first_not_of(";\r\n"), std::string::npos);
        EXPECT_EQ(lines.back(), '\n');
    }
}

TEST_F(TunnelTest, RefusesAConfigurationThatCannotBeMade)
{
    // A path of 255 chars is the longest: the folder, '\', 17 chars.
    for (const size_t length : { 237U, 238U }) {
        SCOPED_TRACE(length);
        Renew();
        Configure();
        std::string deep = Folder;
        while (deep.size() < length - 101)
            deep += "/" + std::string(49, 'd');
        deep += "/" + std::string(length - deep.size() - 1, 'e');
        std::filesystem::create_directories(deep);
        ASSERT_EQ(
            rynSetProxySSL(0, 0, deep.c_str(), Path("client.pem").c_str(), Path("stunnel").c_str()),
            1);
        const bool fits = length == 237;
        if (fits)
            Serve();
        EXPECT_EQ(ConnectSecure(), fits ? 0 : RYN_ERR_CANNOT_CREATE_FILE);
        EXPECT_EQ(ChildProcesses().size(), fits ? 1U : 0U);
        EXPECT_EQ(std::filesystem::exists(deep + "/SmtpConfig(0).txt"), fits);
        EXPECT_EQ(Close(), 0);
    }
}

TEST_F(TunnelTest, RefusesAConfigurationThatTheDiskDoesNotTake)
{
    int nth = 1;
    for (bool struck = true; struck; ++nth) {
        SCOPED_TRACE(nth);
        Renew();
        HostAttach(); // without a log: all writes are the configuration's
        ASSERT_EQ(rynSetProxySSL(0, 0, Folder.c_str(), "client.pem", "stunnel"), 1);
        Serve(nth > 8 ? ByeScript() : "! silence\n");
        FaultArm(FAULT_WRITE, nth);
        const int32_t result = ConnectSecure();
        struck = FaultDisarm();
        EXPECT_EQ(result, struck ? RYN_ERR_CANNOT_CREATE_FILE : 0);
        EXPECT_EQ(ChildProcesses().size(), struck ? 0U : 1U);
        if (struck)
            PeersReset();
        else
            EXPECT_EQ(Close(), 0);
    }
    EXPECT_EQ(nth, 10); // 8 lines
}

// --- the tunnel's process ---

TEST_F(TunnelTest, LogsTheLifeOfATunnel)
{
    Configure();
    Serve();
    EXPECT_EQ(ConnectSecure(587), 0);
    const std::string pid = std::to_string(LastPid());
    EXPECT_EQ(Close(), 0);
    const std::string start = LogFrom("*** rynSmtpConnectSSL");
    EXPECT_EQ(start.substr(0, start.find("<200:")),
              "*** rynSmtpConnectSSL(0,2600,587,'mail.test','u','*','Ann <a@x.example>','(null)',"
              "'localhost')\r\n*** rynStringParam(0,58,'u')\r\n*** rynStringParam(0,57,*)\r\n"
              "*** rynIntegerParam(0,29,1)\r\n*** StartStunnel(0,'Smtp')\n" +
                  Folder + "\\stunnel " + Folder +
                  "\\SmtpConfig(0).txt\r\nCreateProcess 0: pid=" + pid +
                  " thr=0: \nStunnel started (chan 0, process 0)\r\n"
                  "Connecting to server...\n");
    EXPECT_EQ(LogFrom("KillStunnel"), "KillStunnel(0) pid=0\nTerminateProcess 0: pid=" + pid +
                                          " thr=0\n.Stunnel killed (chan 0, process 0)\r\n");
    rynRelease();
    const std::string end = LogFrom("*** rynRelease");
    EXPECT_EQ(end.substr(end.find('\n') + 1), "Stunnel log: " + Folder +
                                                  "\\*Log(*).txt\r\n"
                                                  "*** Releasing channel 0 ***\r\n");
}

TEST_F(TunnelTest, RunsFromTheConnectToTheCloseOrTheRelease)
{
    Configure();
    Serve();
    EXPECT_EQ(ConnectSecure(), 0);
    const int32_t first = LastPid();
    EXPECT_TRUE(ProcessExists(first));
    EXPECT_EQ(Close(), 0);
    EXPECT_FALSE(ProcessExists(first)); // not even as a zombie

    Serve("! silence\n");
    EXPECT_EQ(ConnectSecure(), 0);
    const int32_t second = LastPid();
    EXPECT_NE(second, first);
    EXPECT_EQ(rynAbort(0), 1);
    EXPECT_TRUE(ProcessExists(second)); // outlives an abort, and serves the next session

    Serve("! silence\n");
    EXPECT_EQ(ConnectSecure(587, "other.test"), 0); // rewrites the file, starts nothing
    EXPECT_EQ(LastPid(), second);
    EXPECT_NE(Config().find("connect = other.test:587\r\n"), std::string::npos);
    EXPECT_EQ(rynAbort(0), 1);

    const std::string config = Config();
    Serve("! silence\n"); // without a secure port the tunnel is used as it stands
    EXPECT_EQ(rynSmtpConnectSSL(0, LocalPort, 0, nullptr, "u", "p", Sender, nullptr, "nowhere"), 0);
    EXPECT_EQ(LastPid(), second);
    EXPECT_EQ(Config(), config);
    EXPECT_EQ(rynAbort(0), 1);

    kill(second, SIGKILL);
    AwaitEnd(second);
    Serve("! silence\n");
    EXPECT_EQ(ConnectSecure(), 0); // starts it anew
    EXPECT_EQ(ChildProcesses(), std::vector<int32_t>{ LastPid() });
    EXPECT_NE(LastPid(), second);
    rynRelease();
    EXPECT_EQ(ChildProcesses(), std::vector<int32_t>());
}

TEST_F(TunnelTest, EndsTheTunnelsOfAllChannels)
{
    Configure(0, "stunnel", 3);
    for (uint32_t channel = 0; channel < 3; ++channel) {
        Serve("! silence\n");
        EXPECT_EQ(ConnectSecure(465, "mail.test", channel), 0);
        EXPECT_NE(Config(static_cast<int>(channel)).find("[ssmtp]"), std::string::npos);
    }
    EXPECT_EQ(ChildProcesses().size(), 3U);
    rynRelease();
    EXPECT_EQ(ChildProcesses().size(), 0U);
}

TEST_F(TunnelTest, RunsOnThisComputerUnlessTold)
{
    char computer[64];
    osComputerName(computer, sizeof computer);
    const char* const own = computer[0] != 0 ? computer : "127.0.0.1";
    VirtualAddName(own, 0x0A000034);
    Configure();
    Serve();
    EXPECT_EQ(rynSmtpConnectSSL(0, 0x10000 + LocalPort, 465, "mail.test", "u", "p", Sender, "", ""),
              0);
    EXPECT_EQ(Close(), 0);
    EXPECT_NE(LogFrom("<104:").find("\r\nServer = '" + std::string(own) + "'\r\n"),
              std::string::npos);
}

TEST_F(TunnelTest, TellsWhyATunnelCannotStart)
{
    WriteWholeFile(Path("plain.txt"), "no program\n");
    Configure(0, "plain.txt");
    EXPECT_EQ(ConnectSecure(), RYN_ERR_PROXY_START);
    EXPECT_EQ(LogFrom("Stunnel could"),
              std::string("Stunnel could not be started (chan 0)\r\n") + strerror(EACCES));
    EXPECT_EQ(VirtualNetworkCounts().Creates, 0);
    EXPECT_EQ(rynClose(0), 0);
    EXPECT_EQ(ChildProcesses().size(), 0U);
}

TEST_F(TunnelTest, TellsArgumentsThatAreMissing)
{
    Configure();
    const std::string longPassword(2049, 'p');
    const struct {
        uint32_t SecurePort;
        const char *Server, *User, *Password, *From;
        int32_t Status;
    } rows[] = {
        { 465, "s", "", "p", Sender, RYN_ERR_EMPTY_ARGUMENT },
        { 465, "s", "u", longPassword.c_str(), Sender, RYN_ERR_PASSWORD_TOO_LONG },
        { 0, nullptr, "u", "p", "a@b.c", RYN_ERR_MISSING_LEFT_ANGLE },
        { 0, nullptr, "u", "p", Sender, RYN_ERR_SERVER_NOT_FOUND }, // no name was ever set
    };
    for (const auto& row : rows) {
        EXPECT_EQ(rynSmtpConnectSSL(0, LocalPort, row.SecurePort, row.Server, row.User,
                                    row.Password, row.From, nullptr, nullptr),
                  row.Status);
        EXPECT_EQ(ChildProcesses().size(), 0U);
    }
    EXPECT_EQ(Config(), "<no file>");
}

// --- programs ---

TEST_F(TunnelTest, StartsAndEndsPrograms)
{
    HostAttach();
    HostSetText(0, RYN_LOG_FILE, Path("log"));
    EXPECT_EQ(rynStartProgram(nullptr), RYN_ERR_NULL_POINTER);
    for (const char* line : { "", "   ", "no-such-program", "/no/such/program x", "/tmp" })
        EXPECT_EQ(rynStartProgram(line), -1) << line;
    EXPECT_EQ(rynStartProgram(std::string(5000, 'x').c_str()), -1);
    EXPECT_EQ(ChildProcesses().size(), 0U);
    for (const int32_t entry : { -1, 0, 1, 63, 64, 1000000 })
        EXPECT_EQ(rynKillProgram(entry, 0), 0) << entry;

    EXPECT_EQ(rynStartProgram(Sleeper), 0);
    EXPECT_EQ(rynStartProgram(Sleeper), 1);
    const std::vector<int32_t> pids = PidsIn(Log(), "CreateProcess ");
    ASSERT_EQ(pids.size(), 2U);
    EXPECT_EQ(rynKillProgram(0, 7), 1);
    EXPECT_FALSE(ProcessExists(pids[0]));
    EXPECT_TRUE(ProcessExists(pids[1]));
    EXPECT_EQ(rynKillProgram(1, 0), 1);
}

TEST_F(TunnelTest, LeavesNoZombieOfAProgramThatEndedByItself)
{
    HostAttach();
    HostSetText(0, RYN_LOG_FILE, Path("log"));
    EXPECT_EQ(rynStartProgram("true"), 0);
    AwaitEnd(LastPid());
    EXPECT_EQ(rynKillProgram(0, 0), 1);
    EXPECT_EQ(ChildProcesses().size(), 0U);
    // A host may have told the system to reap its children itself.
    signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(rynStartProgram(Sleeper), 0);
    EXPECT_EQ(rynKillProgram(0, 0), 1);
    EXPECT_EQ(ChildProcesses().size(), 0U);
    signal(SIGCHLD, SIG_DFL);
}

TEST_F(TunnelTest, HoldsSixtyFourPrograms)
{
    Configure();
    for (int32_t entry = 0; entry < MostPrograms; ++entry)
        ASSERT_EQ(rynStartProgram(Sleeper), entry);
    // The program runs, but nobody can end it by its entry: this is what the host is told.
    EXPECT_EQ(rynStartProgram(Sleeper), -1);
    EXPECT_EQ(ConnectSecure(), RYN_ERR_PROXY_START);
    EXPECT_EQ(rynKillProgram(63, 0), 1);
    EXPECT_EQ(rynKillProgram(10, 0), 1);
    EXPECT_EQ(rynStartProgram(Sleeper), 10); // the first free one
    EXPECT_EQ(rynStartProgram(Sleeper), 63);
    for (int32_t entry = 0; entry < MostPrograms; ++entry)
        EXPECT_EQ(rynKillProgram(entry, 0), 1);
    const std::vector<int32_t> strays = ChildProcesses();
    EXPECT_EQ(strays.size(), 2U);
    for (const int32_t stray : strays) {
        kill(stray, SIGKILL);
        waitpid(stray, nullptr, 0);
    }
}

TEST_F(TunnelTest, GivesAProgramItsWords)
{
    MakeProgram("words", "for w; do printf '[%s]\\n' \"$w\"; done >\"$0.out\"");
    HostAttach();
    HostSetText(0, RYN_LOG_FILE, Path("log"));
    const std::string backslashed = "\\" + Path("words").substr(1);
    const struct {
        std::string Line;
        const char* Words;
    } rows[] = {
        { "  " + backslashed + " c\\d \"e\\f\" \"g h\"i", "[c/d]\n[e\\f]\n[g hi]\n" },
        { Path("words") + " \"\" x\"\"y \"open end", "[]\n[xy]\n[open end]\n" },
        { Path("words") + " $HOME *;`(0)' &|<>", "[$HOME]\n[*;`(0)']\n[&|<>]\n" },
        { Path("words") + Repeat(" w", 62), nullptr },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Line);
        const int32_t entry = rynStartProgram(row.Line.c_str());
        ASSERT_GE(entry, 0);
        AwaitEnd(LastPid());
        EXPECT_EQ(rynKillProgram(entry, 0), 1);
        EXPECT_EQ(ReadWholeFile(Path("words") + ".out"),
                  row.Words == nullptr ? Repeat("[w]\n", 62) : row.Words);
    }
    EXPECT_EQ(rynStartProgram((Path("words") + Repeat(" w", 63)).c_str()), -1); // too many
}

// Sockets, logs and files of the host must not live on in a program, nor what the host does to signals.
TEST_F(TunnelTest, GivesAProgramTheStandardStreamsOnly)
{
    const int low = open("/dev/null", O_RDONLY); // not close-on-exec
    const int high = fcntl(low, F_DUPFD, 200);
    Configure();
    Serve("! silence\n");
    sigset_t blocked;
    sigset_t before;
    sigfillset(&blocked);
    sigprocmask(SIG_BLOCK, &blocked, &before);
    signal(SIGTERM, SIG_IGN);
    EXPECT_EQ(ConnectSecure(), 0);
    signal(SIGTERM, SIG_DFL);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    const std::string status = ReadWholeFile("/proc/" + std::to_string(LastPid()) + "/status");
    for (const char* field : { "SigBlk:\t", "SigIgn:\t" }) {
        constexpr uint64_t StandardSignals = 0x7FFFFFFF; // above it the C library has its own
        const size_t at = status.find(field);
        ASSERT_NE(at, std::string::npos);
        EXPECT_EQ(strtoull(status.c_str() + at + 8, nullptr, 16) & StandardSignals, 0U) << field;
    }
    EXPECT_TRUE(HasStandardStreamsOnly(LastPid()));
    kill(LastPid(), SIGTERM);
    AwaitEnd(LastPid());
    close(low);
    close(high);
    EXPECT_EQ(rynAbort(0), 1);
}
