// Hostile peers: at every step of the dialogues of SMTP, POP3 and IMAP the server does each thing that
// it should not. Every operation ends in its time by a told result, memory stays flat, and an honest
// server finds the channel as good as new.
#include "tests/wire/dialogue.h"

namespace {

constexpr uint16_t Port = 2500;
constexpr uint32_t ReplyTimeoutMs = 4000;
constexpr uint32_t DripBytes = 100, DripMs = 250; // between two bytes

struct Step {
    std::string Client, Server; // script steps; the greeting has no client's part
    bool IsData = false;        // the answer is a message: its end is the peer's affair
};

struct Operation {
    uint32_t Replies; // steps of the dialogue that it takes
    std::function<int32_t()> Run;
};

// A protocol with its dialogue and the operations that lead through it.
struct Dialogue {
    const char* Name;
    const char* EndlessLines; // of the kind that an answer may have any number of
    std::vector<Step> Steps;
    std::vector<Operation> Operations;
};

struct HostileTest : WireTest {
    std::string Buffer = std::string(4096, 0);

    int32_t Fetch()
    {
        return rynGetEmailFile(0, 1, "mail", Folder.c_str(), Folder.c_str());
    }

    Dialogue Smtp()
    {
        const std::string head = HeadScript();
        return { "SMTP",
                 "250-x\\r\\n",
                 { { "", "S: 220 ready" },
                   { "C: HELO x.example", "S: 250 hello" },
                   { "C: VRFY b", "S: 252 perhaps" },
                   { "C: MAIL FROM:<a@x.example>", "S: 250 ok" },
                   { "C: RCPT TO:<b@y.example>", "S: 250 ok" },
                   { "C: DATA", "S: 354 go" },
                   { head + "C: one\nC: two\nC: .", "S: 250 ok" },
                   { "C: NOOP", "S: 250 ok" },
                   { "C: QUIT", "S: 221 bye" } },
                 { { 2, [] { return rynSmtpConnect(0, "server.test", Sender, nullptr); } },
                   { 1, [] { return rynVerifyUser(0, "b"); } },
                   { 4, [] { return Send({}); } },
                   { 1, [] { return rynCommand(0, "NOOP"); } },
                   { 1, [] { return rynClose(0); } } } };
    }

    Dialogue Pop3()
    {
        const std::string message = "S: +OK\nS: Subject: s\nS:\nS: body\nS: .";
        return { "POP3",
                 "+OK x\\r\\n",
                 { { "", "S: +OK hi" },
                   { "C: USER ann", "S: +OK" },
                   { "C: PASS secret", "S: +OK" },
                   { "C: STAT", "S: +OK 1 30" },
                   { "C: LIST 1", "S: +OK 1 30" },
                   { "C: UIDL", "S: +OK\nS: 1 id\nS: .", true },
                   { "C: TOP 1 1", message, true },
                   { "C: RETR 1", message, true },
                   { "C: DELE 1", "S: +OK" },
                   { "C: QUIT", "S: +OK bye" } },
                 { { 3, [] { return rynPop3Connect(0, "server.test", "ann", "secret"); } },
                   { 1, [] { return rynGetEmailCount(0); } },
                   { 1, [] { return rynGetEmailSize(0, 1); } },
                   { 1, [this] { return rynGetEmailUID(0, -1, Buffer.data(), 4096); } },
                   { 1, [this] { return rynGetEmailLines(0, 1, 1, Buffer.data(), 4096); } },
                   { 1, [this] { return Fetch(); } },
                   { 1, [] { return rynDeleteEmail(0, 1); } },
                   { 1, [] { return rynClose(0); } } } };
    }

