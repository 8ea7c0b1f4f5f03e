// What rynStatistics and rynDebug answer, code by code.
#include "codec/text.h"
#include "frame/channel.h"
#include "frame/memory.h"
#include "frame/settings.h"
#include "tests/codec/guarded.h"
#include "tests/support/host.h"
#include "transport/vfile.h"
#include "transport/vsock.h"

#include <cstring>
#include <set>

using std::string;

struct QueryTest : HostTest {};

TEST_F(QueryTest, StatisticsReadTheFieldsOfTheirChannel)
{
    ASSERT_EQ(rynAttach(2), 999);
    Channel& ch = *ChannelTable[1];
    ch.DriverCalls = 102;
    ch.ReplyCode = 103;
    ch.LastSockCode = -10054;
    ch.MsgBytesRead = 0x7FFFFFF0;
    ch.AttachBytesRead = 111;
    ch.MsgBytesSent = 113;
    ch.AttachBytesSent = 114;
    ch.EmailCount = 117;
    ch.MessageSize = 118;
    ch.UserBufferUsed = 119;
    ch.AttachCount = 122;
    ch.VerifyResult = 124;
    ch.AcceptedRecipients = 130;
    ch.ImapUidValidity = -134;
    const struct {
        uint32_t Code;
        int32_t Answer;
    } rows[] = { { 2, 102 },     { 3, 103 },
                 { 4, -10054 },  { 10, 0x7FFFFFF0 },
                 { 11, 111 },    { 13, 113 },
                 { 14, 114 },    { 15, 227 },
                 { 16, 0x0841 }, { 17, 117 },
                 { 18, 118 },    { 19, 119 },
                 { 22, 122 },    { 24, 124 },
                 { 26, 7 },      { 27, -1 },
                 { 30, 130 },    { 34, -134 },
                 { 35, 0 },      { 1002, -1 },
                 { 1007, -1 },   { 12, static_cast<int32_t>(0x7FFFFFF0u + 111u) } };
    std::set<uint32_t> known = { 20 };
    for (const auto& row : rows) {
        EXPECT_EQ(rynStatistics(1, row.Code), row.Answer) << row.Code;
        known.insert(row.Code);
    }
    EXPECT_EQ(rynStatistics(0, RYN_STAT_REPLY_CODE), 0);
    for (uint32_t code = 0; code < 1100; ++code)
        if (known.count(code) == 0) {
            EXPECT_EQ(rynStatistics(1, code), -1) << code;
        }
    EXPECT_EQ(rynStatistics(1, 0xFFFFFFFF), -1);
}

TEST_F(QueryTest, CountersOfTheProcessNeedNoAttach)
{
    EXPECT_EQ(rynStatistics(0, RYN_STAT_BLOCKS_ALLOCATED), 0);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_BLOCKS_FREED), 0);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_BYTES_ALLOCATED), 0);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_LAST_FREED_SIZE), 0);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_NULL_SITE), 0);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_EMPTY_SITE), 0);
    EXPECT_EQ(rynStatistics(0, 1008), RYN_ERR_NOT_ATTACHED);
    EXPECT_EQ(rynStatistics(0, 2), RYN_ERR_NOT_ATTACHED);
    EXPECT_EQ(rynStatistics(1, 1002), RYN_ERR_NOT_ATTACHED);
    ASSERT_EQ(rynAttach(2), 999);
    rynRelease();
    const auto size = static_cast<int32_t>(sizeof(Channel)) + 3;
    EXPECT_EQ(rynStatistics(0, RYN_STAT_BLOCKS_ALLOCATED), 2);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_BLOCKS_FREED), 2);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_BYTES_ALLOCATED), 2 * size);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_LAST_FREED_SIZE), size);
}

TEST_F(QueryTest, SocketStateWithoutAConnection)
{
    ASSERT_EQ(rynAttach(1), 999);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_SOCKET_STATE), RYN_ERR_CONNECT_FAILED);
    ASSERT_EQ(rynSmtpTarget(0, Path("out").c_str(), "<a@b>", nullptr), 1);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_SOCKET_STATE), RYN_ERR_CONNECT_FAILED);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_VSOCK), ChannelTable[0]->VSock);
}

