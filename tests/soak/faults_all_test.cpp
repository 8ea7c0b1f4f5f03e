// Faults of the system on every road of the library: whichever call fails, once or from then on, the
// host is told, what is told to be done is done to the byte, nothing is left behind, and the same
// channel does the same work at once when the fault is over.
#include "tests/real/stunnel_watch.h"
#include "tests/wire/parcel.h"

#include <csignal>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>

namespace {

constexpr uint16_t Pop3Port = 2110, ImapPort = 2143, LocalPort = 2600;

// A message with a text and two files.
const std::string& Message()
{
    static const std::string file = "Content-Transfer-Encoding: base64\r\nContent-Type: a/b; name=";
    static const std::string message =
        "Subject: s\r\nMIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=b\r\n\r\n"
        "--b\r\n\r\n" +
        Repeat("a line of text\r\n", 20) + "--b\r\n" + file + "\"one\"\r\n\r\n" +
        Base64(Sample(12000)) + "--b\r\n" + file + "\"two\"\r\n\r\n" + Base64(Sample(5)) +
        "--b--\r\n";
    return message;
}

struct FaultsAllTest : WireTest {
    void SetUp() override
    {
        WireTest::SetUp();
        WriteWholeFile(Path("stunnel"), "#!/bin/sh\nexec sleep 100\n");
        chmod(Path("stunnel").c_str(), 0755);
        WriteWholeFile(Path("client.pem"), "certificate\n");
        WriteWholeFile(Path("text"), Repeat("a line of text\n.\n", 300));
        WriteWholeFile(Path("alt"), Repeat("one\n", 3000));
        WriteWholeFile(Path("one"), Sample(3000));
        WriteWholeFile(Path("two"), Sample(5));
        WriteWholeFile(Path("stored"), Message() + ".\r\n");
    }

    std::string Out() const
    {
        return Path("out");
    }

    // A fresh folder for what a road makes.
    void EmptyOut() const
    {
        std::filesystem::remove_all(Out());
        std::filesystem::create_directory(Out());
    }