    Dialogue Imap()
    {
        const std::string message = "S: * 1 FETCH (RFC822 {20}\nS: Subject: s\nS:\nS: body\nS: )\n"
                                    "S: {T} OK",
                          done = "\nS: {T} OK";
        return { "IMAP",
                 "* x\\r\\n",
                 { { "", "S: * OK hi" },
                   { "C~ RYN.* LOGIN ann secret", "S: {T} OK" },
                   { "C: {T} SELECT InBox", "S: * 1 EXISTS" + done },
                   { "C: {T} FETCH 1 RFC822.SIZE", "S: * 1 FETCH (RFC822.SIZE 9)" + done },
                   { "C: {T} FETCH 1 UID", "S: * 1 FETCH (UID 9)" + done },
                   { "C: {T} FETCH 1 FLAGS", "S: * 1 FETCH (FLAGS (\\Seen))" + done },
                   { "C: {T} SEARCH ALL", "S: * SEARCH 1" + done },
                   { "C: {T} LIST \"\" \"*\"", "S: * LIST () NIL box" + done },
                   { "C: {T} FETCH 1 RFC822", message, true },
                   { "C: {T} FETCH 1 RFC822", message, true },
                   { "C: {T} STORE 1 +FLAGS (\\Deleted)", "S: {T} OK" },
                   { "C: {T} EXPUNGE", "S: {T} OK" },
                   { "C: {T} LOGOUT", "S: * BYE" + done } },
                 { { 3, [] { return rynImapConnect(0, "server.test", "ann", "secret"); } },
                   { 1, [] { return rynGetEmailSize(0, 1); } },
                   { 1, [this] { return rynGetEmailUID(0, 1, Buffer.data(), 4096); } },
                   { 1, [] { return rynImapFlags(0, 1, RYN_FLAGS_READ, 63); } },
                   { 1, [this] { return rynImapSearch(0, "ALL", Buffer.data(), 4096); } },
                   { 1, [this] { return rynImapListMB(0, Buffer.data(), 4000); } },
                   { 1, [this] { return rynGetEmailLines(0, 1, 1, Buffer.data(), 4096); } },
                   { 1, [this] { return Fetch(); } },
                   { 1, [] { return rynDeleteEmail(0, 1); } },
                   { 2, [] { return rynClose(0); } } } };
    }
};

// --- what a peer may do in the place of its answer ---

struct Deed {
    const char* Name;
    std::string (*Script)(const Dialogue& dialogue, size_t step);
    bool Drips = false; // byte by byte
};

// A message may be as long as it likes; here it is bounded so that it ends.
std::string Flood(const Dialogue& dialogue, size_t step, const std::string& text, size_t bytes)
{
    constexpr size_t mostBytes = 2u << 20, mostPieces = 5000;
    const size_t size = PeerUnescape(text).size();
    size_t pieces = bytes / size;
    if (dialogue.Steps[step].IsData)
        pieces = std::min({ pieces, mostPieces, mostBytes / size });
    return "! flood " + text + " " + std::to_string(pieces) + "\n! close\n";
}

constexpr size_t Endless = size_t{ 1 } << 40;

std::string Junk()
{
    std::string bytes;
    for (int i = 0; i < 4000; ++i)
        bytes += static_cast<char>((i * i * 31 + i * 7) >> 3 & 255);
    return PeerEscape(bytes);
}

const std::string X64(64, 'x');

const Deed Deeds[] = {
    { "endless line", [](auto& d, size_t k) { return Flood(d, k, X64, Endless); } },
    { "endless lines", [](auto& d, size_t k) { return Flood(d, k, d.EndlessLines, Endless); } },
    { "endless empty lines", [](auto& d, size_t k) { return Flood(d, k, "\\r\\n", Endless); } },
    { "endless fold", [](auto& d, size_t k) { return Flood(d, k, "To: \\r\\n " + X64, Endless); } },
    { "64 MiB of junk", [](auto& d, size_t k) { return Flood(d, k, Junk(), 64u << 20); } },
    { "a drip", [](auto& d, size_t k) { return Flood(d, k, "x", DripBytes); }, true },
    { "a drip of lines", [](auto& d, size_t k) { return Flood(d, k, d.EndlessLines, DripBytes); },
      true },
    { "reset", [](auto&, size_t) { return std::string("! reset\n"); } },
    { "close", [](auto&, size_t) { return std::string("! close\n"); } },
    { "silence", [](auto&, size_t) { return std::string(); } },
    { "binary",
      [](auto&, size_t) { return std::string("S- \\x00\\xFF\\x80\\r\\r\\n\\x00\\n\n"); } },
    { "another step's answer",
      [](auto& d, size_t k) { return d.Steps[(k + 1) % d.Steps.size()].Server + "\n"; } },
    { "half an answer",
      [](auto& d, size_t k) { return "S- " + d.Steps[k].Server.substr(3, 3) + "\n"; } },
};

std::string HonestUpTo(const Dialogue& dialogue, size_t step)
{
    std::string script;
    for (size_t i = 0; i < step; ++i)
        script += dialogue.Steps[i].Client + "\n" + dialogue.Steps[i].Server + "\n";
    return script;
}

// A peer that sends a byte a turn sends one each time that the library looks again.
void BeginRound(HostileTest& test, uint32_t pollDelayMs)
{
    test.Renew();
    HostAttach();
    HostSet(0, RYN_POLL_DELAY, pollDelayMs);
    rynRelease(); // a socket takes the delay over when it is attached
    HostAttach();
    HostSet(0, RYN_REPLY_TIMEOUT, ReplyTimeoutMs); // each attach lengthens it
    HostSet(0, RYN_SMTP_PORT, Port);
    HostSet(0, RYN_POP3_PORT, Port);
    HostSet(0, RYN_IMAP_PORT, Port);
}

int32_t LiveBlocks()
{
    return rynStatistics(0, RYN_STAT_BLOCKS_ALLOCATED) - rynStatistics(0, RYN_STAT_BLOCKS_FREED);
}

// One operation, told and in time: false if it has failed.
bool Run(const Operation& operation, uint32_t answerMs, uint32_t messageMs)
{
    const uint64_t before = VirtualClockSpent();
    const int32_t result = operation.Run();
    EXPECT_LT(VirtualClockSpent() - before, operation.Replies * answerMs + messageMs);
    if (result < 0) {
        EXPECT_NE(HostErrorText(0, result), "") << result;
    }
    return result >= 0;
}

// As a host does it, up to a failure or behind the operation that met the deed; then the farewell.
void Drive(const Dialogue& dialogue, size_t step, uint32_t answerMs, uint32_t messageMs)
{
    size_t taken = 0;
    for (const Operation& operation : dialogue.Operations) {
        SCOPED_TRACE("behind " + std::to_string(taken) + " steps");
        taken += operation.Replies;
        if (!Run(operation, answerMs, messageMs) || taken > step)
            break;
    }
    Run(dialogue.Operations.back(), answerMs, messageMs);
}

// The same channel and an honest server: every operation succeeds, every byte is the right one.
void ExpectHonest(HostileTest& test, const Dialogue& dialogue)
{
    EXPECT_EQ(rynAbort(0), 1);
    EXPECT_EQ(VirtualOpenSockets(), 0);
    WriteWholeFile(test.Path("mail"), "");
    PeerScript(Port, HonestUpTo(dialogue, dialogue.Steps.size()));
    for (const Operation& operation : dialogue.Operations)
        EXPECT_GE(operation.Run(), 0) << "operation " << &operation - dialogue.Operations.data();
    EXPECT_EQ(ReadWholeFile(test.Path("mail")),
              *dialogue.Name == 'S' ? "" : "Subject: s\r\n\r\nbody\r\n");
}

void ExpectSurvives(HostileTest& test, const Dialogue& dialogue, size_t step,
                    const std::string& script, bool drips = false)
{
    constexpr uint32_t pauses = 3000;              // ms, of the driver and of a close
    constexpr int32_t mostBlocks = 8;              // that a channel holds while it works
    constexpr int32_t mostBytes = 6 * 1024 * 1024; // headers of a message are kept up to 1 MiB each
    BeginRound(test, drips ? DripMs : 100);
    PeerScript(Port, script + "! silence\n", { .ByteByByte = drips, .MayEndEarly = true });
    const int32_t blocks = LiveBlocks();
    const int32_t bytes = rynStatistics(0, RYN_STAT_BYTES_ALLOCATED);
    // An answer of IMAP may take two replies' time; a message takes the peer's.
    const uint32_t answer = (*dialogue.Name == 'I' ? 2 : 1) * ReplyTimeoutMs;
    const uint32_t message = DripBytes * DripMs + 4 * ReplyTimeoutMs;
    Drive(dialogue, step, 2 * answer + pauses, dialogue.Steps[step].IsData ? message : 0);
    EXPECT_LE(LiveBlocks() - blocks, mostBlocks);
    EXPECT_LE(rynStatistics(0, RYN_STAT_BYTES_ALLOCATED) - bytes, mostBytes);
    ExpectHonest(test, dialogue);
}

} // namespace

