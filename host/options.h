// The words of the command line as a plain record.
#pragma once

#include <vector>

// What rynmail ends with; the help text lists them.
enum ExitCode {
    EXIT_DONE = 0,
    EXIT_USAGE = 1,
    EXIT_CONNECTION = 2,
    EXIT_REFUSED = 3,
    EXIT_LOCAL_FILE = 4,
    EXIT_OTHER = 5,
};

// Texts are words of the command line; null: not given.
struct Options {
    // --- the message ---
    const char* From;
    std::vector<const char*> To, Cc, Bcc;
    const char* Subject;
    const char* Text; // "-": standard input
    const char* TextFile;
    const char* HtmlFile;
    const char* Charset;
    std::vector<const char*> Attach, Inline; // FILE or FILE=NAME
    const char* Forward;
    bool SkipRefused;
    std::vector<const char*> Addresses; // words without an option in front

    // --- the session ---
    const char* Server;
    const char* LogFile;
    bool UseEhlo;
    const char* User;
    std::vector<const char*> Auth;
    const char* Tls; // "implicit" or "starttls"
    const char* CaFile;
    const char* CertFile;
    const char* TunnelProgram;
    const char* TunnelPort;
};

enum CommandBit { COMMAND_SEND = 1, COMMAND_VERIFY = 2 };

// Reads the words behind the command's name. False: one is wrong, and standard error tells which.
bool ReadOptions(int count, char** words, CommandBit command, Options& options);

// Tells what is wrong with the command line.
ExitCode WrongUse(const char* what);