    // All that a road has made, by names, without the id that differs each time.
    std::string Made() const
    {
        std::string all;
        for (const char* name : { "mail", "*mail", "one", "two", "target", "SmtpConfig(0).txt" })
            if (std::filesystem::exists(Out() + "/" + name))
                all += std::string("[") + name + "]" + ReadWholeFile(Out() + "/" + name);
        if (!SinkMessages().empty())
            all += "[sent]" + SinkMessages().back().Data;
        const std::string id = "Message-ID: <";
        if (const size_t at = all.find(id); at != std::string::npos)
            all.erase(at, all.find('@', at) - at);
        return all;
    }
};

// --- the roads ---

using Test = FaultsAllTest;

int32_t SendFiles(const Test& test)
{
    const Parcel parcel = { .Files = test.Path("one") + "|one;" + test.Path("two") + "|two",
                            .Message = "@" + test.Path("text") };
    return SendParcel(parcel);
}

int32_t Fetch(const Test& test)
{
    return rynGetEmailFile(0, 1, "mail", test.Out().c_str(), test.Out().c_str());
}

// The first failure of a session's three steps.
template <typename Step>
int32_t Session(int32_t connected, Step step)
{
    if (connected < 0)
        return connected;
    const int32_t result = step();
    return result < 0 ? result : rynClose(0);
}

int32_t SendRoad(const Test& test)
{
    return Session(rynSmtpConnect(0, "server.test", Sender, nullptr),
                   [&] { return SendFiles(test); });
}

int32_t HtmlRoad(const Test& test)
{
    const std::string text = "@" + test.Path("text"), alt = "@" + test.Path("alt");
    return Session(rynSmtpConnect(0, "server.test", Sender, nullptr), [&] {
        return Send({ .Message = text.c_str(), .Alternative = alt.c_str(), .Html = true });
    });
}

int32_t Pop3Road(const Test& test)
{
    return Session(rynPop3Connect(0, "server.test", "ann", "secret"), [&] { return Fetch(test); });
}

int32_t ImapRoad(const Test& test)
{
    return Session(rynImapConnect(0, "server.test", "ann", "secret"), [&] { return Fetch(test); });
}

int32_t TunnelRoad(const Test& test)
{
    const std::string program = test.Path("stunnel"), certificate = test.Path("client.pem");
    const int32_t set =
        rynSetProxySSL(0, 0, test.Out().c_str(), certificate.c_str(), program.c_str());
    if (set < 0)
        return set;
    return Session(
        rynSmtpConnectSSL(0, LocalPort, 465, "mail.test", "u", "p", Sender, nullptr, "localhost"),
        [] { return 0; });
}

int32_t TargetRoad(const Test& test)
{
    return Session(rynSmtpTarget(0, (test.Out() + "/target").c_str(), Sender, nullptr),
                   [&] { return SendFiles(test); });
}

int32_t StoredRoad(const Test& test)
{
    return Session(rynPop3Source(0, test.Path("stored").c_str()), [&] { return Fetch(test); });
}

std::string Pop3Script()
{
    return "S: +OK\nC: USER ann\nS: +OK\nC: PASS secret\nS: +OK\nC: RETR 1\nS- +OK\\r\\n" +
           PeerEscape(Message()) + ".\\r\\n\nC: QUIT\nS: +OK\n";
}

std::string ImapScript()
{
    return "S: * OK\nC~ RYN.*\nS: {T} OK\nC: {T} SELECT InBox\nS: {T} OK\n"
           "C: {T} FETCH 1 RFC822\nS- * 1 FETCH (RFC822 {" +
           std::to_string(Message().size()) + "}\\r\\n" + PeerEscape(Message()) +
           ")\\r\\n\nS: {T} OK\nC: {T} EXPUNGE\nS: {T} OK\nC: {T} LOGOUT\nS: {T} OK\n";
}

std::string TunnelScript()
{
    return "S: 220 hi\nC: EHLO x.example\nS: 250 ok\n" + ByeScript();
}

struct Road {
    const char* Name;
    int32_t (*Go)(const Test& test);
    const char* Makes; // stands in what it has made
    uint16_t Port;     // of a script; 0 = none
    std::string (*Script)();
    unsigned MayFallShort; // bits of FaultKind behind which a success may be less than the whole
};

// What the header tells of: a file that can't be read on looks like its end, a peer that drops the
// connection ends the message, a full disk cuts files short, and a part whose file can't be made stays
// in the message file.
constexpr unsigned Making =
    1u << FAULT_WRITE | 1u << FAULT_CREATE | 1u << FAULT_LOCK | 1u << FAULT_INSPECT;
constexpr unsigned Reading = 1u << FAULT_READ, Receiving = 1u << FAULT_RECEIVE;

constexpr Road Roads[] = {
    { "send", SendRoad, "filename=\"two\"", 0, nullptr, Reading },
    { "html", HtmlRoad, "multipart/alternative", 0, nullptr, Reading },
    { "pop3", Pop3Road, "[*mail]", Pop3Port, Pop3Script, Making | Receiving },
    { "imap", ImapRoad, "[*mail]", ImapPort, ImapScript, Making | Receiving },
    { "tunnel", TunnelRoad, "connect = mail.test:465\r\n", LocalPort, TunnelScript, 0 },
    { "target", TargetRoad, "filename=\"two\"", 0, nullptr, Reading },
    { "stored", StoredRoad, "[two]", 0, nullptr, Making | Reading },
};

// Servers for the connection that meets the fault and the one behind it.
void Serve(const Road& road)
{
    SinkListen(HostPort);
    if (road.Script == nullptr)
        return;
    const std::string script = road.Script();
    for (int i = 0; i < 2; ++i)
        PeerScript(road.Port, script, { .MayEndEarly = true });
}

// Attaches if that has not been done, sets the channel up and does the work: 0 and above, or the first
// failure.
int32_t Work(const Test& test, const Road& road)
{
    if (rynIsConnected(0) == RYN_ERR_NOT_ATTACHED)
        if (const int32_t attached = rynAttach(1); attached < 0)
            return attached;
    rynIntegerParam(0, RYN_SMTP_PORT, HostPort);
    rynIntegerParam(0, RYN_POP3_PORT, Pop3Port);
    rynIntegerParam(0, RYN_IMAP_PORT, ImapPort);
    rynIntegerParam(0, RYN_RAW_PREFIX, '*');
    rynStringParam(0, RYN_LOG_FILE, test.Path("log").c_str());
    rynStringParam(0, RYN_RCPT_TRACE_FILE, test.Path("trace").c_str());
    return road.Go(test);
}

void Begin(Test& test, const Road& road)
{
    test.Renew();
    VirtualClockSetLimit(3600 * 1000); // ms; no wait of a road is meant to be longer
    test.EmptyOut();
    Serve(road);
}

// What an undisturbed road makes.
std::string MakesOf(Test& test, const Road& road)
{
    Begin(test, road);
    EXPECT_GE(Work(test, road), 0);
    EXPECT_EQ(rynAbort(0), 1);
    const std::string made = test.Made();
    EXPECT_NE(made.find(road.Makes), std::string::npos) << made.substr(0, 2000);
    return made;
}

// Behind a fault: the failure has a text, the connection is gone, and the same channel does the work.
void ExpectUsable(Test& test, const Road& road, int32_t result, const std::string& makes)
{
    const bool isAttached = rynIsConnected(0) != RYN_ERR_NOT_ATTACHED;
    if (isAttached) {
        EXPECT_EQ(rynAbort(0), 1);
    }
    EXPECT_EQ(VirtualOpenSockets(), 0);
    test.EmptyOut();
    EXPECT_GE(Work(test, road), 0);
    EXPECT_EQ(test.Made(), makes);
    if (result < 0) {
        EXPECT_NE(HostErrorText(0, result), "") << result;
    }
    rynRelease();
    EXPECT_EQ(ChildProcesses(), std::vector<int32_t>());
}

// True if the fault has struck.
bool RunUnderFault(Test& test, const Road& road, FaultKind kind, int nth, bool lasting,
                   const std::string& makes)
{
    Begin(test, road);
    WriteWholeFile(test.Path("log"), "of an earlier run"); // an empty file is not cut
    lasting ? FaultArmFrom(kind, nth) : FaultArm(kind, nth);
    const int32_t result = Work(test, road);
    const bool struck = FaultDisarm();
    if (result >= 0 && (road.MayFallShort >> kind & 1) == 0) {
        EXPECT_EQ(test.Made(), makes) << "a success that is none";
    }
    ExpectUsable(test, road, result, makes);
    return struck;
}

struct EachFault : FaultsAllTest, ::testing::WithParamInterface<int> {};

} // namespace

