// IMAP as scripts play it: commands to the byte, answers of every kind and in every piece, what the
// log tells, and servers that refuse, fall silent or never end.
#include "tests/wire/dialogue.h"

#include <cstring>

namespace {

constexpr uint16_t ImapPort = 1143;

constexpr char Open[] = "S: * OK ready\nC~ RYN[0-9]{1,4}-[0-9] LOGIN ann secret\nS: {T} OK in\n"
                        "C: {T} SELECT InBox\nS: * 3 EXISTS\nS: {T} OK [READ-WRITE] selected\n";
constexpr char Bye[] = "C: {T} EXPUNGE\nS: {T} OK\nC: {T} LOGOUT\nS: * BYE\nS: {T} OK\n";
constexpr char Done[] = "S: {T} OK done\n";

struct ImapTest : HostTest {
    bool IsManual = false;
    std::string Buffer = std::string(130, '#'); // the host's; '#': nobody has written there

    // A fresh library with peers for its channels, not connected.
    void Begin(const std::string& script, const PeerMode& mode = {}, uint32_t channels = 1)
    {
        Renew();
        HostAttach(channels);
        IsManual = false;
        Buffer.assign(130, '#');
        for (uint32_t channel = 0; channel < channels; ++channel)
            HostSet(channel, RYN_IMAP_PORT, ImapPort);
        // Each attach lengthens the waits.
        HostSet(0, RYN_REPLY_TIMEOUT, 30000);
        PeerScript(ImapPort, script, mode);
    }

    int32_t Login(uint32_t channel = 0)
    {
        return Ended(rynImapConnect(channel, "server.test", "ann", "secret"), channel);
    }

    // Connected; way as in WireTest::Begin.
    void Start(const std::string& script, const char* way = "whole")
    {
        Begin(Open + script, { .ByteByByte = *way == 'b' });
        IsManual = *way == 'm';
        HostSet(0, RYN_AUTO_CALL_DRIVER, IsManual ? 0 : 1);
        ASSERT_EQ(Login(), 0);
        EXPECT_EQ(rynGetEmailCount(0), 3);
    }

    int32_t Ended(int32_t result, uint32_t channel = 0)
    {
        return HostFinish(channel, result, IsManual);
    }

    int32_t Search(const char* criteria = "ALL", int32_t size = 128)
    {
        return rynImapSearch(0, criteria, Buffer.data(), size);
    }

    int32_t Fetch()
    {
        return rynGetEmailFile(0, 1, "mail", Folder.c_str(), Folder.c_str());
    }
};

} // namespace

// --- answers ---

