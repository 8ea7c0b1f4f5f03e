// Makes the messages and compares what came out of them; see messages.h.
#include "bench/messages.h"

#include "include/ryn32.h"

#include <cstdio>
#include <cstring>
#include <filesystem>

static constexpr int64_t ChunkBytes = 57 * 1024; // whole Base64 lines, so that chunks can be joined

static void FillBytes(uint64_t& seed, char* target, int64_t count)
{
    for (int64_t i = 0; i < count; i++) {
        if (i % 8 == 0) {
            seed ^= seed << 13;
            seed ^= seed >> 7;
            seed ^= seed << 17;
        }
        target[i] = static_cast<char>(seed >> 8 * (i % 8));
    }
}

static void PutAttachment(FILE* out, const BenchMessage& message, const char* boundary)
{
    fprintf(out,
            "--%s\r\nContent-Type: application/octet-stream; name=\"%s.bin\"\r\n"
            "Content-Transfer-Encoding: base64\r\n"
            "Content-Disposition: attachment; filename=\"%s.bin\"\r\n\r\n",
            boundary, message.Name.c_str(), message.Name.c_str());
    static char bytes[ChunkBytes];
    static char lines[ChunkBytes / 57 * 78 + 1];
    uint64_t seed = message.Seed;
    for (int64_t rest = message.AttachmentBytes; rest > 0; rest -= ChunkBytes) {
        const int64_t count = rest < ChunkBytes ? rest : ChunkBytes;
        FillBytes(seed, bytes, count);
        const int32_t chars = rynEncodeBuffer(bytes, lines, static_cast<int32_t>(count));
        fwrite(lines, 1, static_cast<size_t>(chars), out);
    }
    fprintf(out, "--%s--\r\n", boundary);
}

static void PutHead(FILE* out, const char* boundary)
{
    for (int i = 0; i < 4; i++)
        fprintf(out,
                "Received: from relay%d.x.example (relay%d.x.example [192.0.2.%d])\r\n"
                "\tby mx%d.y.example (Postfix) with ESMTPS id 4Kc8%dF2lqxz9rWb\r\n"
                "\tfor <b@y.example>; Mon, 6 Mar 2023 10:11:%02d +0100 (CET)\r\n",
                i, i, i + 1, i, i, 10 + i);
    fputs("Return-Path: <a@x.example>\r\nMessage-ID: <20230306.101109.4711@x.example>\r\n"
          "Date: Mon, 6 Mar 2023 10:11:09 +0100\r\nFrom: \"Ann Example\" <a@x.example>\r\n"
          "To: \"Bob Example\" <b@y.example>,\r\n \"Cleo Example\" <c@y.example>\r\n"
          "Cc: <d@y.example>\r\nSubject: =?iso-8859-1?q?Gr=FC=DFe?= and the papers\r\n"
          "User-Agent: Mailer 3.1\r\nX-Spam-Status: No, score=-1.9 required=5.0\r\n",
          out);
    fprintf(out,
            "MIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=\"%s\"\r\n\r\n"
            "This is a message of several parts.\r\n",
            boundary);
}

static void PutPlain(FILE* out, const char* text)
{
    fprintf(out,
            "--outer-7c1f\r\nContent-Type: text/plain; charset=us-ascii\r\n"
            "Content-Transfer-Encoding: 7bit\r\n\r\n%s\r\n",
            text);
}

BenchMessage MakeLargeMessage(const std::string& folder, int64_t attachmentBytes)
{
    const BenchMessage message = { folder + "/large.eml", "large", { "The file is below." }, 20,
                                   attachmentBytes,       4711 };
    FILE* out = fopen(message.File.c_str(), "wb");
    PutHead(out, "outer-7c1f");
    PutPlain(out, message.Texts[0].c_str());
    PutAttachment(out, message, "outer-7c1f");
    fclose(out);
    return message;
}

// Soft line breaks and quoted bytes as a mailer makes them. textOut gets the text without them, and
// without its last line end: whether that belongs to the boundary is a matter of taste.
static void PutQuoted(FILE* out, const char* type, int lines, std::string& textOut)
{
    fprintf(out,
            "--inner-19aa\r\nContent-Type: text/%s; charset=utf-8\r\n"
            "Content-Transfer-Encoding: quoted-printable\r\n\r\n",
            type);
    for (int i = 0; i < lines; i++) {
        fputs("<p class=3D\"x\">Viele Gr=C3=BC=C3=9Fe aus der Stadt, in der die Texte =\r\n"
              "so gebrochen werden</p>\r\n",
              out);
        textOut += i == 0 ? "" : "\r\n";
        textOut += "<p class=\"x\">Viele Gr\xC3\xBC\xC3\x9F"
                   "e aus der Stadt, in der die Texte so gebrochen werden</p>";
    }
}

