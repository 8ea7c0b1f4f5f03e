// MD5 and HMAC-MD5 against the vectors of RFC 1321 and RFC 2202, and, over all lengths around the
// size of a block, against a digest of digests that another implementation has made.
#include "codec/md5.h"

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

static string DigestHex(const string& text)
{
    Md5Context context;
    uint8_t digest[Md5DigestBytes];
    Md5Init(context);
    Md5Update(context, text.data(), text.size());
    Md5Final(digest, context);
    return Hex(digest);
}

TEST(Md5, GivesTheVectorsOfRfc1321)
{
    EXPECT_EQ(DigestHex(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(DigestHex("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
              "d174ab98d277d9f5a5611c2c9f419d9f");
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
    const struct {
        string Key, Text;
        const char* Digest;
    } rows[] = {
        { string(16, '\x0B'), "Hi There", "9294727a3638bb1c13f48ef8158bfc9d" },
        { "Jefe", "what do ya want for nothing?", "750c783e6ab0b503eaa86e310a5db738" },
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
