// The texts of the statuses: the edges of the table, replacing them, and what is put behind them.
#include "frame/status.h"

#include "codec/text.h"
#include "frame/channel.h"
#include "tests/codec/guarded.h"
#include "tests/support/host.h"
#include "tests/support/temp_folder.h"

using std::string;

struct StatusTest : HostTest {};

static const struct {
    int32_t Code, Number;
    const char* Text;
} Rows[] = {
    { RYN_CANNOT_COMPLY, 0, "Cannot comply." },
    { RYN_ERR_SOCK_CLOSED, -1, "vSock has been closed." },
    { RYN_ERR_CONNECT_FAILED, -36, "Error attempting to connect. " },
    { RYN_ERR_SMTP_REPLY, -49, "SMTP returned error. " },
    { RYN_ERR_NO_SUCH_FILE, -75, "No such file. " },
    { RYN_ERR_SIMULATED, -100, "Simulated error." },
    { RYN_WSAEINTR, -10004, "Interrupted system call." },
    { RYN_WSANOTINITIALISED, -10093, "vSocks not initialized. Call WSAStartup." },
    { RYN_WSANO_DATA, -11004, "No data is available." },
};

TEST_F(StatusTest, EachStatusHasItsText)
{
    HostAttach(1);
    const string unknown(50, 'X');
    EXPECT_EQ(HostErrorText(0, RYN_ERR_CANNOT_OPEN_FILE), "Cannot open file " + unknown);
    EXPECT_EQ(HostErrorText(0, RYN_ERR_CANNOT_CREATE_FILE), "Cannot create file " + unknown);
    for (const auto& row : Rows) {
        EXPECT_EQ(row.Code, row.Number);
        EXPECT_EQ(HostErrorText(0, row.Code), row.Text);
    }
    for (const int32_t code : { 999, 1, -2, -90, -101, -10005, -11005 })
        EXPECT_EQ(HostErrorText(0, code), "") << code;
}

TEST_F(StatusTest, TellsTheServersLineOrThePathBehindTheText)
{
    HostAttach(2);
    const string path(128, 'p');
    CopyField(ChannelTable[1]->ReplyBuffer, "550 no\r\n");
    CopyField(ChannelTable[1]->ErrorFileName, path.c_str());
    const struct {
        int32_t Code;
        string Text;
    } rows[] = { { RYN_ERR_SMTP_REPLY, "SMTP returned error. 550 no\r\n" },
                 { RYN_ERR_IMAP_REPLY, "IMAP returned error." },
                 { RYN_ERR_NO_SUCH_FILE, "No such file. " + path } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Code);
        for (size_t size = 1; size <= row.Text.size() + 2; ++size) {
            const string kept = row.Text.substr(0, size - 1);
            Guarded buffer(size);
            EXPECT_EQ(rynErrorText(1, row.Code, buffer.Data(), static_cast<int32_t>(size)),
                      static_cast<int32_t>(kept.size()));
            EXPECT_EQ(buffer.Text(), kept);
            EXPECT_TRUE(buffer.MarginsWhole());
        }
        for (const int32_t size : { 0, -1, INT32_MIN }) {
            Guarded buffer(1);
            EXPECT_EQ(rynErrorText(1, row.Code, buffer.Data(), size), 0);
            EXPECT_TRUE(buffer.UntouchedFrom(0));
        }
    }
    EXPECT_EQ(HostErrorText(0, RYN_ERR_SMTP_REPLY), "SMTP returned error. ");
}

TEST_F(StatusTest, GoesToTheLogUnlessThereIsNoText)
{
    HostAttach(1);
    ASSERT_GT(HostSetText(0, RYN_LOG_FILE, Path("log")), 0);
    const size_t seen = ReadWholeFile(Path("log")).size();
    char text[80] = "x";
    EXPECT_EQ(rynErrorText(0, -2, text, sizeof(text)), 0);
    EXPECT_STREQ(text, "");
    rynErrorText(0, RYN_ERR_TIMED_OUT, text, sizeof(text));
    rynErrorText(0, RYN_ERR_TIMED_OUT, text, 6);
    EXPECT_EQ(ReadWholeFile(Path("log")).substr(seen), "vSock timed out.\r\nvSock\r\n");
}

TEST_F(StatusTest, TextsAreReplacedForTheWholeProcess)
{
    const string fifty = "12345678901234567890123456789012345678901234567890";
    const struct {
        string Text;
        int32_t Result;
        string Kept;
    } rows[] = { { fifty.substr(0, 49), 1, fifty.substr(0, 49) },
                 { fifty, 0, fifty },
                 { fifty + "\r\n", 0, fifty },
                 { "short\r\nrest", 1, "short" },
                 { "", 1, "" },
                 { "last %s", 1, "last %s" } };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.Text);
        EXPECT_EQ(rynSetErrorText(RYN_ERR_TIMED_OUT, row.Text.c_str()), row.Result);
        HostAttach(2);
        EXPECT_EQ(HostErrorText(0, RYN_ERR_TIMED_OUT), row.Kept);
        EXPECT_EQ(HostErrorText(1, RYN_ERR_TIMED_OUT), row.Kept);
        rynRelease();
    }
    EXPECT_EQ(rynSetErrorText(RYN_ERR_SMTP_REPLY, "Refused:"), 1);
    EXPECT_EQ(rynSetErrorText(RYN_ERR_TIMED_OUT, nullptr), 0);
    EXPECT_EQ(rynSetErrorText(-90, "x"), 0);
    HostAttach(1);
    EXPECT_EQ(HostErrorText(0, RYN_ERR_SMTP_REPLY), "Refused: ");
    EXPECT_EQ(HostErrorText(0, RYN_ERR_INVALID_SOCKET), "Invalid socket."); // the row before
}

TEST_F(StatusTest, NotesTheFileThatFailed)
{
    HostAttach(2);
    const string fifty = "12345678901234567890123456789012345678901234567890";
    const string rows[][2] = { { "@b.txt", "b.txt" },
                               { "x" + fifty, "x" + fifty.substr(0, 49) },
                               { "@missing.txt\r\nrest", "missing.txt" },
                               { "\nrest", "" } };
    for (const auto& row : rows) {
        NoteOpenFailure(row[0].c_str());
        EXPECT_EQ(HostErrorText(0, RYN_ERR_CANNOT_OPEN_FILE), "Cannot open file " + row[1]);
        NoteCreateFailure(row[0].c_str());
        EXPECT_EQ(HostErrorText(1, RYN_ERR_CANNOT_CREATE_FILE), "Cannot create file " + row[1]);
    }
}
