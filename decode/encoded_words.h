// Encoded words (RFC 2047) turned into the bytes they stand for, in place and without a conversion
// between charsets: a fixed list of charsets, the first word of a line.
#pragma once

#include <cstdint>

struct Channel;

// What a search has found.
enum WordCode : int32_t { WORD_NONE = 0, WORD_Q = 1, WORD_B = 2, WORD_UTF8_Q = 3, WORD_UTF8_B = 4 };

// The first charset of the list that the text has a word in, and its form. Each hit but one of
// ISO-8859-1 in its quoted form is noted in the log opened last.
WordCode FindEncodedWord(const char* text);

// The same for all charsets but UTF-8, and for UTF-8 alone.
WordCode FindForeignWord(const char* text);
WordCode FindUtf8Word(const char* text);

// Rewrites the first word of ReplyBuffer; index is where the text that was searched begins. 1 = the
// word was complete, 0 = its end is missing.
int32_t DecodeEncodedWord(Channel& ch, int32_t index, WordCode code);

// Takes the head of the first word out of ReplyBuffer and ends it: 1 = its end was there. With
// isBase64 the word is decoded; otherwise the ISO form leaves it quoted, the UTF form decodes it and
// what stands behind it.
int32_t Remove_ISO_Encoding(Channel& ch, bool isBase64);
int32_t Remove_UTF_Encoding(Channel& ch, bool isBase64);

// Decodes quoted-printable as the settings of the process ask for: bytes, with a zero behind.
int32_t DecodeQuoted(const char* source, char* target);

// Drops one line end and the blanks in front of it: the length left. A text of one char stays.
int32_t TrimLineEnd(char* text);

// Drops blanks and a word's "?=" from the end of a line, which ends in CR LF then: its length.
int32_t TrimEncodedTail(char* text);
