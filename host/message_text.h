// The texts of a message: where they come from and what they hold.
#pragma once

#include <string>

// What a text holds, as far as the choice of its form asks.
struct TextTraits {
    bool HasZero;
    bool IsPlain;    // printable ASCII in lines of at most 998 chars (RFC 5322, 2.1.1)
    bool IsSevenBit; // like IsPlain, with tabs and other control chars
    bool IsUtf8;
};

struct MessageText {
    bool IsGiven;
    std::string FileName; // empty: the text was given on the command line or by standard input
    std::string Bytes;
    TextTraits Traits;
};

TextTraits ExamineText(const std::string& text);

// Bytes of the UTF-8 char that begins at a byte (RFC 3629), 0 for none.
size_t LengthOfChar(const std::string& text, size_t at);

// A text of the command line; "-" reads standard input to its end. False: standard error tells why.
bool TakeText(const char* text, MessageText& textOut);

// Reads a file to examine it. False: standard error tells why.
bool TakeTextFile(const char* fileName, MessageText& textOut);

// A char with which none of the two texts from memory begins: in front of a name it makes the
// library read a file.
char PickFileMark(const MessageText& first, const MessageText& second);

// The argument for a send operation: the text itself, or the mark and the file's name.
std::string TextArgument(const MessageText& text, char fileMark);

// A text in quoted-printable (RFC 2045, 6.7), in lines of at most 76 chars that end in CR LF.
std::string WithQuotedLines(const std::string& text);

// Chars of the longest line, without its line end.
size_t LongestLine(const std::string& text);

// Every line end as CR LF.
std::string WithNetworkLineEnds(const std::string& text);
