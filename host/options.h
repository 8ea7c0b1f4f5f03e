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

    // --- what a mailbox is asked ---
    std::vector<const char*> Messages; // numbers, or "all"
    const char* Into;
    bool KeepRaw;
    bool Delete;
    const char* Mailbox;                                  // null: the inbox
    std::vector<const char*> Add, Remove;                 // flags
    std::vector<const char*> Create, DeleteBoxes, Rename; // mailboxes; of the last, old and new
    const char* CopyTo;

    std::vector<const char*> Words; // without an option in front: addresses, files, what to search

    // --- the session: one of the three servers, by its protocol ---
    const char* Server; // SMTP
    const char* Pop3;
    const char* Imap;
    const char* LogFile;
    bool UseEhlo;
    bool UseApop;
    const char* User;
    std::vector<const char*> Auth;
    const char* Tls; // "implicit" or "starttls"
    const char* CaFile;
    const char* CertFile;
    const char* TunnelProgram;
    const char* TunnelPort;
};

enum CommandBit {
    COMMAND_SEND = 1,
    COMMAND_VERIFY = 2,
    COMMAND_LIST = 4,
    COMMAND_FETCH = 8,
    COMMAND_DECODE = 16,
    COMMAND_SEARCH = 32,
    COMMAND_FLAGS = 64,
    COMMAND_MAILBOXES = 128,
};

// Reads the words behind the command's name. False: one is wrong, and standard error tells which.
bool ReadOptions(int count, char** words, CommandBit command, Options& options);

// Tells what is wrong with the command line.
ExitCode WrongUse(const char* what);
