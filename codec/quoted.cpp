// The quoting side of quoted-printable.
#include "codec/quoted.h"

#include "codec/text.h"

int32_t QuoteByte(char byte, char* target)
{
    static constexpr char Digits[] = "0123456789ABCDEF";
    const uint8_t value = static_cast<uint8_t>(byte);
    target[0] = '=';
    target[1] = Digits[value >> 4];
    target[2] = Digits[value & 15];
    return 3;
}

int32_t QuoteText(const char* source, char* target, int32_t size)
{
    if (size < 4)
        return 0;
    int32_t count = 0;
    // The widest byte takes three chars and the zero behind it one.
    for (; *source != 0 && count <= size - 4; source++) {
        if (*source != '=' && IsPrintable(*source) != 0)
            target[count++] = *source;
        else
            count += QuoteByte(*source, target + count);
        target[count] = 0;
    }
    return count;
}

static int32_t HexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return 0;
}

int32_t UnquoteText(const char* source, char* target, bool underscoreToSpace, uint32_t& spacesOut)
{
    int32_t count = 0;
    spacesOut = 0;
    for (; *source != 0; source++) {
        char c = *source;
        if (c == '=' && source[1] == '\r')
            break; // the rest of the line belongs to the next one
        if (c == '=' && source[1] != '"' && source[1] != '?') {
            if (source[1] == 0 || source[2] == 0)
                break;
            c = static_cast<char>(HexValue(source[1]) * 16 + HexValue(source[2]));
            source += 2;
        } else if (c == '_' && underscoreToSpace) {
            c = ' ';
            spacesOut++;
        }
        target[count++] = c;
    }
    target[count] = 0;
    return count;
}
