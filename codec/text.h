// The text routines used everywhere in place of the standard ones. All work on zero-terminated
// bytes, none allocates, and each is bounded by the capacity that it is given.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

// Copies at most count chars and always terminates: the target needs count + 1 bytes. Returns the
// chars copied; 0, with nothing written, for a null target or source.
int32_t CopyText(char* target, const char* source, int32_t count);

// CopyText into a field of n + 1 bytes, which holds at most n chars.
template <size_t N>
int32_t CopyField(char (&field)[N], const char* source)
{
    return CopyText(field, source, static_cast<int32_t>(N) - 1);
}

// Copies count bytes, zeros among them, and puts a zero behind: the target needs count + 1 bytes.
void CopyBytes(char* target, const char* source, int32_t count);

// The plain length, as a signed number; a text of more than 2 GiB counts as the largest one.
int32_t TextLength(const char* text);

// Appends to a text until it holds capacity chars; capacity is that of the whole target, which
// needs one byte more and always gets a zero there. A longer target is cut.
void AppendText(char* target, const char* source, int32_t capacity);

// The first place of a char, or null. Searching for 0 finds the terminator.
char* FindChar(char* text, char wanted);
const char* FindChar(const char* text, char wanted);

// Index of a char among the first count, or -1; a zero before it ends the search.
int32_t IndexOfChar(const char* text, char wanted, int32_t count);

// 1 if at most count chars are the same but for the case of a to z; two texts that end together
// before the count are. 0 for a count of 0 and for null.
int32_t SameTextNoCase(const char* first, const char* second, int32_t count);

// True if a text begins with a word, without regard to case.
template <size_t N>
bool BeginsWith(const char* text, const char (&word)[N])
{
    return SameTextNoCase(text, word, static_cast<int32_t>(N) - 1) != 0;
}

// The first place where a text stands in another, without regard to case; null for an empty text.
const char* FindTextNoCase(const char* text, const char* wanted);

// folder, a '\' unless it ends in one, and name; every step is cut at capacity chars, so the path
// needs a byte more.
void JoinPath(char* path, const char* folder, const char* name, int32_t capacity);

// Behind the last '\' or ':'; a '/' is no separator.
const char* BaseFileName(const char* path);

// Behind the first delimiter; the whole text if there is none.
const char* ShownFileName(const char* text, char delimiter);

// 1 for 32 to 126 and TAB.
int32_t IsPrintable(char c);

// Overwrites each delimiter by a comma; null is passed over.
void ReplaceListDelimiter(char* text, char delimiter);

// Turns what is no printable ASCII into '_', TAB among it. With cutAtLineEnd a CR or LF ends the
// text, without it they stay.
void CleanHeaderText(char* text, bool cutAtLineEnd);

// Cuts a text at its first CR or LF.
void CutAtLineEnd(char* text);

// Turns each zero byte into a blank.
void BlankZeros(char* bytes, int32_t count);

// Zeroes a secret, in a way that no optimiser drops.
void WipeBytes(void* bytes, size_t count);

// Formats by printf's rules, cut to the capacity and to 1023 chars; returns the length.
int32_t FormatText(char* target, size_t capacity, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

int32_t FormatTextV(char* target, size_t capacity, const char* format, va_list arguments)
    __attribute__((format(printf, 3, 0)));

// The most bytes a formatted line takes, its terminating zero included.
constexpr size_t FormatCapacity = 1024;