TEST_F(ImapTest, PicksTheNumberOutOfTheAnswer)
{
    const auto flags = [] { return rynImapFlags(0, 1, RYN_FLAGS_READ, 63); };
    const auto size = [] { return rynGetEmailSize(0, 2); };
    const auto uid = [this] { return rynGetEmailUID(0, 2, Buffer.data(), 128); };
    const auto search = [this] { return Search(); };
    const auto select = [] { return rynImapSelectMB(0, "box"); };
    const auto remove = [] { return rynDeleteEmail(0, 3); };
    const auto command = [] { return rynCommand(0, "NOOP"); };
    const std::string getFlags = "FETCH 1 FLAGS", getSize = "FETCH 2 RFC822.SIZE",
                      getUid = "FETCH 2 UID", store = "STORE 3 +FLAGS (\\Deleted)";
    const std::string x40(40, 'x');
    constexpr int32_t bad = RYN_ERR_IMAP_REPLY;
    const struct {
        std::function<int32_t()> Ask;
        std::string Command, Answer; // '|' between lines
        int32_t Result;
        const char* Text = ""; // in the host's buffer
        int32_t Code = 100, Validity = -1;
    } rows[] = {
        { flags, getFlags, "* 1 FETCH (FLAGS (\\Seen \\Deleted))|{T} OK", 9 },
        { flags, getFlags, "* 1 FETCH (FLAGS (\\answered \\DRAFT \\Recent))|{T} OK", 50 },
        { flags, getFlags, "* 1 FETCH (FLAGS (\\Flagged X {6}|* a b)|)|{T} OK", 4 },
        { flags, getFlags, ")|* 9 EXISTS|)|* 1 flags (\\Seen)|* OK [ALERT] x|)|{T} OK", 1 },
        { flags, getFlags, "* 1 FLAGS (\\Seen)|* 1 FETCH (FLAGS ())|{T} OK", 0 },
        { flags, getFlags, "* 1 FETCH (\\Seen)|{T} OK", 0 },
        { flags, getFlags, "* 1 FETCH (FLAGS (\\Seen))|{T} NO", bad, "", 500 },
        { flags, getFlags, "{T} BAD x", bad, "", 500 },
        { flags, getFlags, "{T} ok", bad, "", 500 },
        { flags, getFlags, "{T}  OK", bad, "", 500 },
        { flags, getFlags, "{T}", bad, "", 500 },
        { flags, getFlags, "", bad, "", 500 },
        { flags, getFlags, "+ Ready", bad, "", 500 },
        { flags, getFlags, "*2 FETCH FLAGS \\Seen|ryn OK", 1 },
        { flags, getFlags, "* 1 FLAGS \\Seen|" + x40 + " +OKAY", 1 },
        { flags, getFlags, "* OK [UIDVALIDITY 77]|{T} OK", 0, "", 100, 77 },
        { size, getSize, "* 2 FETCH (RFC822.SIZE 4711)|{T} OK", 4711, "", 100, 77 },
        { size, getSize, "* 2 fetch (rfc822.size x7)|{T} OK", 7, "", 100, 77 },
        { size, getSize, "* 2 FETCH (RFC822.SIZE )|)|{T} OK", 0, "", 100, 77 },
        { size, getSize, "* 1 RFC822.SIZE 5|* 2 RFC822.SIZE 6|{T} OK", 6, "", 100, 77 },
        { size, getSize, "* RFC822.SIZE 12345678901|{T} OK", 1234567890, "", 100, 77 },
        { size, getSize, "* RFC822.SIZE 2147483648|{T} OK", 0, "", 100, 77 },
        { size, getSize, "* RFC822.SIZE 5|{T} NO", 0, "", 500, 77 },
        { uid, getUid, "* OK [UIDNEXT 5]|* 2 FETCH (UID 42)|{T} OK", 4, "42\r\n", 100, 77 },
        { uid, getUid, "* 2 FETCH (UID 7)|)|* OK [UIDNEXT 5]|{T} OK", 3, "5\r\n", 100, 77 },
        { uid, getUid, "{T} OK", 3, "0\r\n", 100, 77 },
        { uid, getUid, "* 2 FETCH (UID 7)|{T} NO", 0, "", 500, 77 },
        { select, "SELECT box", "* 23 EXISTS|* OK [UIDVALIDITY 385752] ok|* 5 RECENT|{T} OK", 23,
          "", 100, 385752 },
        { select, "SELECT box", "* 8 existsx|* x 9 EXISTS|*  9 EXISTS|{T} OK", 8 },
        { select, "SELECT box", "* 6 EXISTS|{T} NO [READ-ONLY]", 0, "", 500 },
        { select, "SELECT box", "* 5|* OK [UIDVALIDITY 2147483648]|)|{T} OK", 0 },
        { search, "SEARCH ALL", "* SEARCH 2 84 882|)|{T} OK", 0, "SEARCH 2 84 882" },
        { search, "SEARCH ALL", "* SEARCH 1|* 4 EXISTS|* search 5 |{T} OK", 0, "search 5 " },
        { search, "SEARCH ALL", "{T} OK", 0, "" },
        { search, "SEARCH ALL", "{T} NO", bad, "", 500 },
        { remove, store, "* 3 FETCH (FLAGS (\\Deleted))|)|{T} OK", 0 },
        { remove, store, "* 1 EXPUNGE|{T} NO", 0 },
        { command, "NOOP", "* 4 EXISTS|)|* OK x|{T} BAD", 0 },
        { command, "NOOP", "+ go on", 0 },
    };
    for (const char* way : { "whole", "byte by byte", "manual" }) {
        SCOPED_TRACE(way);
        std::string script;
        for (const auto& row : rows) {
            script += "C: {T} " + row.Command + "\nS: ";
            for (const char c : row.Answer)
                script += c == '|' ? "\nS: " : std::string(1, c);
            script += "\n";
        }
        Start(script + Bye, way);
        for (const auto& row : rows) {
            SCOPED_TRACE(&row - rows);
            Buffer.assign(130, '#');
            const bool isCount = row.Command == "SELECT box", isSize = row.Command == getSize;
            // This operation hides its failures, but not from who drives by hand.
            const bool isHidden = row.Command == getUid && row.Code == 500 && IsManual;
            const int32_t told = IsManual || isCount ? std::min(row.Result, 0) : row.Result;
            EXPECT_EQ(Ended(row.Ask()), isHidden ? bad : told);
            EXPECT_EQ(isCount ? rynGetEmailCount(0) : 0, isCount ? row.Result : 0);
            EXPECT_EQ(isSize ? rynStatistics(0, RYN_STAT_MESSAGE_SIZE) : 0,
                      isSize ? row.Result : 0);
            if (row.Command == getUid || row.Command == "SEARCH ALL") {
                EXPECT_STREQ(Buffer.c_str(), row.Text);
            }
            EXPECT_EQ(rynStatistics(0, RYN_STAT_REPLY_CODE), row.Code);
            EXPECT_EQ(rynStatistics(0, RYN_STAT_UID_VALIDITY), row.Validity);
        }
        EXPECT_EQ(Ended(rynClose(0)), 0);
    }
}