struct EachDialogue : HostileTest, ::testing::WithParamInterface<int> {};

TEST_P(EachDialogue, SurvivesEachDeedAtEachStep)
{
    const Dialogue all[] = { Smtp(), Pop3(), Imap() };
    const Dialogue& dialogue = all[GetParam()];
    for (size_t step = 0; step < dialogue.Steps.size(); ++step) {
        const std::string honest = HonestUpTo(dialogue, step) + dialogue.Steps[step].Client + "\n";
        for (const Deed& deed : Deeds) {
            SCOPED_TRACE(dialogue.Steps[step].Client + ": " + deed.Name);
            ExpectSurvives(*this, dialogue, step, honest + deed.Script(dialogue, step), deed.Drips);
        }
    }
}

// Two answers at once, the second one to a question that has not been put.
TEST_P(EachDialogue, SurvivesAnswersBeforeTheQuestion)
{
    const Dialogue all[] = { Smtp(), Pop3(), Imap() };
    const Dialogue& dialogue = all[GetParam()];
    for (size_t step = 1; step < dialogue.Steps.size(); ++step) {
        SCOPED_TRACE(dialogue.Steps[step].Client);
        ExpectSurvives(*this, dialogue, step,
                       HonestUpTo(dialogue, step) + dialogue.Steps[step].Server + "\n" +
                           dialogue.Steps[step].Client + "\n");
    }
}

constexpr const char* Names[] = { "Smtp", "Pop3", "Imap" };

INSTANTIATE_TEST_SUITE_P(All, EachDialogue, ::testing::Range(0, 3),
                         [](const auto& row) { return Names[row.param]; });