static BenchMessage MakeSmallMessage(const std::string& folder, int number)
{
    const std::string name = "small" + std::to_string(number);
    BenchMessage message = {
        folder + "/" + name + ".eml",        name, { "", "" }, 0, 200 + number * 37 % 1400,
        4711 + static_cast<uint64_t>(number)
    };
    FILE* out = fopen(message.File.c_str(), "wb");
    PutHead(out, "outer-7c1f");
    fputs("--outer-7c1f\r\nContent-Type: multipart/alternative; boundary=\"inner-19aa\"\r\n\r\n",
          out);
    PutQuoted(out, "plain", 1 + number % 7, message.Texts[0]);
    PutQuoted(out, "html", 2 + number % 11, message.Texts[1]);
    fputs("--inner-19aa--\r\n\r\n", out);
    PutAttachment(out, message, "outer-7c1f");
    fclose(out);
    return message;
}

std::vector<BenchMessage> MakeSmallMessages(const std::string& folder, int count)
{
    std::vector<BenchMessage> messages;
    for (int i = 0; i < count; i++)
        messages.push_back(MakeSmallMessage(folder, i));
    return messages;
}

BenchMessage MakeLongText(const std::string& folder, int lines)
{
    const std::string line = std::string(62, 'x') + "%08d\r\n";
    BenchMessage message = { folder + "/text.eml", "text", {}, int64_t{ 72 } * lines, 0, 0 };
    FILE* out = fopen(message.File.c_str(), "wb");
    PutHead(out, "outer-7c1f");
    PutPlain(out, "first\r\n");
    for (int i = 0; i < lines; i++)
        fprintf(out, "%062d%08d\r\n", 0, i);
    fputs("last\r\n--outer-7c1f--\r\n", out);
    fclose(out);
    message.Texts = { "first\r\n", "\r\nlast" };
    return message;
}

BenchMessage MakeLongHead(const std::string& folder, int lines)
{
    const BenchMessage message = { folder + "/head.eml", "head", { "The body." }, 20, 0, 0 };
    FILE* out = fopen(message.File.c_str(), "wb");
    for (int i = 0; i < lines; i++)
        fprintf(out, "X-Trace-%07d: a value that nobody asks for, of usual length\r\n", i);
    PutHead(out, "outer-7c1f");
    PutPlain(out, message.Texts[0].c_str());
    fputs("--outer-7c1f--\r\n", out);
    fclose(out);
    return message;
}

// --- what came out ---

static bool HasBytes(const std::string& file, uint64_t seed, int64_t count)
{
    FILE* in = fopen(file.c_str(), "rb");
    if (in == nullptr)
        return false;
    static char wanted[ChunkBytes];
    static char found[ChunkBytes];
    bool isEqual = true;
    for (int64_t rest = count; isEqual && rest > 0; rest -= ChunkBytes) {
        const size_t chunk = static_cast<size_t>(rest < ChunkBytes ? rest : ChunkBytes);
        FillBytes(seed, wanted, static_cast<int64_t>(chunk));
        isEqual = fread(found, 1, chunk, in) == chunk && memcmp(wanted, found, chunk) == 0;
    }
    isEqual = isEqual && fgetc(in) == EOF;
    fclose(in);
    return isEqual;
}

// Looks at the head and the end of a message file, where the expected texts are.
static bool HoldsTexts(const std::string& file, const std::vector<std::string>& texts)
{
    FILE* in = fopen(file.c_str(), "rb");
    if (in == nullptr)
        return false;
    static char buffer[1 << 16];
    std::string whole(buffer, fread(buffer, 1, sizeof buffer, in));
    if (fseek(in, -4096, SEEK_END) == 0 && ftell(in) > static_cast<long>(whole.size()))
        whole.append(buffer, fread(buffer, 1, 4096, in));
    fclose(in);
    size_t place = 0;
    for (const std::string& text : texts) {
        place = whole.find(text, place);
        if (place == std::string::npos)
            return false;
        place += text.size();
    }
    return true;
}

bool IsDecoded(const BenchMessage& message, const std::string& folder)
{
    const std::string mail = folder + "/" + message.Name;
    std::error_code error;
    const auto bytes = std::filesystem::file_size(mail, error);
    if (error || static_cast<int64_t>(bytes) < message.LeastMailBytes)
        return false;
    if (!HoldsTexts(mail, message.Texts))
        return false;
    return message.AttachmentBytes == 0 ||
           HasBytes(mail + ".bin", message.Seed, message.AttachmentBytes);
}