TEST_F(ImapTest, WalksWhatASearchHasFound)
{
    const std::string untouched = Buffer;
    const struct {
        std::string Answer;
        int32_t Size;
        const char* Stored;
        std::vector<int32_t> Numbers;
    } rows[] = {
        { "* SEARCH 2 84 882", 128, "SEARCH 2 84 882", { 2, 84, 882 } },
        { "* SEARCH 2 84 882", 16, "SEARCH 2 84 882", { 2, 84, 882 } },
        { "* SEARCH 2 84 882", 15, "SEARCH 2 84 88", { 2, 84, 88 } },
        { "* SEARCH 2 84 882", 1, "", {} },
        { "* SEARCH 1 2147483647 ", 128, "SEARCH 1 2147483647 ", { 1, 2147483647 } },
        { "* SEARCH", 128, "SEARCH", {} },
        { "* SEARCH 7", 0, untouched.c_str(), {} },
        { "* SEARCH 7", -1, untouched.c_str(), {} },
    };
    for (const char* way : { "whole", "manual" }) {
        for (const auto& row : rows) {
            SCOPED_TRACE(std::string(way) + row.Answer + std::to_string(row.Size));
            const std::string script = "C: {T} SEARCH FROM \"x\" UNSEEN\nS: " + row.Answer + "\n";
            Start(Repeat(script + Done, 2) + Bye, way);
            EXPECT_EQ(rynImapMsgNumber(0, RYN_SEARCH_NEXT), 0);
            EXPECT_EQ(Ended(Search("FROM \"x\" UNSEEN", row.Size)), 0);
            const int32_t begun = Search("FROM \"x\" UNSEEN", row.Size);
            if (IsManual) { // the old result is gone, and nothing has been found yet
                EXPECT_EQ(rynImapMsgNumber(0, RYN_SEARCH_COUNT), 0);
            }
            EXPECT_EQ(Ended(begun), 0);
            EXPECT_STREQ(Buffer.c_str(), row.Stored);
            EXPECT_EQ(Buffer[static_cast<size_t>(std::max(row.Size, 0))], '#');
            const auto found = static_cast<int32_t>(row.Numbers.size());
            for (const int32_t first : { RYN_SEARCH_NEXT, RYN_SEARCH_FIRST, RYN_SEARCH_FIRST }) {
                for (size_t i = 0; i <= row.Numbers.size(); i++) {
                    EXPECT_EQ(rynImapMsgNumber(0, RYN_SEARCH_COUNT), found);
                    EXPECT_EQ(rynImapMsgNumber(0, i == 0 ? first : RYN_SEARCH_NEXT),
                              i < row.Numbers.size() ? row.Numbers[i] : 0);
                }
                EXPECT_EQ(rynImapMsgNumber(0, RYN_SEARCH_NEXT), 0);
            }
            for (const int32_t mode : { 0, 4, -1 })
                EXPECT_EQ(rynImapMsgNumber(0, mode), *row.Stored == 'S' ? -1 : 0);
            EXPECT_EQ(Ended(rynClose(0)), 0);
        }
    }
}

// --- commands ---

TEST_F(ImapTest, SendsCommandsExactly)
{
    const std::string n40(40, 'n');
    const auto flags = [](int32_t operation, int32_t bits) {
        return [=] { return rynImapFlags(0, 12, operation, bits); };
    };
    const std::string all = "FLAGS (\\Seen \\Answered \\Flagged \\Deleted \\Draft)";
    const std::string told = "S: * 12 FETCH (FLAGS (\\Seen \\Deleted \\Recent))\n";
    const struct {
        std::function<int32_t()> Do;
        std::string Command, Told;
        int32_t Result;
    } rows[] = {
        { flags(2, 8), "STORE 12 +FLAGS (\\Deleted)", told, 8 },
        { flags(2, 31), "STORE 12 +" + all, told, 9 },
        { flags(2, 255), "STORE 12 +" + all, told, 41 },
        { flags(3, 20), "STORE 12 -FLAGS (\\Flagged \\Draft)", told, 0 },
        { flags(3, 33), "STORE 12 -FLAGS (\\Seen)", "", 0 },
        { flags(2, 32), "", "", 0 },
        { flags(3, 0x700), "", "", 0 },
        { flags(4, 8), "", "", RYN_ERR_IMAP_FLAG },
        { flags(0, 8), "", "", RYN_ERR_IMAP_FLAG },
        { [&] { return rynCommand(0, n40.c_str()); }, n40.substr(0, 32), "", 0 },
        { [&] { return rynImapCreateMB(0, n40.c_str()); }, "CREATE " + n40.substr(0, 25), "", 0 },
        { [&] { return rynImapDeleteMB(0, "a b\"c"); }, "DELETE a b\"c", "", 0 },
        { [&] { return rynImapRenameMB(0, "old", n40.c_str()); }, "RENAME old " + n40.substr(0, 21),
          "", 0 },
        { [&] { return rynImapCopyMBmail(0, -7, "box"); }, "COPY -7 box", "", 0 },
        { [&] { return rynImapSelectMB(0, n40.c_str()); }, "SELECT " + n40.substr(0, 32), "", 0 },
        { [&] { return rynImapListMB(0, Buffer.data(), 40); }, "LIST \"\" \"*\"", "S: * LIST x\n",
          0 },
        { [&] {
             HostSetText(0, RYN_LIST_ARGUMENTS, "a 34567890123456");
             return rynImapListMB(0, Buffer.data(), 9);
         },
          "LIST a 34567890123456", "S: * LIST x\n", 0 },
    };
    std::string script;
    for (const auto& row : rows)
        script += row.Command.empty() ? "" : "C: {T} " + row.Command + "\n" + row.Told + Done;
    Start(script + "C: {T} LOGOUT\n" + Done);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Command);
        Buffer.assign(130, '#');
        EXPECT_EQ(row.Do(), row.Result);
        if (row.Command == "LIST \"\" \"*\"") {
            EXPECT_STREQ(Buffer.c_str(), "* LIST x\r\nRYN577-0 OK done\r\n");
        } else if (row.Command[0] == 'L') {
            EXPECT_EQ(Buffer.substr(0, 12), "* LIST x\r" + std::string(1, 0) + "##");
        }
    }
    HostSet(0, RYN_EXPUNGE_ON_CLOSE, 0);
    EXPECT_EQ(rynClose(0), 0);
    HostSetText(0, RYN_LIST_ARGUMENTS, "\"\" \"*\"");
}

