// What rynStatistics and rynDebug answer, code by code.
#include "codec/text.h"
#include "frame/channel.h"
#include "frame/memory.h"
#include "frame/settings.h"
#include "tests/codec/guarded.h"
#include "tests/support/host.h"
#include "transport/vfile.h"

#include <cstring>

using std::string;

struct QueryTest : HostTest {};

TEST_F(QueryTest, StatisticsReadTheFieldsOfTheirChannel)
{
    ASSERT_EQ(rynAttach(2), 999);
    Channel& ch = *ChannelTable[1];
    ch.ReplyCode = 103;
    ch.MsgBytesRead = 0x7FFFFFF0;
    ch.AttachBytesRead = 111;
    ch.MsgBytesSent = 113;
    ch.AttachBytesSent = 114;
    const struct {
        uint32_t Code;
        int32_t Answer;
    } rows[] = { { 3, 103 },   { 12, static_cast<int32_t>(0x7FFFFFF0u + 111u) },
                 { 15, 227 },  { 16, 0x0841 },
                 { 26, 7 },    { 27, -1 },
                 { 1002, -1 }, { 1007, -1 },
                 { 9999, -1 }, { 0xFFFFFFFF, -1 } };
    for (const auto& row : rows)
        EXPECT_EQ(rynStatistics(1, row.Code), row.Answer) << row.Code;
    EXPECT_EQ(rynStatistics(0, RYN_STAT_REPLY_CODE), 0);
}

TEST_F(QueryTest, CountersOfTheProcessNeedNoAttach)
{
    EXPECT_EQ(rynStatistics(0, RYN_STAT_BLOCKS_ALLOCATED), 0);
    EXPECT_EQ(rynStatistics(0, 1008), RYN_ERR_NOT_ATTACHED);
    EXPECT_EQ(rynStatistics(1, 1002), RYN_ERR_NOT_ATTACHED);
    ASSERT_EQ(rynAttach(2), 999);
    rynRelease();
    const auto size = static_cast<int32_t>(sizeof(Channel)) + 3;
    EXPECT_EQ(rynStatistics(0, RYN_STAT_BLOCKS_ALLOCATED), 2);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_BLOCKS_FREED), 2);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_BYTES_ALLOCATED), 2 * size);
    EXPECT_EQ(rynStatistics(0, RYN_STAT_LAST_FREED_SIZE), size);
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
                 { RYN_DEBUG_AUTH_LINES, ch.AuthLines, "CRAM-MD5 PLAIN" },
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
    char text[16];
    EXPECT_EQ(rynDebug(1, RYN_DEBUG_EMAIL_LINES, text, 7), 7);
    EXPECT_STREQ(text, "Subject");
    EXPECT_EQ(rynDebug(0, RYN_DEBUG_EMAIL_LINES, text, 7), RYN_ERR_NULL_POINTER);
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
                 { "\n", 20, 1, "\n" },
                 { "", 20, 0, "" } };
    for (const auto& row : rows) {
        CopyField(ChannelTable[0]->LastReply, row.Reply);
        char text[32];
        EXPECT_EQ(rynDebug(0, RYN_DEBUG_LAST_REPLY, text, row.Size), row.Result) << row.Reply;
        EXPECT_STREQ(text, row.Text);
    }
}

TEST_F(QueryTest, DebugOfDatesErrorsAndUnknownCodes)
{
    ASSERT_EQ(rynAttach(1), 999);
    SetLastFileError(2);
    const string error = strerror(2);
    EXPECT_EQ(HostDebug(0, RYN_DEBUG_WINDOWS_ERROR), error);
    EXPECT_EQ(HostDebug(0, 9999), "?");
    for (const int32_t size : { 60, 10, 1, 0, -1 }) {
        const string date = "Date: Tue, 17 Nov 2026 22:52:06 +0100";
        Guarded buffer(static_cast<size_t>(std::max(size, -1) + 1));
        EXPECT_EQ(rynDebug(0, RYN_DEBUG_DATE, buffer.Data(), size), 0);
        if (size >= 0) {
            EXPECT_EQ(buffer.Text(), date.substr(0, static_cast<size_t>(size)));
        }
        EXPECT_TRUE(buffer.MarginsWhole());
    }
    rynRelease();
    EXPECT_EQ(rynDebug(0, RYN_DEBUG_DATE, nullptr, 9), 0);
    char text[4] = "x";
    EXPECT_EQ(rynDebug(0, RYN_DEBUG_DATE, text, 3), RYN_ERR_NOT_ATTACHED);
    EXPECT_STREQ(text, "");
}