TEST_P(EachFault, IsToldOnEachRoadAndLeavesNothing)
{
    const auto kind = static_cast<FaultKind>(GetParam());
    bool hasStruck = false;
    for (const Road& road : Roads) {
        const std::string makes = MakesOf(*this, road);
        for (const bool lasting : { false, true }) {
            bool struck = true;
            for (int nth = 1; struck; nth += 1 + nth / 4) {
                SCOPED_TRACE(road.Name + std::string(" ") + std::to_string(nth) +
                             (lasting ? " and on" : ""));
                struck = RunUnderFault(*this, road, kind, nth, lasting, makes);
                hasStruck |= struck;
            }
        }
    }
    EXPECT_TRUE(hasStruck); // else this kind was never tried
}

INSTANTIATE_TEST_SUITE_P(All, EachFault, ::testing::Range(0, static_cast<int>(FAULT_ALL_COUNT)),
                         [](const auto& kind) {
                             return FaultName(static_cast<FaultKind>(kind.param));
                         });

TEST_F(FaultsAllTest, SignalsAndSmallPiecesChangeNoByte)
{
    for (const Road& road : Roads) {
        SCOPED_TRACE(road.Name);
        const std::string makes = MakesOf(*this, road);
        FaultInterrupt(true);
        EXPECT_EQ(MakesOf(*this, road), makes);
        FaultInterrupt(false);
    }
}

// The files end where the disk was full, and nothing else has happened.
TEST_F(FaultsAllTest, AFullDiskCutsWhatIsFetched)
{
    signal(SIGXFSZ, SIG_IGN);
    for (const Road& road : Roads) {
        SCOPED_TRACE(road.Name);
        const std::string makes = MakesOf(*this, road);
        const bool fetches = makes.find("[mail]") != std::string::npos;
        for (const rlim_t most : { 0U, 1U, 100U, 4096U, 10000U }) {
            SCOPED_TRACE(most);
            ::Begin(*this, road);
            rlimit whole = {};
            getrlimit(RLIMIT_FSIZE, &whole);
            const rlimit small = { most, whole.rlim_max };
            setrlimit(RLIMIT_FSIZE, &small);
            const int32_t result = Work(*this, road);
            setrlimit(RLIMIT_FSIZE, &whole);
            if (fetches) {
                EXPECT_GE(result, 0);
                for (const char* name : { "mail", "one", "two" }) {
                    const std::string cut =
                        "[" + std::string(name) + "]" + ReadWholeFile(Out() + "/" + name);
                    EXPECT_LE(cut.size(), most + strlen(name) + 2);
                    EXPECT_NE(makes.find(cut), std::string::npos) << name;
                }
            }
            ExpectUsable(*this, road, result, makes);
        }
    }
}

TEST_F(FaultsAllTest, NoDescriptorsLeftIsTold)
{
    for (const Road& road : Roads) {
        const std::string makes = MakesOf(*this, road);
        for (rlim_t free = 0; free < 8; ++free) {
            SCOPED_TRACE(std::string(road.Name) + " " + std::to_string(free));
            ::Begin(*this, road);
            rlimit whole = {};
            getrlimit(RLIMIT_NOFILE, &whole);
            const rlimit small = { static_cast<rlim_t>(DescriptorsBefore) + free, whole.rlim_max };
            setrlimit(RLIMIT_NOFILE, &small);
            const int32_t result = Work(*this, road);
            setrlimit(RLIMIT_NOFILE, &whole);
            ExpectUsable(*this, road, result, makes);
        }
    }
}