TEST_F(ImapTest, RefusesWrongArguments)
{
    constexpr int32_t only = RYN_ERR_IMAP_ONLY, null = RYN_ERR_NULL_POINTER;
    char* const at = Buffer.data();
    constexpr auto none = nullptr;
    const struct {
        std::function<int32_t(uint32_t)> Do;
        int32_t Pop3, Imap = 1; // outcomes; 1: the same
    } rows[] = {
        { [](auto c) { return rynImapFlags(c, 0, 1, 1); }, only, RYN_ERR_NO_SUCH_MESSAGE },
        { [](auto c) { return rynImapFlags(c, -1, 9, 1); }, only, RYN_ERR_NO_SUCH_MESSAGE },
        { [](auto c) { return rynImapFlags(c, 1, 4, 1); }, only, RYN_ERR_IMAP_FLAG },
        { [&](auto c) { return rynImapSearch(c, none, at, 9); }, only, null },
        { [](auto c) { return rynImapSearch(c, "ALL", none, 9); }, only, RYN_ERR_NULL_BUFFER },
        { [](auto c) { return rynImapMsgNumber(c, 9); }, only, 0 },
        { [](auto c) { return rynImapSelectMB(c, none); }, only, null },
        { [](auto c) { return rynImapDeleteMB(c, none); }, null },
        { [](auto c) { return rynImapCreateMB(c, none); }, null },
        { [](auto c) { return rynImapRenameMB(c, none, "b"); }, null },
        { [](auto c) { return rynImapRenameMB(c, "a", none); }, null },
        { [](auto c) { return rynImapCopyMBmail(c, 1, none); }, null },
        { [](auto c) { return rynImapListMB(c, none, 9); }, RYN_ERR_NULL_BUFFER },
        { [](auto c) { return rynImapConnect(c, none, "u", "p"); }, RYN_ERR_NO_SERVER },
        { [](auto c) { return rynImapConnect(c, "s", none, "p"); }, RYN_ERR_NO_USER },
        { [](auto c) { return rynImapConnect(c, "s", "u", none); }, RYN_ERR_NO_PASSWORD },
        { [](auto c) { return rynImapConnect(c, "u@s", "u", "p"); }, RYN_ERR_BAD_SERVER_NAME },
        { [](auto c) { return rynImapConnectSSL(c, 1, 2, "s", none, "p", none); },
          RYN_ERR_NO_USER },
        { [](auto c) { return rynImapConnectSSL(c, 1, 0, "s", "u", none, none); },
          RYN_ERR_NO_PASSWORD },
        { [](auto c) { return rynImapConnectSSL(c, 1, 2, "s", "u", "p", none); },
          RYN_ERR_PROXY_NOT_CONFIGURED },
        { [](auto c) { return rynImapSource(c, "no such file"); }, RYN_ERR_NO_SUCH_FILE },
    };
    WriteWholeFile(Path("mail"), "\r\n");
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        EXPECT_EQ(row.Do(0), RYN_ERR_NOT_ATTACHED);
        HostAttach(2);
        EXPECT_EQ(row.Do(2), RYN_ERR_CHANNEL_RANGE);
        EXPECT_EQ(rynPop3Source(0, Path("mail").c_str()), 1);
        EXPECT_EQ(rynImapSource(1, Path("mail").c_str()), 1);
        EXPECT_EQ(row.Do(0), row.Pop3);
        EXPECT_EQ(row.Do(1), row.Imap == 1 ? row.Pop3 : row.Imap);
        rynRelease();
    }
    EXPECT_EQ(Buffer, std::string(130, '#'));
}

