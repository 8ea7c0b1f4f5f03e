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
