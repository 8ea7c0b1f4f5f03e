// MD5 and HMAC-MD5 against the vectors of RFC 1321 and RFC 2202, and, over all lengths around the
// size of a block, against a digest of digests that another implementation has made.
#include "codec/md5.h"

#include "tests/codec/guarded.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>

using std::string;

static string Hex(const uint8_t (&digest)[Md5DigestBytes])
{
    char text[2 * Md5DigestBytes + 1];
    DigestToHex(digest, text);
    return text;
}

static string Raw(const uint8_t (&digest)[Md5DigestBytes])
{
    return string(reinterpret_cast<const char*>(digest), Md5DigestBytes);
}

// Bytes of every value in no simple order.
static string Sample(size_t length)
{
    string bytes;
    for (size_t i = 0; i < length; ++i)
        bytes += static_cast<char>((i * 167 + length * 31) & 255);
    return bytes;
}

static void Digest(const string& text, uint8_t (&digest)[Md5DigestBytes])
{
    Md5Context context;
    Md5Init(context);
    Md5Update(context, text.data(), text.size());
    Md5Final(digest, context);
}

static string DigestHex(const string& text)
{
    uint8_t digest[Md5DigestBytes];
    Digest(text, digest);
    return Hex(digest);
}

TEST(Md5, GivesTheVectorsOfRfc1321)
{
    const struct {
        string Text;
        const char* Digest;
    } rows[] = {
        { "", "d41d8cd98f00b204e9800998ecf8427e" },
        { "a", "0cc175b9c0f1b6a831c399e269772661" },
        { "abc", "900150983cd24fb0d6963f7d28e17f72" },
        { "message digest", "f96b697d7cb7938d525a2f31aaf161d0" },
        { "abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b" },
        { "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
          "d174ab98d277d9f5a5611c2c9f419d9f" },
        { "1234567890123456789012345678901234567890"
          "1234567890123456789012345678901234567890",
          "57edf4a22be3c955ac49da2e2107b67a" },
        { string(1000000, 'a'), "7707d6ae4e027c70eea2a935c2296f21" },
    };
    for (const auto& row : rows)
        EXPECT_EQ(DigestHex(row.Text), row.Digest) << row.Text.substr(0, 80);
}

TEST(Md5, DigestsEachLength)
{
    string digests;
    for (size_t length = 0; length <= 300; ++length) {
        uint8_t digest[Md5DigestBytes];
        Digest(Sample(length), digest);
        digests += Raw(digest);
    }
    EXPECT_EQ(DigestHex(digests), "60bc8f2ac6223f664d44e0c2e59fdce4");
}

TEST(Md5, DoesNotCareHowTheTextIsCut)
{
    const string text = Sample(200);
    const string whole = DigestHex(text);
    for (size_t cut = 0; cut <= text.size(); ++cut) {
        Md5Context context;
        uint8_t digest[Md5DigestBytes];
        Md5Init(context);
        Md5Update(context, text.data(), cut);
        Md5Update(context, text.data(), 0);
        Md5Update(context, text.data() + cut, text.size() - cut);
        Md5Final(digest, context);
        EXPECT_EQ(Hex(digest), whole) << cut;
    }
    Md5Context context;
    uint8_t digest[Md5DigestBytes];
    Md5Init(context);
    for (const char c : text)
        Md5Update(context, &c, 1);
    Md5Final(digest, context);
    EXPECT_EQ(Hex(digest), whole);
}

TEST(Md5, LeavesNothingOfTheTextBehind)
{
    Md5Context context;
    uint8_t digest[Md5DigestBytes];
    Md5Init(context);
    Md5Update(context, "secret secret secret", 20);
    Md5Final(digest, context);
    const string bytes(reinterpret_cast<const char*>(&context), sizeof context);
    EXPECT_EQ(bytes, string(sizeof context, '\0'));
}

TEST(HmacMd5, GivesTheVectorsOfRfc2202)
{
    string counted;
    for (char c = 1; c <= 25; ++c)
        counted += c;
    const struct {
        string Key, Text;
        const char* Digest;
    } rows[] = {
        { string(16, '\x0B'), "Hi There", "9294727a3638bb1c13f48ef8158bfc9d" },
        { "Jefe", "what do ya want for nothing?", "750c783e6ab0b503eaa86e310a5db738" },
        { string(16, '\xAA'), string(50, '\xDD'), "56be34521d144c88dbb8c733f0e8b3f6" },
        { counted, string(50, '\xCD'), "697eaf0aca3a3aea3a75164746ffaa79" },
        { string(16, '\x0C'), "Test With Truncation", "56461ef2342edc00f9bab995690efd4c" },
        { string(80, '\xAA'), "Test Using Larger Than Block-Size Key - Hash Key First",
          "6b1ab7fe4bd7bf8f0b62e6ce61b9d0cd" },
        { string(80, '\xAA'),
          "Test Using Larger Than Block-Size Key and Larger Than One Block-Size Data",
          "6f630fad67cda0ee1fb1f562db3aa53e" },
        // RFC 2195, the example of CRAM-MD5
        { "tanstaaftanstaaf", "<1896.697170952@postoffice.reston.mci.net>",
          "b913a602c7eda7a495b4e6e7334d3890" },
    };
    for (const auto& row : rows) {
        uint8_t digest[Md5DigestBytes];
        HmacMd5(row.Text.data(), row.Text.size(), row.Key.data(), row.Key.size(), digest);
        EXPECT_EQ(Hex(digest), row.Digest) << row.Text;
        memset(digest, 0, sizeof digest);
        HmacMd5Text(row.Text.c_str(), row.Key.c_str(), digest);
        EXPECT_EQ(Hex(digest), row.Digest) << row.Text;
    }
}

TEST(HmacMd5, TakesKeysOfEachLength)
{
    string digests;
    for (size_t length = 0; length <= 150; ++length) {
        const string bytes = Sample(length);
        const std::unique_ptr<char[]> key(new char[length]); // exactly so many bytes to read
        bytes.copy(key.get(), length);
        const string text = Sample(length * 7 % 301);
        uint8_t digest[Md5DigestBytes];
        HmacMd5(text.data(), text.size(), key.get(), length, digest);
        digests += Raw(digest);
    }
    EXPECT_EQ(DigestHex(digests), "f578ab91e49c1eec1c3e5ad0fd76429a");
}

TEST(HmacMd5Text, EndsTheTextAtItsFirstReturn)
{
    uint8_t whole[Md5DigestBytes], cut[Md5DigestBytes];
    HmacMd5Text("<1.2@server>", "key", whole);
    for (const char* text : { "<1.2@server>\r\n", "<1.2@server>\r", "<1.2@server>\rmore\n" }) {
        HmacMd5Text(text, "key", cut);
        EXPECT_EQ(Hex(cut), Hex(whole)) << text;
    }
    HmacMd5Text("<1.2@server>\n", "key", cut); // a bare LF belongs to the text
    EXPECT_NE(Hex(cut), Hex(whole));
    HmacMd5Text("<1.2@server>", "key\r", cut); // and a key has no line end
    EXPECT_NE(Hex(cut), Hex(whole));
}

TEST(DigestToHex, WritesLowerCaseDigitsHighNibbleFirst)
{
    const uint8_t digest[Md5DigestBytes] = { 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF,
                                             0x00, 0xFF, 0x10, 0x0F, 0xA0, 0x0A, 0x7F, 0x80 };
    Guarded target(33);
    DigestToHex(digest, target.Data());
    EXPECT_EQ(target.Text(), "0123456789abcdef00ff100fa00a7f80");
    EXPECT_TRUE(target.MarginsWhole());
}