// --- messages ---

TEST_F(ImapTest, EndsAMessageAtTheTag)
{
    const std::string x8191(8191, 'x');
    const struct {
        const char* Name;
        std::string Lines, File, Raw; // Raw: where it differs from the file
    } rows[] = {
        { "text", "Subject: s\r\n\r\n.a\r\n..b\r\n)\r\n", "Subject: s\r\n\r\n.a\r\n..b\r\n", "" },
        { "a head alone", "Subject: s\r\n)\r\n", "Subject: s\r\n", "" },
        { "a fold before the end", "To: a,\r\n b\r\n)\r\n", "To: a,\r\n b\r\n", "" },
        { "no bracket", "Subject: s\r\n", "Subject: s\r\n", "" },
        { "brackets", "\r\n)\r\n) \r\na)\r\n)\r\n", "\r\n) \r\na)\r\n", "" },
        { "a bracket as a later piece", "\r\n" + x8191 + ")\r\n)\r\n", "\r\n" + x8191 + ")\r\n",
          "" },
        { "a tag as a later piece", "\r\n" + x8191 + "RYN577-0 OK\r\n)\r\n", "\r\n" + x8191,
          "\r\n" + x8191 + "RYN577-0 OK\r\n" },
        { "no tags", "\r\n RYN577-0 OK\r\nRYN577-0 O\r\nRYN577-1 OK\r\nRYN577-0 NO\r\n",
          "\r\n RYN577-0 OK\r\nRYN577-0 O\r\nRYN577-1 OK\r\nRYN577-0 NO\r\n", "" },
        { "dots", "\r\n.\r\na\r\n.\r\n)\r\n", "\r\n.\r\na\r\n.\r\n", "" },
        { "a tag in the text", "\r\na\r\nryn577-0 okay\r\nb\r\n)\r\n", "\r\na\r\n", "" },
    };
    for (const char* way : { "whole", "byte by byte", "manual" }) {
        for (const auto& row : rows) {
            SCOPED_TRACE(std::string(way) + ", " + row.Name);
            // Drips: a long line comes in other pieces, and nothing stands behind the tag yet.
            if (*way == 'b' && (row.Lines.size() > 8000 || &row + 1 == std::end(rows)))
                continue;
            const std::string answer = "C: {T} FETCH 1 RFC822\nS: * 1 FETCH (RFC822 {9}\nS- " +
                                       PeerEscape(row.Lines) + "ryn577-0 Ok done\\r\\n\n";
            const std::string raw = row.Raw.empty() ? row.File : row.Raw;
            Start(Repeat(answer, 3) + Bye, way);
            HostSet(0, RYN_RAW_PREFIX, '_');
            EXPECT_EQ(Ended(Fetch()), 0);
            EXPECT_EQ(ReadWholeFile(Path("mail")), row.File);
            EXPECT_EQ(ReadWholeFile(Path("_mail")), raw);
            HostSet(0, RYN_DECODE_MODE, 1);
            HostSet(0, RYN_RAW_PREFIX, '+');
            EXPECT_EQ(Ended(Fetch()), 0);
            EXPECT_EQ(ReadWholeFile(Path("mail")), "");
            EXPECT_EQ(ReadWholeFile(Path("+mail")), raw);
            Buffer.assign(9002, '#');
            const std::string all = "* 1 FETCH (RFC822 {9}\r\n" + raw;
            const int32_t count = Ended(rynGetEmailLines(0, 1, 0, Buffer.data(), 9000));
            EXPECT_EQ(count, IsManual ? 0 : static_cast<int32_t>(all.size()));
            EXPECT_EQ(rynStatistics(0, RYN_STAT_BUFFER_USED), static_cast<int32_t>(all.size()));
            EXPECT_EQ(Buffer, all + std::string(9002 - all.size(), '#'));
            EXPECT_EQ(Ended(rynClose(0)), 0);
        }
    }
}

TEST_F(ImapTest, AsksForPartsWhereTheHostWantsThem)
{
    for (const int32_t code : { RYN_IMAP_PARTIAL, RYN_IMAP_PARTIAL_ALIAS }) {
        const std::string ask = "C: {T} PARTIAL 2 RFC822.HEADER RFC822.TEXT 1 20\n";
        Start(ask + "S: * 2 FETCH (X {3}\nS: a\nS: )\nS: {T} OK\n" + ask + "S: {T} NO\n" +
              "C: {T} FETCH 1 RFC822\nS: {T} NO\n" + Bye);
        HostSet(0, code, 1);
        EXPECT_EQ(rynGetEmailLines(0, 2, 20, Buffer.data(), 128), 21);
        EXPECT_EQ(Buffer.substr(0, 23), "* 2 FETCH (X {3}\r\na\r\n##");
        EXPECT_EQ(rynGetEmailLines(0, 2, 20, Buffer.data(), 128), 0);
        EXPECT_EQ(Fetch(), 0); // a refusal ends a message, too
        EXPECT_EQ(ReadWholeFile(Path("mail")), "");
        EXPECT_EQ(rynClose(0), 0);
        HostSet(0, code, 0);
    }
}

