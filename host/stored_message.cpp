// Reads messages block by block: they may be larger than memory.
#include "stored_message.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

constexpr size_t BlockSize = 65536;
constexpr size_t HeadLimit = 65536; // bytes
constexpr char OkMark[] = "+OK";

// What is known of the line in hand, without a doubled dot and its line end.
struct LineTraits {
    size_t Length;
    bool HasOkMark; // as far as it goes
    bool IsBase64;  // no char is outside its alphabet
};

constexpr LineTraits EmptyLine = { 0, true, true };

struct Copy {
    FILE* Source;
    FILE* Target; // null: none
    MessageTraits* Traits;
    DotRule Dots;
    char Last; // char in front; '\n' at the start
    LineTraits Line;
    bool HeadIsOver;
};

static bool CannotUse(const std::string& path, const char* why)
{
    fprintf(stderr, "rynmail: can't use '%s': %s\n", path.c_str(), why);
    return false;
}

static void Put(Copy& copy, char c)
{
    if (copy.Target)
        putc(c, copy.Target);
}

static void ExamineEnd(Copy& copy)
{
    constexpr size_t groupChars = 4;
    const LineTraits line = copy.Line;
    copy.Line = EmptyLine;
    ++copy.Traits->Lines;
    if (line.Length == 0)
        copy.HeadIsOver = true;
    // In a file that was encoded nothing is left out.
    const bool isEncoded = line.IsBase64 && line.Length % groupChars == 0;
    if (line.HasOkMark && line.Length >= strlen(OkMark) && !isEncoded)
        copy.Traits->HasOkLine = true;
}

// Counts a char of the message as it is and looks at it.
static void Examine(Copy& copy, char c)
{
    LineTraits& line = copy.Line;
    ++copy.Traits->Bytes;
    char* tail = copy.Traits->Tail;
    memmove(tail, tail + 1, sizeof copy.Traits->Tail - 1);
    tail[sizeof copy.Traits->Tail - 1] = c;
    if (!copy.HeadIsOver && copy.Traits->Head.size() < HeadLimit)
        copy.Traits->Head += c;
    if (c == '\n')
        return ExamineEnd(copy);
    if (c == '\r')
        return;
    const auto byte = static_cast<unsigned char>(c);
    if (line.Length < strlen(OkMark) && toupper(byte) != OkMark[line.Length])
        line.HasOkMark = false;
    if (!isalnum(byte) && (c == 0 || !strchr("+/=", c)))
        line.IsBase64 = false;
    ++line.Length;
}

static void TakeChar(Copy& copy, char c)
{
    const bool isDotAtHead = c == '.' && copy.Last == '\n';
    if (isDotAtHead && copy.Dots == DOTS_LOSE_ONE) {
        copy.Last = c; // the doubled one: the message goes on behind it
        return;
    }
    if (isDotAtHead && copy.Dots == DOTS_ARE_DOUBLED)
        Put(copy, '.');
    if (c == '\n' && copy.Last != '\r' && copy.Dots == DOTS_ARE_DOUBLED) {
        Put(copy, '\r');
        Examine(copy, '\r');
    }
    Put(copy, c);
    Examine(copy, c);
    copy.Last = c;
}

static bool CopyToEnd(Copy& copy)
{
    char block[BlockSize];
    size_t count;
    while ((count = fread(block, 1, sizeof block, copy.Source)) > 0)
        for (size_t i = 0; i < count; ++i)
            TakeChar(copy, block[i]);
    if (copy.Dots == DOTS_ARE_DOUBLED) {
        if (copy.Last != '\n')
            TakeChar(copy, '\n');
        Put(copy, '.');
        Put(copy, '\r');
        Put(copy, '\n');
    }
    return ferror(copy.Source) == 0;
}

static bool CopyMessage(const std::string& path, const std::string& targetPath, DotRule dots,
                        MessageTraits& traits)
{
    traits = {};
    Copy copy = { nullptr, nullptr, &traits, dots, '\n', EmptyLine, false };
    copy.Source = fopen(path.c_str(), "rb");
    if (!copy.Source)
        return CannotUse(path, strerror(errno));
    if (!targetPath.empty() && !(copy.Target = fopen(targetPath.c_str(), "wbx"))) {
        const int error = errno;
        fclose(copy.Source);
        return CannotUse(targetPath, strerror(error));
    }
    const bool isRead = CopyToEnd(copy);
    const int readError = errno;
    fclose(copy.Source);
    const bool isWritten = !copy.Target || ferror(copy.Target) == 0;
    const bool isClosed = !copy.Target || fclose(copy.Target) == 0;
    if (!isRead)
        return CannotUse(path, strerror(readError));
    return (isWritten && isClosed) || CannotUse(targetPath, "it can't be written to its end");
}

bool TakeRawCopy(const std::string& rawPath, DotRule dots, const std::string& targetPath,
                 MessageTraits& traitsOut)
{
    return CopyMessage(rawPath, targetPath, dots, traitsOut);
}

bool MakeServerCopy(const std::string& path, const std::string& targetPath,
                    MessageTraits& traitsOut)
{
    return CopyMessage(path, targetPath, DOTS_ARE_DOUBLED, traitsOut);
}