TEST_F(QueryTest, DebugStoresTheTextsOfItsChannel)
{
    ASSERT_EQ(rynAttach(2), 999);
    Channel& ch = *ChannelTable[1];
    const struct {
        int32_t Code;
        char* Field;
        const char* Text;
    } rows[] = { { RYN_DEBUG_LAST_REPLY, ch.LastReply, "reply" },
                 { RYN_DEBUG_ATTACH_LIST, ch.AttachList, "a.txt;b.txt" },
                 { RYN_DEBUG_LAST_RECIPIENT, ch.LastRecipient, "<a@b>" },
                 { RYN_DEBUG_AUTH_LINES, ch.AuthLines, "CRAM-MD5 PLAIN" },
                 { RYN_DEBUG_TYPE_LIST, ch.TypeList, "image/gif" },
                 { RYN_DEBUG_ID_LIST, ch.IdList, "<1@x>" } };
    for (const auto& row : rows)
        CopyText(row.Field, row.Text, 30);
    ASSERT_NE(AllocAndCopy(1, SLOT_EMAIL_LINES, "Subject: x\r\n"), nullptr);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Code);
        const auto length = static_cast<int32_t>(strlen(row.Text));
        for (const int32_t size : { length + 5, length, length - 1, 1, 0, -1 }) {
            const int32_t stored = std::max(0, std::min(length, size));
            Guarded buffer(static_cast<size_t>(std::max(size, -1) + 1));
            EXPECT_EQ(rynDebug(1, row.Code, buffer.Data(), size), stored) << size;
            if (size >= 0) {
                EXPECT_EQ(buffer.Text(), string(row.Text, static_cast<size_t>(stored)));
            }
            EXPECT_TRUE(buffer.UntouchedFrom(size < 0 ? 0 : static_cast<size_t>(stored) + 1));
        }
    }
    EXPECT_EQ(HostDebug(1, RYN_DEBUG_EMAIL_LINES), "Subject: x\r\n");
    char text[16];
    EXPECT_EQ(rynDebug(1, RYN_DEBUG_EMAIL_LINES, text, 7), 7);
    EXPECT_STREQ(text, "Subject");
    EXPECT_EQ(rynDebug(0, RYN_DEBUG_EMAIL_LINES, text, 7), RYN_ERR_NULL_POINTER);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_NULL_SITE), 102);
    EXPECT_STREQ(text, "");
}

TEST_F(QueryTest, LastReplyCountsWithoutItsLineEnd)
{
    ASSERT_EQ(rynAttach(1), 999);
    const struct {
        const char* Reply;
        int32_t Size, Result;
        const char* Text;
    } rows[] = { { "250 ok\r\n", 20, 6, "250 ok\r\n" },
                 { "250 ok\r\n", 8, 6, "250 ok\r\n" },
                 { "250 ok\r\n", 7, 7, "250 ok\r" },
                 { "250 ok\n", 20, 7, "250 ok\n" },
                 { "\r\n", 20, 0, "\r\n" },
                 { "\n", 20, 1, "\n" },
                 { "a\r\nb\r\n", 20, 4, "a\r\nb\r\n" },
                 { "", 20, 0, "" } };
    for (const auto& row : rows) {
        CopyField(ChannelTable[0]->LastReply, row.Reply);
        char text[32];
        EXPECT_EQ(rynDebug(0, RYN_DEBUG_LAST_REPLY, text, row.Size), row.Result) << row.Reply;
        EXPECT_STREQ(text, row.Text);
    }
}

TEST_F(QueryTest, DebugOfDatesErrorsAddressesAndUnknownCodes)
{
    ASSERT_EQ(rynAttach(1), 999);
    const string date = "Date: Tue, 17 Nov 2026 22:52:06 +0100";
    const string error = strerror(2);
    SetLastFileError(2);
    const struct {
        int32_t Code;
        string Text;
        bool CountsChars;
    } rows[] = { { RYN_DEBUG_DATE, date, false },
                 { RYN_DEBUG_WINDOWS_ERROR, error, true },
                 { 9999, "?", false },
                 { -1, "?", false } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Code);
        for (const int32_t size : { 60, 10, 1, 0, -1 }) {
            const string kept = row.Text.substr(0, static_cast<size_t>(std::max(size, 0)));
            Guarded buffer(static_cast<size_t>(std::max(size, -1) + 1));
            EXPECT_EQ(rynDebug(0, row.Code, buffer.Data(), size),
                      row.CountsChars ? static_cast<int32_t>(kept.size()) : 0);
            if (size >= 0) {
                EXPECT_EQ(buffer.Text(), kept);
            }
            EXPECT_TRUE(buffer.MarginsWhole());
        }
    }
    for (const int32_t code : { RYN_DEBUG_SERVER_ADDRESS, RYN_DEBUG_LOCAL_ADDRESS }) {
        char text[20] = "x";
        EXPECT_EQ(rynDebug(0, code, text, 19), RYN_ERR_NO_SUCH_VSOCK) << code;
        EXPECT_STREQ(text, "");
    }
    EXPECT_EQ(rynDebug(0, RYN_DEBUG_DATE, nullptr, 9), 0);
    rynRelease();
    EXPECT_EQ(rynDebug(0, RYN_DEBUG_DATE, nullptr, 9), 0);
    char text[4] = "x";
    EXPECT_EQ(rynDebug(0, RYN_DEBUG_DATE, text, 3), RYN_ERR_NOT_ATTACHED);
    EXPECT_STREQ(text, "");
}
