// Messages in files: between the lines of a network, where a dot at the head of a line is doubled,
// and a plain file.
#pragma once

#include <cstdint>
#include <string>

// What becomes of a dot at the head of a line.
enum DotRule { DOTS_STAY, DOTS_ARE_DOUBLED, DOTS_LOSE_ONE };

struct MessageTraits {
    uint64_t Bytes; // without the doubled dots
    uint64_t Lines; // ends of lines
    bool HasOkLine; // a line of text begins with "+OK": the library leaves it out of a message file
    std::string Head; // the header, up to a bound that no honest one meets
    char Tail[3];     // the last chars
};

// Reads what the library has kept as a raw copy, its dots doubled by POP3 (DOTS_LOSE_ONE) or not
// (DOTS_STAY). With a target the message is written there as it is; empty: none. False: standard
// error tells what can't be used.
bool TakeRawCopy(const std::string& rawPath, DotRule dots, const std::string& targetPath,
                 MessageTraits& traitsOut);

// Makes of a stored message, whatever its line ends, the lines that a server would send. The same
// results.
bool MakeServerCopy(const std::string& path, const std::string& targetPath,
                    MessageTraits& traitsOut);