// --- servers that do not do their part ---

TEST_F(ImapTest, TimesOutOnSilenceAndOnTalkWithoutEnd)
{
    const auto flags = [] { return rynImapFlags(0, 1, 1, 63); };
    const struct {
        std::function<int32_t()> Do;
        const char* Answer;
        int32_t Result;
        bool IsUid = false; // which hides its failures but in manual driving
    } rows[] = {
        { flags, "! silence", RYN_ERR_TIMED_OUT },
        { flags, "S: * 1 FETCH (FLAGS (\\Seen))\n! silence", RYN_ERR_TIMED_OUT },
        { flags, "! flood * FLAGS\\r\\n 0", RYN_ERR_TIMED_OUT },
        { flags, "! flood )\\r\\n 0", RYN_ERR_TIMED_OUT },
        { [] { return rynGetEmailSize(0, 1); }, "! silence", RYN_ERR_TIMED_OUT },
        { [] { return rynGetEmailSize(0, 1); }, "S: * x\n! silence", 0 },
        { [this] { return rynGetEmailUID(0, 1, Buffer.data(), 128); }, "S: * x\n! silence", 0,
          true },
        { [this] { return Search(); }, "S: * SEARCH 1\n! silence", RYN_ERR_TIMED_OUT },
        { [] { return rynImapSelectMB(0, "b"); }, "! silence", RYN_ERR_TIMED_OUT },
        { [] { return rynImapSelectMB(0, "b"); }, "S: * 5 EXISTS\n! silence", 0 },
        { [] { return rynCommand(0, "NOOP"); }, "! flood * x\\r\\n 0", RYN_ERR_TIMED_OUT },
        { [this] { return Fetch(); }, "S: * 1 FETCH (X {9}\n! silence", RYN_ERR_TIMED_OUT },
        { [this] { return Fetch(); }, "S: {T} NO\n! silence", RYN_ERR_TIMED_OUT },
        { [] { return rynDeleteEmail(0, 1); }, "! silence", RYN_ERR_TIMED_OUT },
        { [] { return rynClose(0); }, "! silence", RYN_ERR_TIMED_OUT },
        { [] { return rynClose(0); }, "! flood * x\\r\\n 0", RYN_ERR_TIMED_OUT },
    };
    for (const bool isManual : { false, true }) {
        for (const auto& row : rows) {
            SCOPED_TRACE(std::to_string(&row - rows) + row.Answer);
            Begin(Open + std::string("C~ .*\n") + row.Answer,
                  { .ByteByByte = true, .MayEndEarly = true });
            IsManual = isManual;
            HostSet(0, RYN_AUTO_CALL_DRIVER, isManual ? 0 : 1);
            ASSERT_EQ(Login(), 0);
            const uint64_t before = VirtualClockSpent();
            const int32_t result = Ended(row.Do());
            EXPECT_EQ(result, isManual && row.IsUid ? RYN_ERR_TIMED_OUT : row.Result);
            EXPECT_LT(VirtualClockSpent() - before, 65000U);
            if (isManual) {
                EXPECT_EQ(rynDriver(0), 0);
            }
            EXPECT_EQ(rynAbort(0), 1);
        }
    }
    for (const char* greeting :
         { "! silence", "S: * BYE\n", "S: * PREAUTH\n", "S: NO\n", "S: * OK\nC~ .*\nS: {T} NO\n",
           "S: * OK\nC~ .*\n! silence", "S: * OK\nC~ .*\n! flood * x\\r\\n 0" }) {
        SCOPED_TRACE(greeting);
        Begin(greeting, { .ByteByByte = true, .MayEndEarly = true });
        const bool isSilent = strchr(greeting, '!') != nullptr;
        EXPECT_EQ(Login(), isSilent ? RYN_ERR_TIMED_OUT : RYN_ERR_IMAP_REPLY);
        EXPECT_EQ(VirtualOpenSockets(), 0);
    }
}

