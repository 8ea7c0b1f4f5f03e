// The library's own small text routines; several differ from the standard ones of that kind in
// what they do at a bound, and their callers count on it.
#include "codec/text.h"

#include <cstdio>
#include <cstring>

static char FoldCase(char c)
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

int32_t CopyText(char* target, const char* source, int32_t count)
{
    if (target == nullptr || source == nullptr || count < 0)
        return 0;
    const size_t length = strnlen(source, static_cast<size_t>(count));
    memcpy(target, source, length);
    target[length] = 0;
    return static_cast<int32_t>(length);
}

void CopyBytes(char* target, const char* source, int32_t count)
{
    memcpy(target, source, static_cast<size_t>(count));
    target[count] = 0;
}

int32_t TextLength(const char* text)
{
    return static_cast<int32_t>(strnlen(text, INT32_MAX));
}

void AppendText(char* target, const char* source, int32_t capacity)
{
    const size_t room = static_cast<size_t>(capacity);
    const size_t length = strnlen(target, room);
    const size_t added = strnlen(source, room - length);
    memcpy(target + length, source, added);
    target[length + added] = 0;
    target[room] = 0;
}

char* FindChar(char* text, char wanted)
{
    return strchr(text, wanted);
}

const char* FindChar(const char* text, char wanted)
{
    return strchr(text, wanted);
}

int32_t IndexOfChar(const char* text, char wanted, int32_t count)
{
    for (int32_t i = 0; i < count; i++) {
        if (text[i] == wanted)
            return i;
        if (text[i] == 0)
            return -1;
    }
    return -1;
}

int32_t SameTextNoCase(const char* first, const char* second, int32_t count)
{
    if (first == nullptr || second == nullptr || count <= 0)
        return 0;
    for (int32_t i = 0; i < count; i++) {
        if (FoldCase(first[i]) != FoldCase(second[i]))
            return 0;
        if (first[i] == 0)
            return 1;
    }
    return 1;
}

const char* FindTextNoCase(const char* text, const char* wanted)
{
    const int32_t length = TextLength(wanted);
    if (length == 0)
        return nullptr;
    for (; *text != 0; text++)
        if (FoldCase(*text) == FoldCase(*wanted) && SameTextNoCase(text, wanted, length) != 0)
            return text;
    return nullptr;
}

void JoinPath(char* path, const char* folder, const char* name, int32_t capacity)
{
    const int32_t length = CopyText(path, folder, capacity);
    if (length == 0 || path[length - 1] != '\\')
        AppendText(path, "\\", capacity);
    AppendText(path, name, capacity);
}

const char* BaseFileName(const char* path)
{
    const char* name = path;
    for (; *path != 0; path++)
        if (*path == '\\' || *path == ':')
            name = path + 1;
    return name;
}

const char* ShownFileName(const char* text, char delimiter)
{
    const char* place = delimiter == 0 ? nullptr : FindChar(text, delimiter);
    return place == nullptr ? text : place + 1;
}

int32_t IsPrintable(char c)
{
    return (c >= 32 && c <= 126) || c == '\t' ? 1 : 0;
}

void ReplaceListDelimiter(char* text, char delimiter)
{
    if (text == nullptr)
        return;
    for (; *text != 0; text++)
        if (*text == delimiter)
            *text = ',';
}

void CleanHeaderText(char* text, bool cutAtLineEnd)
{
    for (; *text != 0; text++) {
        if (*text == '\r' || *text == '\n') {
            if (!cutAtLineEnd)
                continue;
            *text = 0;
            return;
        }
        if (*text < 32 || *text > 126)
            *text = '_';
    }
}

void CutAtLineEnd(char* text)
{
    text[strcspn(text, "\r\n")] = 0;
}

void BlankZeros(char* bytes, int32_t count)
{
    char* const end = bytes + count;
    while ((bytes = static_cast<char*>(memchr(bytes, 0, static_cast<size_t>(end - bytes)))) !=
           nullptr)
        *bytes++ = ' ';
}

void WipeBytes(void* bytes, size_t count)
{
    volatile char* place = static_cast<volatile char*>(bytes);
    while (count-- > 0)
        *place++ = 0;
}

int32_t FormatText(char* target, size_t capacity, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int32_t length = FormatTextV(target, capacity, format, arguments);
    va_end(arguments);
    return length;
}

int32_t FormatTextV(char* target, size_t capacity, const char* format, va_list arguments)
{
    const size_t room = capacity < FormatCapacity ? capacity : FormatCapacity;
    if (room == 0)
        return 0;
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): every caller has begun the list
    const int length = vsnprintf(target, room, format, arguments);
    if (length < 0) { // the text can't be formed at all
        target[0] = 0;
        return 0;
    }
    const size_t stored =
        static_cast<size_t>(length) < room ? static_cast<size_t>(length) : room - 1;
    return static_cast<int32_t>(stored);
}
