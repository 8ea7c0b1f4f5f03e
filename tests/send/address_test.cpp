// Addresses: the strict test, the sender of a session.
#include "send/address.h"

#include "frame/channel.h"
#include "frame/settings.h"
#include "tests/support/host.h"
#include "tests/support/temp_folder.h"

using std::string;

struct AddressTest : HostTest {};

TEST_F(AddressTest, StrictTestNamesTheFirstFault)
{
    const struct {
        const char* Address;
        int32_t Result;
    } rows[] = {
        { "<a@b>", 1 },
        { "John Doe, Esq. <a@b.example>", 1 },
        { "<a@b>;junk", 1 },
        { "<a@b> <>", 1 },
        { "\xE9 # <a@b> \x01", 1 },
        { "a@b", RYN_ERR_MISSING_LEFT_ANGLE },
        { "x;<a@b>", RYN_ERR_MISSING_LEFT_ANGLE },
        { "<a@b", RYN_ERR_MISSING_RIGHT_ANGLE },
        { ">a@b<", RYN_ERR_MISSING_RIGHT_ANGLE },
        { "x> <a@b>", RYN_ERR_MISSING_RIGHT_ANGLE },
        { "<a@b;c@d>", RYN_ERR_MISSING_RIGHT_ANGLE },
        { "<>", RYN_ERR_EMPTY_ARGUMENT },
        { "", RYN_ERR_EMPTY_ARGUMENT },
        { "<@b>", RYN_ERR_EMPTY_STRING },
        { "<a@>", RYN_ERR_EMPTY_STRING },
        { "<a@b@c>", RYN_ERR_TOO_MANY_AT },
        { "<a@b@c#>", RYN_ERR_TOO_MANY_AT },
        { "<a@b#@c>", RYN_ERR_BAD_ADDRESS_CHAR },
        { "<abc>", RYN_ERR_MISSING_AT },
        { nullptr, RYN_ERR_NULL_POINTER },
    };
    for (const auto& row : rows)
        EXPECT_EQ(rynVerifyFormat(row.Address), row.Result)
            << (row.Address == nullptr ? "null" : row.Address);
    const string allowed = "_-/+.$&?'";
    for (int c = 1; c < 256; ++c) {
        const char letter = static_cast<char>(c);
        const bool known = c < 128 && (isalnum(c) || allowed.find(letter) != string::npos);
        const int32_t expected = known      ? 1
                                 : c == '@' ? RYN_ERR_TOO_MANY_AT
                                 : c == ';' ? RYN_ERR_MISSING_RIGHT_ANGLE
                                 : c == '>' ? RYN_ERR_MISSING_AT
                                            : RYN_ERR_BAD_ADDRESS_CHAR;
        EXPECT_EQ(rynVerifyFormat((string("<a") + letter + "b@c>").c_str()), expected) << c;
    }
}

TEST_F(AddressTest, StrictTestLeavesItsSitesAndLogsMissingBrackets)
{
    const struct {
        const char* Address;
        int32_t NullSite, EmptySite;
    } rows[] = { { nullptr, 115, 0 }, { "", 0, 212 }, { "<>", 0, 213 }, { "<@b>", 0, 0 } };
    for (const auto& row : rows) {
        NullPointerSite = EmptyStringSite = 0;
        rynVerifyFormat(row.Address);
        EXPECT_EQ(NullPointerSite, row.NullSite);
        EXPECT_EQ(EmptyStringSite, row.EmptySite);
    }
    HostAttach(1);
    ASSERT_GT(HostSetText(0, RYN_LOG_FILE, Path("log")), 0);
    const size_t seen = ReadWholeFile(Path("log")).size();
    for (const char* address : { "a@b", "<a@b", "<a b>", "<>" })
        rynVerifyFormat(address);
    EXPECT_EQ(ReadWholeFile(Path("log")).substr(seen), " 'a@b'\n '<a@b'\n");
}

TEST_F(AddressTest, SenderIsStoredBehindItsChecksAndTheReplyAddressBefore)
{
    HostAttach(1);
    Channel& ch = *ChannelTable[0];
    const string longSender = "<a@b>" + string(300, 'x');
    const struct {
        const char *From, *ReplyTo;
        int32_t Result;
        string StoredFrom, StoredReplyTo;
    } rows[] = { { "Ann <a@x>", "no address", 1, "Ann <a@x>", "no address" },
                 { nullptr, "<r@r>", RYN_ERR_FROM_IS_NULL, "Ann <a@x>", "<r@r>" },
                 { "a@x", "second", RYN_ERR_MISSING_LEFT_ANGLE, "Ann <a@x>", "second" },
                 { "<a@x", "", RYN_ERR_MISSING_RIGHT_ANGLE, "Ann <a@x>", "" },
                 { "", nullptr, RYN_ERR_EMPTY_ARGUMENT, "Ann <a@x>", "" },
                 { longSender.c_str(), longSender.c_str(), 1, longSender.substr(0, 256),
                   longSender.substr(0, 256) } };
    for (const auto& row : rows) {
        EXPECT_EQ(SetSender(ch, row.From, row.ReplyTo), row.Result);
        EXPECT_EQ(ch.FromAddress, row.StoredFrom);
        EXPECT_EQ(ch.ReplyToAddress, row.StoredReplyTo);
    }
}