TEST_F(ImapTest, KeepsWhatFollowsASilentFetchOutOfItsRawCopy)
{
    const struct {
        std::function<int32_t()> Do;
        const char* Command;
    } rows[] = {
        { [] { return rynImapFlags(0, 1, RYN_FLAGS_READ, 63); }, "FETCH 1 FLAGS" },
        { [] { return rynImapFlags(0, 1, RYN_FLAGS_ADD, 8); }, "STORE 1 +FLAGS (\\Deleted)" },
        { [this] { return Search(); }, "SEARCH ALL" },
        { [] { return rynImapSelectMB(0, "box"); }, "SELECT box" },
        { [] { return std::min(rynGetEmailSize(0, 1), 0); }, "FETCH 1 RFC822.SIZE" },
        { [] { return rynImapCreateMB(0, "box"); }, "CREATE box" },
    };
    for (const char* way : { "whole", "manual" }) {
        for (const auto& row : rows) {
            SCOPED_TRACE(std::string(row.Command) + " " + way);
            Start("C: {T} FETCH 1 RFC822\nS: * 1 FETCH (RFC822 {99}\nS: Subject: s\nC: {T} " +
                      std::string(row.Command) + "\nS: * 1 strange\nS: {T} OK\n" + Bye,
                  way);
            HostSet(0, RYN_RAW_PREFIX, '$');
            EXPECT_EQ(Ended(Fetch()), RYN_ERR_TIMED_OUT);
            EXPECT_EQ(Ended(row.Do()), 0);
            EXPECT_EQ(Ended(rynClose(0)), 0);
            EXPECT_EQ(ReadWholeFile(Path("$mail")), "Subject: s\r\n");
        }
    }
}

// Wherever the connection breaks off, each operation ends with what it had or with a status.
TEST_F(ImapTest, OutlivesACutAnywhere)
{
    const std::string script =
        Open +
        std::string("C: {T} FETCH 1 FLAGS\nS: * 1 FETCH (FLAGS (\\Seen))\nS: {T} OK\n"
                    "C: {T} SEARCH ALL\nS: * SEARCH 2 84\nS: {T} OK\n"
                    "C: {T} FETCH 1 RFC822\nS: * 1 FETCH (RFC822 {9}\nS: Subject: s\nS:\n"
                    "S: body\nS: )\nS: {T} OK\n") +
        Bye;
    Begin(script);
    const auto play = [this] {
        return std::vector<int32_t>{ Login(), rynImapFlags(0, 1, 1, 63), Search(), Fetch(),
                                     rynClose(0) };
    };
    EXPECT_EQ(play(), (std::vector<int32_t>{ 0, 1, 0, 0, 0 }));
    const auto length = static_cast<int64_t>(PeerSent(0).size());
    const std::string whole = Buffer.c_str(), file = ReadWholeFile(Path("mail"));
    EXPECT_EQ(whole + file, "SEARCH 2 84Subject: s\r\n\r\nbody\r\n");
    for (const PeerCut cut : { PEER_CUT_CLOSE, PEER_CUT_RESET, PEER_CUT_SILENCE }) {
        for (int64_t at = 0; at < length; at++) {
            SCOPED_TRACE(std::to_string(cut) + " at " + std::to_string(at));
            Begin(script, { .CutAt = at, .Cut = cut, .MayEndEarly = true });
            WriteWholeFile(Path("mail"), "");
            const std::vector<int32_t> results = play();
            const std::string found = Buffer.c_str(), saved = ReadWholeFile(Path("mail"));
            EXPECT_TRUE(found[0] == '#' || whole.starts_with(found)) << found;
            if (cut != PEER_CUT_SILENCE) { // else a line that has stopped half way counts as a line
                EXPECT_TRUE(file.starts_with(saved)) << saved;
            }
            for (const int32_t result : results)
                EXPECT_TRUE(result <= 0 || result == 1) << result;
            EXPECT_LT(VirtualClockSpent(), 5 * 65000U);
            EXPECT_EQ(VirtualOpenSockets(), 0);
        }
    }
}

TEST_F(ImapTest, KeepsLongAnswersAsFarAsTheyFit)
{
    const size_t rooms[] = { 65535, 2048 }; // of channels 0 and 1
    const std::string list = Repeat("* LIST () box\r\n", 5000);
    const std::string numbers = Repeat("7 ", 5000);
    const std::string script = "C: {T} LIST \"\" \"*\"\n! flood * LIST () box\\r\\n 5000\n" +
                               std::string(Done) + "C: {T} SEARCH ALL\nS: * SEARCH " + numbers +
                               "\n" + Done + Bye;
    for (const uint32_t channel : { 0u, 1u }) {
        SCOPED_TRACE(channel);
        Begin(Open + script, {}, 2);
        ASSERT_EQ(Login(channel), 0);
        Buffer.assign(80002, '#');
        EXPECT_EQ(rynImapListMB(channel, Buffer.data(), 80000), 0);
        EXPECT_EQ(std::string(Buffer.c_str()), list.substr(0, rooms[channel]));
        EXPECT_EQ(rynImapSearch(channel, "ALL", Buffer.data(), 80000), 0);
        EXPECT_EQ(std::string(Buffer.c_str()), "SEARCH " + numbers);
        EXPECT_EQ(rynImapMsgNumber(channel, RYN_SEARCH_COUNT), 5000);
        EXPECT_EQ(rynClose(channel), 0);
    }
}

