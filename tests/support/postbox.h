// What the parts of the test mail server share: the record of one client, the shape of a protocol,
// and the folder of messages. The connection handling (postbox.cpp) knows no command of any
// protocol; a protocol (postbox_smtp.cpp) knows no socket.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// RFC 5321, 4.5.3.1: a line holds at most 1000 bytes with its CR LF. In message data a dot added by
// the client for transparency doesn't count.
constexpr size_t LineLimit = 1000;
constexpr size_t MessageLimit = 64u * 1024 * 1024; // bytes of one message
constexpr size_t RecipientLimit = 1000;

// How the bytes of a line arrived; LineLong and LineBareFeed deserve a refusal.
enum LineKind {
    LineWhole,    // ended by CR LF
    LineBareFeed, // ended by LF alone
    LineLong,     // longer than LineLimit; its text is not given
};

enum AuthStep { AuthNone, AuthLoginName, AuthLoginPassword, AuthPlainBlock };

// A message of the folder as a client that reads mail sees it. Its number there is its place in the
// mailbox, from 1.
struct StoredMessage {
    unsigned Number; // of its files
    size_t Size;     // bytes
    std::string Id;  // no other message has had it, unless of the same number and the same bytes
    bool IsDeleted;  // for this POP3 client; the files stay until it takes leave
    unsigned Uid;    // of IMAP; 0: not known there yet
};

struct Protocol;

struct Client {
    // --- connection: written by postbox.cpp ---
    int Socket;
    const Protocol* Spoken;
    std::string Input;  // received, not yet a whole line
    bool SkippingLine;  // inside a line that has grown beyond LineLimit
    std::string Output; // replies
    size_t Sent;        // bytes of Output that are out already
    bool Closing;       // close as soon as Output is empty
    const char* Folder; // where messages are stored
    const char* User;   // NAME:PASSWORD of the one account; null: sending needs no login, and
                        // any name and password opens the mailbox
    bool Verbose;       // print the dialogue

    // --- SMTP session: written by postbox_smtp.cpp ---
    bool Greeted;
    bool Extended; // greeted by EHLO
    bool HasLoggedIn;
    AuthStep Auth;        // what the next line is an answer to
    std::string AuthName; // that AUTH LOGIN was told
    bool HasSender;
    std::string Sender; // the path without brackets, empty for <>
    std::vector<std::string> Recipients;
    bool InData;
    const char* DataFault; // the reply that the message will get instead of 250; null: none
    std::string Message;

    // --- POP3 and IMAP sessions: written by postbox_pop3.cpp, postbox_imap.cpp ---
    std::string MailboxUser;            // POP3: that USER has named in the line before; empty: none
    bool MailboxIsOpen;                 // somebody has logged in
    std::vector<StoredMessage> Mailbox; // as it was at the login, or when it was selected

    // --- IMAP session: written by postbox_imap.cpp ---
    std::string Tag;      // of the command in hand
    std::string Selected; // the folder of the mailbox; empty: none is selected
    bool IsReadOnly;      // selected by EXAMINE
};

struct Protocol {
    const char* Name;
    const char* PortOption;
    void (*Greet)(Client& client);
    // The line has no line end. Lines of message data come here too.
    void (*TakeLine)(Client& client, std::string_view line, LineKind kind);
};

extern const Protocol SmtpProtocol, Pop3Protocol, ImapProtocol;

// AUTH PLAIN and AUTH LOGIN (postbox_auth.cpp): the command, and the lines that it asks for while
// Auth is not AuthNone.
void StartAuth(Client& client, std::string_view argument);
void TakeAuthLine(Client& client, std::string_view line);

// Texts alike but for the case of letters.
bool EqualNoCase(std::string_view a, std::string_view b);

// Queues one reply line; CR LF is added.
void Reply(Client& client, std::string_view line);

// A decimal number without a sign; false for anything else, and for more than 9 digits.
bool ParseNumber(std::string_view text, size_t& numberOut);

// The messages of the folder, by their numbers.
std::vector<StoredMessage> ListMessages(const char* folder);

// A message with every line ended by CR LF; empty: there is none of this number.
std::string ReadMessage(const char* folder, unsigned number);

// Removes both files of a message. False: the message has gone already, or the disk refuses.
bool RemoveMessage(const char* folder, unsigned number);

// --- the mailboxes of IMAP (postbox_boxes.cpp): INBOX is the server's folder, any other one a folder
// in it. Uids and flags live as long as the server. ---

enum Flag : unsigned {
    FLAG_SEEN = 1,
    FLAG_ANSWERED = 2,
    FLAG_FLAGGED = 4,
    FLAG_DELETED = 8,
    FLAG_DRAFT = 16,
};

// The folder of a mailbox, whether it is there or not; empty: no mailbox can have that name.
std::string FolderOfMailbox(const char* root, std::string_view name);
bool MailboxExists(const std::string& folder);
std::vector<std::string> ListMailboxes(const char* root);
bool CreateMailbox(const std::string& folder);
bool RenameMailbox(const std::string& folder, const std::string& newFolder);
bool RemoveMailbox(const std::string& folder);

// The messages by their uids.
std::vector<StoredMessage> ListByUid(const std::string& folder);
unsigned NextUid(const std::string& folder);
unsigned UidValidity();

// The flags of a message that ListByUid has told; null: it has gone.
unsigned* FlagsOf(const std::string& folder, unsigned uid);

// Stores a message as FOLDER/NNNN.eml with FOLDER/NNNN.envelope beside it, NNNN being the first free
// number from 1. The .eml file appears last and whole. False: the disk has refused; nothing is left.
bool StoreMessage(const char* folder, std::string_view envelope, std::string_view message);
