// The stored messages that the benchmarks of fetching and decoding work on, and the test of what
// came out of them. A message is kept in its file alone: the memory of the measured processes stays
// small.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct BenchMessage {
    std::string File; // lines end in CR LF
    std::string Name; // of the message file to be made; the attachment has ".bin" behind it
    std::vector<std::string> Texts; // what the message file must hold, in this order
    int64_t LeastMailBytes;
    int64_t AttachmentBytes; // 0: none
    uint64_t Seed;           // of the attachment's bytes
};

// A short text and one attachment in Base64, 76 chars to a line.
BenchMessage MakeLargeMessage(const std::string& folder, int64_t attachmentBytes);

// Text and HTML as alternatives, both quoted-printable, and an attachment: 2 to 6 KB each, with the
// header lines that a message has after a few relays.
std::vector<BenchMessage> MakeSmallMessages(const std::string& folder, int count);

// A multipart message whose only part is a text of so many lines of 70 chars and CR LF.
BenchMessage MakeLongText(const std::string& folder, int lines);

// A short text below so many header lines that mean nothing to a decoder.
BenchMessage MakeLongHead(const std::string& folder, int lines);

// Compares the message file and the attachment in the folder with what the message was made from.
bool IsDecoded(const BenchMessage& message, const std::string& folder);
