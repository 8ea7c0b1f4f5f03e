// POP3 as scripts play it: the login by digest, odd answers, message ids; and what a message that
// is fetched must not reach.
#include "tests/wire/dialogue.h"

#include <filesystem>
#include <sys/stat.h>

namespace {

constexpr uint16_t PopPort = 1110;
constexpr char Open[] = "S: +OK ready\nC: USER ann\nS: +OK\nC: PASS secret\nS: +OK\n";
constexpr char Bye[] = "C: QUIT\nS: +OK\n";

struct Pop3Test : HostTest {
    bool IsManual = false;

    int32_t Login(const std::string& script, const char* way = "whole", uint32_t apop = 0)
    {
        Renew();
        HostAttach();
        IsManual = *way == 'm';
        HostSet(0, RYN_AUTO_CALL_DRIVER, IsManual ? 0 : 1);
        HostSet(0, RYN_POP3_PORT, PopPort);
        HostSet(0, RYN_USE_APOP, apop);
        PeerScript(PopPort, script, { *way == 'b' });
        return Ended(rynPop3Connect(0, "server.test", "ann", "secret"));
    }

    int32_t Ended(int32_t result)
    {
        return HostFinish(0, result, IsManual);
    }

    int32_t FetchStored(const std::string& message)
    {
        WriteWholeFile(Path("stored"), message);
        std::filesystem::create_directory(Path("att"));
        EXPECT_EQ(rynPop3Source(0, Path("stored").c_str()), 1);
        return rynGetEmailFile(0, 1, "mail", Folder.c_str(), Path("att").c_str());
    }
};

} // namespace

TEST_F(Pop3Test, AnswersTheTimeStampWithADigest)
{
    const std::string s58(58, 's'), s63(63, 's');
    const struct {
        std::string Greeting;
        const char* Digest; // null: none is sent
    } rows[] = {
        { "+OK <1@x> ready", "37257aa37904a2ac86c6572e6528a18c" },
        { "+OK a > b <1@x> <2@x>", "37257aa37904a2ac86c6572e6528a18c" },
        { "+OK <>", "0d889ba84ec03bc1da45e918f3893f02" },
        // stamp and password are cut behind 64 chars
        { "+OK <" + s58 + ">", "51b3d855a9afca3bc5a5d6d9c1fd6c03" },
        { "+OK <" + s63 + "ss>", "29f7293bc77c69120bb33e3bdefb7192" },
        { "+OK ready", nullptr },
        { "+OK <1@x", nullptr },
        { "+OK 1@x> <", nullptr },
    };
    for (const char* way : { "whole", "byte by byte", "manual" }) {
        for (const auto& row : rows) {
            SCOPED_TRACE(row.Greeting + way);
            const bool fails = row.Digest == nullptr;
            const std::string script = "S: " + row.Greeting + "\n";
            const int32_t result =
                fails ? Login(script, way, 1)
                      : Login(script + "C: APOP ann " + row.Digest + "\nS: +OK\n" + Bye, way, 1);
            EXPECT_EQ(result, fails ? RYN_ERR_NO_APOP_TIMESTAMP : 0);
            EXPECT_EQ(fails ? rynAbort(0) - 1 : Ended(rynClose(0)), 0);
        }
    }
}

TEST_F(Pop3Test, PicksTheNumberOutOfTheAnswer)
{
    const struct {
        const char* Answer;
        int32_t Count, Size;
    } rows[] = {
        { "+OK 3 1200", 3, 1200 },
        { "+OK 3", 3, 0 },
        { "+OK", 0, 0 },
        { "+OK x y", 0, 0 },
        { "+OK -3 -5", 0, 0 },
        { "+OK  7 8", 0, 7 },
        { "+OK12 9 8", 2, 8 },
        { "+OK 2147483647 2147483647", INT32_MAX, INT32_MAX },
        { "+OK 2147483648 4294967295", INT32_MAX, INT32_MAX },
        { "+OK 00000000012 1 2", 1, 1 }, // ten digits are read
        { "+", 0, 0 },
        { "-ERR 3 1200", 0, 0 },
        { "3 1200", 0, 0 },
        { "", 0, 0 },
    };
    std::string script = Open;
    for (const auto& row : rows)
        script += std::string("C: STAT\nS: ") + row.Answer + "\nC: LIST 5\nS: " + row.Answer + "\n";
    for (const char* way : { "whole", "byte by byte", "manual" }) {
        ASSERT_EQ(Login(script + Bye, way), 0);
        for (const auto& row : rows) {
            SCOPED_TRACE(std::string(row.Answer) + " " + way);
            EXPECT_EQ(Ended(rynGetEmailCount(0)), IsManual ? 0 : row.Count);
            EXPECT_EQ(rynStatistics(0, RYN_STAT_EMAIL_COUNT), row.Count);
            EXPECT_EQ(Ended(rynGetEmailSize(0, 5)), IsManual ? 0 : row.Size);
            EXPECT_EQ(rynStatistics(0, RYN_STAT_MESSAGE_SIZE), row.Size);
        }
        EXPECT_EQ(Ended(rynClose(0)), 0);
    }
}