// --- the log ---

TEST_F(ImapTest, TellsASessionInTheLog)
{
    HostAttach();
    HostSet(0, RYN_IMAP_PORT, ImapPort);
    PeerScript(ImapPort, std::string("S: * OK <1@x> ready\nC: RYN577-0 LOGIN ann secret word\n"
                                     "S: {T} OK in\nC: {T} SELECT InBox\nS: {T} NO no\n"
                                     "C: {T} FETCH 1 FLAGS\nS: * 1 FLAGS \\Seen\nS: {T} OK\n"
                                     "C: {T} LIST \"\" \"*\"\nS: {T} BAD x\n") +
                             Bye);
    EXPECT_GT(HostSetText(0, RYN_LOG_FILE, Path("log")), 0);
    EXPECT_EQ(rynImapConnect(0, "server.test", "ann", "secret word"), 0);
    HostSet(0, RYN_IMAP_TRACE, 1);
    EXPECT_EQ(rynImapFlags(0, 1, RYN_FLAGS_READ, 63), 1);
    const uint64_t before = VirtualClockSpent();
    EXPECT_EQ(rynImapListMB(0, Buffer.data(), 128), 0);
    EXPECT_GE(VirtualClockSpent() - before, 225U); // the gap, PollDelay, and 100 ms
    HostSet(0, RYN_IMAP_TRACE, 2);
    EXPECT_EQ(rynClose(0), 0);
    const std::string log = HostLog(Path("log"));
    EXPECT_NE(log.find("\r\n*** rynImapConnect\r\n<400:#>\r\n<101:#>\r\n"), std::string::npos);
    const char told[] =
        "<401:#>\r\nIMAP greeting seen\r\nrecv(0)=18\r\nR: * OK <1@x> ready\r\n"
        "<403:#>\r\nS: RYN577-0 LOGIN ***************\r\n"
        "<404:#>\r\nrecv(0)=16\r\nR: RYN577-0 OK in\r\n"
        "<407:#>\r\nS: RYN577-0 SELECT InBox\r\n"
        "<408:#>\r\nrecv(0)=16\r\nR: RYN577-0 NO no\r\n"
        "Bad server response (Tag 'RYN577-0', Type 'V')\r\n(-78 files exists)\n"
        "*** rynIntegerParam(0,1006,1)\r\n*** rynImapFlags\r\n"
        "<411:#>\r\nS: RYN577-0 FETCH 1 FLAGS\r\n"
        "<412:#>\r\nImapResponse(*,F,'(null)')\r\nrecv(0)=30\r\nR: * 1 FLAGS \\Seen\r\n"
        "-- Bytes=0, n=17\r\n-- Tag='*' Type='F' More=''\r\nR: RYN577-0 OK\r\n"
        "-- Bytes=17, n=13\r\n-- Tag='RYN577-0' Type='F' More=''\r\nFlags=1\r\n"
        "*** rynImapListMB\r\n*** rynCommand(0,'LIST \"\" \"*\"') I \r\n"
        "<498:#>\r\nS: RYN577-0 LIST \"\" \"*\"\r\n"
        "<499:#>\r\nImapResponse(*,n,'(null)')\r\nrecv(0)=16\r\nR: RYN577-0 BAD x\r\n"
        "-- Bytes=0, n=16\r\n-- Tag='RYN577-0' Type='n' More=''\r\n"
        "rynCommand(0,'LIST \"\" \"*\"') returns 0 (Sleep 100)\r\n*** rynDebug\r\n"
        "*** rynIntegerParam(0,1006,2)\r\n*** rynClose(0)\r\n[Closing attachment]\r\n"
        "ExpungeOnClose=1\r\n<409:#>\r\nS: RYN577-0 EXPUNGE\r\n"
        "<410:#>\r\nrecv(0)=13\r\nR: RYN577-0 OK\r\n<258:#>\r\nS: RYN577-0 LOGOUT\r\n"
        "<259:#>\r\nrecv(0)=20\r\nR: * BYE\r\nR: RYN577-0 OK\r\nvSocket: 0 closed\r\n";
    EXPECT_EQ(log.substr(std::min(log.find("<401:"), log.size())), told);
}

TEST_F(ImapTest, TagsWithTheTickOfTheConnect)
{
    const struct {
        uint32_t Ahead; // ms before the connect
        const char* Tag;
    } rows[] = { { 1, "RYN578-1" }, { 7614, "RYN8191-1" }, { 7615, "RYN0-1" } };
    for (const auto& row : rows) {
        Begin("S: * OK\nC: " + std::string(row.Tag) + " LOGIN ann secret\nS: {T} NO\n", {}, 2);
        VirtualClockAdvance(row.Ahead);
        EXPECT_EQ(Login(1), RYN_ERR_IMAP_REPLY);
    }
}
