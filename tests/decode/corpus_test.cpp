// Each message of tests/messages, decoded from a file and from a server, in every way of driving.
#include "tests/decode/corpus.h"
#include "tests/support/host.h"
#include "tests/support/scripted_peer.h"
#include "tests/support/temp_folder.h"

#include <filesystem>

// A server of one byte a turn needs longer for a line than the library would wait.
static constexpr uint32_t Patience = 3600 * 1000; // ms

// Settings of the process as they are at its start, for cases that run in one.
static void ResetProcess()
{
    const std::pair<int32_t, uint32_t> starts[] = { { RYN_NO_ATTACH_NOTE, 0 },
                                                    { RYN_ATTACH_DELIMITER, ';' },
                                                    { RYN_NO_HEADER_COPY, 0 },
                                                    { RYN_UNDERSCORE_TO_SPACE, 1 } };
    for (const auto& [code, value] : starts)
        rynIntegerParam(0, code, value);
    HostSetText(0, RYN_HEADER_PREFIX, "RYN:");
}

static void ApplySettings(const CorpusCase& c)
{
    for (const auto& [code, value] : c.Numbers)
        rynIntegerParam(0, code, value);
    for (const auto& [code, text] : c.Texts)
        HostSetText(0, code, text);
}

static std::string Dialogue(const CorpusCase& c)
{
    return "S: +OK ready\nC: USER u\nS: +OK\nC: PASS p\nS: +OK\nC: RETR 1\nS: +OK\nS- " +
           PeerEscape(c.Message) + "\n" + (c.PeerCloses ? "! close\n" : "S: .\nC: QUIT\nS: +OK\n");
}

struct CorpusTest : HostTest, ::testing::WithParamInterface<std::string> {
    void SetUp() override
    {
        HostTest::SetUp();
        Start = std::filesystem::current_path();
    }

    void TearDown() override
    {
        ResetProcess();
        std::filesystem::current_path(Start);
        HostTest::TearDown();
    }

    // Relative paths, so that the notes of attachments are the same everywhere.
    void EnterFolders(const std::string& round) const
    {
        for (const char* name : { "mail", "att" })
            std::filesystem::create_directories(Path(round) + "/" + name);
        std::filesystem::current_path(Path(round));
    }

    std::filesystem::path Start;
};

static void OpenSource(const CorpusTest& test, const CorpusCase& c)
{
    const std::string path = test.Path("message.eml");
    WriteWholeFile(path, c.Message);
    EXPECT_EQ(rynPop3Source(0, path.c_str()), 1);
}

static void OpenServer(const CorpusCase& c, const std::string& way)
{
    PeerScript(HostPort, Dialogue(c), { way == "bytes" });
    const int32_t connected = rynPop3Connect(0, "server.test", "u", "p");
    EXPECT_EQ(HostFinish(0, connected, way == "manual"), 0);
}

static void Begin(CorpusTest& test, const CorpusCase& c, const std::string& way)
{
    test.Renew();
    HostAttach();
    ResetProcess();
    ApplySettings(c);
    HostSet(0, RYN_POP3_PORT, HostPort);
    HostSet(0, RYN_REPLY_TIMEOUT, Patience);
    HostSet(0, RYN_AUTO_CALL_DRIVER, way == "manual" ? 0 : 1);
}

static std::string Fetch(const CorpusTest& test, const CorpusCase& c, const std::string& way)
{
    test.EnterFolders(way);
    const int32_t fetched = rynGetEmailFile(0, 1, "message.txt", "mail", c.AttachFolder.c_str());
    EXPECT_EQ(HostFinish(0, fetched, way == "manual"), 0);
    return CorpusResult(0);
}

// Messages without headers, types, ids, names or boundaries of their own show what the one before
// them has left.
static void ExpectNothingLeft(const CorpusTest& test)
{
    for (const char* name : { "lists-empty-type", "single-7bit", "single-b64-save" }) {
        const CorpusCase next = CorpusRead(name);
        ApplySettings(next);
        OpenSource(test, next);
        EXPECT_EQ(Fetch(test, next, name), next.Result) << "behind it: " << name;
    }
}

TEST_P(CorpusTest, DecodesFile)
{
    const CorpusCase c = CorpusRead(GetParam());
    Begin(*this, c, "source");
    OpenSource(*this, c);
    EXPECT_EQ(Fetch(*this, c, "source"), c.Result);
    if (c.Numbers.empty())
        ExpectNothingLeft(*this);
    EXPECT_EQ(rynClose(0), 1);
}

TEST_P(CorpusTest, DecodesFetched)
{
    const CorpusCase c = CorpusRead(GetParam());
    if (c.SourceOnly)
        return;
    for (const char* way : { "whole", "bytes", "manual" }) {
        Begin(*this, c, way);
        OpenServer(c, way);
        EXPECT_EQ(Fetch(*this, c, way), c.Result) << way;
        const int32_t closed = c.PeerCloses ? rynAbort(0) - 1 : rynClose(0);
        EXPECT_EQ(HostFinish(0, closed, way == std::string("manual")), 0) << way;
    }
}

static std::string CaseName(const ::testing::TestParamInfo<std::string>& info)
{
    std::string name = info.param;
    for (char& c : name)
        c = c == '-' ? '_' : c;
    return name;
}

INSTANTIATE_TEST_SUITE_P(Corpus, CorpusTest, ::testing::ValuesIn(CorpusNames()), CaseName);