TEST_F(Pop3Test, HandsOutIdsAsTheyCome)
{
    const std::string list = "+OK\r\n1 a\r\n..2 b\r\n", y = std::string(119, 'y');
    const std::string lines = "S: +OK\nS: 1 a\nS: ..2 b\nS: .\n";
    const struct {
        int32_t Message;
        std::string Command, Answer;
        int32_t Size;
        std::string Stored;
    } rows[] = {
        { 2, "UIDL 2", "S: +OK 2 id\n", 130, "+OK 2 id\r\n" },
        { 2, "UIDL 2", "S: -ERR no\n", 130, "-ERR no\r\n" },
        { 2, "UIDL 2", "S: .\n", 130, "" },
        { 0, "UIDL 0", lines, 130, list },
        { -1, "UIDL", lines, 130, list },
        { INT32_MIN, "UIDL", "S: +OK\nS: .\n", 130, "+OK\r\n" },
        { 2, "UIDL 2", "S: +OK 2 " + y + "\n", 130, "+OK 2 " + y + "\r\n" },
        { 2, "UIDL 2", "S: +OK 2 " + y + "\n", 128, "+OK 2 " + y + "\r\n" },
        { 2, "UIDL 2", "S: +OK 2 y" + y + "\n", 128, "+OK 2 y" + y + "\r" },
        { -1, "UIDL", "S: +OK\nS: " + y + "\nS: 2 b\nS: .\n", 128, "+OK\r\n" + y + "\r\n2" },
    };
    std::string script = Open;
    for (const auto& row : rows)
        script += "C: " + row.Command + "\n" + row.Answer;
    for (const char* way : { "whole", "byte by byte", "manual" }) {
        ASSERT_EQ(Login(script + Bye, way), 0);
        for (const auto& row : rows) {
            SCOPED_TRACE(std::to_string(&row - rows) + " " + way);
            std::string buffer(140, '#');
            const auto length = static_cast<int32_t>(row.Stored.size());
            EXPECT_EQ(Ended(rynGetEmailUID(0, row.Message, buffer.data(), row.Size)),
                      IsManual ? 0 : length);
            EXPECT_EQ(rynStatistics(0, RYN_STAT_BUFFER_USED), length);
            EXPECT_EQ(buffer, row.Stored + '\0' + std::string(139 - row.Stored.size(), '#'));
        }
        EXPECT_EQ(Ended(rynClose(0)), 0);
    }
}

// A message names its attachments; what bears such a name already is neither followed nor opened.
TEST_F(Pop3Test, WritesAttachmentsToPlainFilesOnly)
{
    namespace fs = std::filesystem;
    const std::string att = Path("att"), target = Path("target");
    const char* const names[] = { "link", "dangling", "fifo", "plain" };
    std::string message = "MIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=B\r\n\r\n";
    for (const char* name : names)
        message += std::string("--B\r\nContent-Type: application/x; name=") + name +
                   "\r\nContent-Transfer-Encoding: base64\r\n\r\nYWJj\r\n";
    fs::create_directory(att);
    WriteWholeFile(target, "precious");
    WriteWholeFile(att + "/plain", "of an earlier message");
    fs::create_symlink(target, att + "/link");
    fs::create_symlink(Path("nowhere"), att + "/dangling");
    ASSERT_EQ(mkfifo((att + "/fifo").c_str(), 0600), 0);
    HostAttach();
    EXPECT_EQ(FetchStored(message + "--B--\r\n"), 0);
    EXPECT_EQ(ReadWholeFile(target), "precious");
    EXPECT_EQ(ReadWholeFile(att + "/plain"), "abc");
    EXPECT_TRUE(fs::is_symlink(att + "/link") && fs::is_symlink(att + "/dangling"));
    EXPECT_TRUE(fs::is_fifo(att + "/fifo"));
    EXPECT_FALSE(fs::exists(Path("nowhere")));
    EXPECT_EQ(std::distance(fs::directory_iterator(att), fs::directory_iterator()), 4);
    EXPECT_EQ(rynClose(0), 1);
}

// Whole lines are kept while they fit into 1 MiB, with the zero behind them.
TEST_F(Pop3Test, KeepsAMebibyteOfAHeader)
{
    const std::string x4000(4000, 'x');
    const std::string kept = "s" + Repeat("\n" + x4000, 262);
    constexpr int32_t size = 1200 * 1024;
    std::string subject(size + 1, '#');
    HostAttach();
    EXPECT_EQ(FetchStored("Subject: s\r\n" + Repeat(" " + x4000 + "\r\n", 300) + "\r\nbody\r\n"),
              0);
    EXPECT_EQ(rynGetHeader(0, RYN_HEADER_SUBJECT, subject.data(), size),
              static_cast<int32_t>(kept.size()));
    EXPECT_TRUE(subject.c_str() == kept); // too long to be shown
    EXPECT_EQ(rynClose(0), 1);
}
