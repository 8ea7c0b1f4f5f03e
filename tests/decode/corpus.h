// Messages of tests/messages and what the library has to make of them, told as text.
//
// NAME.eml is a message as a server sends it or a file keeps it: stuffed dots included, without the
// dot that ends it. NAME.expect beside it has, up to its first empty line,
//
//     # what the message is about
//     set 36 = 1          rynIntegerParam
//     text 63 = ##        rynStringParam
//     folder = mail       attachments go where the message file goes; else to "att"
//     ways = source       a server can't send this; else it is fetched in every way
//     end = close         the server closes behind the message, without the dot
//     python = files      what judge.py compares with a reader of another make, or "no (why)"
//
// and behind it the result. In texts \\ is a backslash and \xHH any byte. Of a file "|text" is a
// line ended by CR LF, ">text" exactly these bytes; "#LENGTH FNV-1a" stands for what is too long to
// read.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

struct CorpusCase {
    std::string Message;
    std::vector<std::pair<int32_t, uint32_t>> Numbers; // code and value
    std::vector<std::pair<uint32_t, std::string>> Texts;
    std::string AttachFolder = "att";
    bool SourceOnly = false;
    bool PeerCloses = false;
    std::string Result; // what CorpusResult has to tell
};

// The names of all messages, in order.
std::vector<std::string> CorpusNames();

CorpusCase CorpusRead(const std::string& name);

// Counts, lists and headers of a channel, and every file below the current folder.
std::string CorpusResult(uint32_t channel);
