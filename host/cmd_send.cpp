// rynmail send: one message to any number of recipients.
#include "address.h"
#include "attachments.h"
#include "commands.h"
#include "message_text.h"
#include "ryn32.h"
#include "session.h"

#include <cctype>
#include <cstdio>
#include <string>
#include <vector>

constexpr size_t AlternativeLimit = 16384; // chars that rynSendHTML takes from memory
// Quoted-printable lines hold at most 76 chars (RFC 2045, 6.7); an encoded char and the '=' of a
// soft line end may come on top of this.
constexpr uint32_t QuotedLineLength = 74;
// A forwarded message is folded at blanks from 25 chars before this length on: one whose lines keep
// to RFC 5322, 2.1.1 is left alone, any other one is cut to that.
constexpr uint32_t UnfoldedLineLength = 1024;
constexpr uint32_t LegalLineLength = 998;

enum MessageType : uint32_t { TYPE_PLAIN = 0, TYPE_HTML = 2, TYPE_UTF8 = 15 };
enum HtmlCharset : uint32_t { HTML_ASCII = 1, HTML_UTF8 = 8 };

struct CharsetRow {
    const char* Name;
    uint32_t TextType;    // of RYN_MESSAGE_TYPE
    uint32_t HtmlCharset; // of RYN_HTML_CHARSET
};

constexpr CharsetRow CharsetTable[] = {
    { "utf-8", TYPE_UTF8, HTML_UTF8 },
    { "iso-8859-1", 4, 4 },
    { "iso-8859-2", 10, 10 },
    { "iso-8859-3", 13, 13 },
    { "iso-8859-4", 14, 14 },
    { "iso-8859-7", 11, 11 },
    { "iso-8859-8", 5, 5 },
    { "windows-1252", 6, 6 },
    { "windows-1255", 7, 7 },
};

enum ListKind { LIST_TO, LIST_CC, LIST_BCC, LIST_COUNT };

struct Recipient {
    std::string Address;
    ListKind Kind;
};

struct Message {
    std::string From;
    std::vector<Recipient> Recipients; // in the order of the envelope: To, Cc, Bcc
    std::string Subject;
    MessageText Text;
    MessageText Html;
    std::vector<AttachedFile> Images;
    std::vector<AttachedFile> Attachments; // or the message to forward, alone
    bool IsForward;
    bool IsQuoted; // the text stands in quoted-printable already
    uint32_t LineLength;
    uint32_t TextType;
    uint32_t HtmlCharset;
};

void PrintCharsets()
{
    constexpr int namesPerLine = 4;
    int count = 0;
    for (const CharsetRow& row : CharsetTable)
        printf("%s%s", count++ % namesPerLine == 0 ? "\n                         " : " ", row.Name);
}

// --- what is to be sent ---

static bool AddRecipients(const std::vector<const char*>& typed, ListKind kind, Message& message)
{
    for (const char* text : typed) {
        Recipient recipient = { "", kind };
        if (!MakeAddress(text, recipient.Address))
            return false;
        message.Recipients.push_back(recipient);
    }
    return true;
}

static bool TakeAddresses(const Options& options, Message& message)
{
    return MakeAddress(options.From, message.From) && AddRecipients(options.To, LIST_TO, message) &&
           AddRecipients(options.Cc, LIST_CC, message) &&
           AddRecipients(options.Bcc, LIST_BCC, message) &&
           (!options.Subject || MakeSubject(options.Subject, message.Subject));
}

static bool TakeTexts(const Options& options, Message& message)
{
    return (!options.Text || TakeText(options.Text, message.Text)) &&
           (!options.TextFile || TakeTextFile(options.TextFile, message.Text)) &&
           (!options.HtmlFile || TakeTextFile(options.HtmlFile, message.Html));
}

static bool TakeForward(const char* typed, Message& message)
{
    AttachedFile file;
    MessageText text = {};
    if (!TakeMessageFile(typed, file) || !TakeTextFile(typed, text))
        return false;
    message.IsForward = true;
    message.Attachments.push_back(file);
    message.LineLength =
        LongestLine(text.Bytes) <= LegalLineLength ? UnfoldedLineLength : LegalLineLength;
    return true;
}

static bool TakeFiles(const Options& options, Message& message)
{
    for (const char* typed : options.Inline) {
        AttachedFile file;
        if (!TakeImage(typed, file))
            return false;
        message.Images.push_back(file);
    }
    for (const char* typed : options.Attach) {
        AttachedFile file;
        if (!TakeFile(typed, file))
            return false;
        message.Attachments.push_back(file);
    }
    return !options.Forward || TakeForward(options.Forward, message);
}

static bool EqualNoCase(const char* a, const char* b)
{
    while (*a && tolower(static_cast<unsigned char>(*a)) == tolower(static_cast<unsigned char>(*b)))
        ++a, ++b;
    return *a == *b;
}

static ExitCode ChooseNamedCharset(const char* name, Message& message)
{
    for (const CharsetRow& row : CharsetTable) {
        if (!EqualNoCase(row.Name, name))
            continue;
        message.TextType = row.TextType;
        message.HtmlCharset = row.HtmlCharset;
        return EXIT_DONE;
    }
    return WrongUse("no such charset");
}

// Without --charset: plain ASCII goes as it is, everything else has to be UTF-8.
static ExitCode ChooseCharset(const Options& options, Message& message)
{
    if (options.Charset)
        return ChooseNamedCharset(options.Charset, message);
    if ((message.Text.IsGiven && !message.Text.Traits.IsUtf8) ||
        (message.Html.IsGiven && !message.Html.Traits.IsUtf8))
        return WrongUse("a text is no UTF-8: name its charset with --charset");
    const bool isPlain = !message.Text.IsGiven || message.Text.Traits.IsPlain;
    message.TextType = isPlain ? TYPE_PLAIN : TYPE_UTF8;
    message.HtmlCharset = message.Html.Traits.IsPlain ? HTML_ASCII : HTML_UTF8;
    return EXIT_DONE;
}

// The plain alternative of an HTML message goes out unencoded and in one piece: it is handed over
// from memory, whole, with the line ends of the network.
static ExitCode PrepareAlternative(Message& message)
{
    message.Text.FileName.clear();
    message.Text.Bytes = WithNetworkLineEnds(message.Text.Bytes);
    if (message.Text.Bytes.size() > AlternativeLimit)
        return WrongUse("the plain text beside an HTML text may have 16384 chars at most");
    if (!message.Text.Traits.IsSevenBit)
        return WrongUse("the plain text beside an HTML text has to be ASCII, in lines of at most "
                        "998 chars");
    return EXIT_DONE;
}

// The library has one line length for a text that it quotes and for the message to forward behind
// it. That is the second's; the first is quoted here.
static void PrepareForwardText(Message& message)
{
    if (message.TextType == TYPE_PLAIN)
        return;
    message.Text.FileName.clear();
    message.Text.Bytes = WithQuotedLines(message.Text.Bytes);
    message.IsQuoted = true;
}

static ExitCode PrepareMessage(const Options& options, Message& message)
{
    message.LineLength = QuotedLineLength;
    if (!TakeAddresses(options, message))
        return EXIT_USAGE;
    if (!TakeTexts(options, message) || !TakeFiles(options, message))
        return EXIT_LOCAL_FILE;
    if (const ExitCode outcome = ChooseCharset(options, message); outcome != EXIT_DONE)
        return outcome;
    if (message.IsForward)
        PrepareForwardText(message);
    return message.Html.IsGiven && message.Text.IsGiven ? PrepareAlternative(message) : EXIT_DONE;
}

// --- sending ---

// The address list of one header line, from recipient number start on.
static std::string ListFrom(const Message& message, size_t start, ListKind kind)
{
    std::string list;
    for (size_t i = start; i < message.Recipients.size(); ++i)
        if (message.Recipients[i].Kind == kind)
            list.append(list.empty() ? "" : ";").append(message.Recipients[i].Address);
    return list;
}

static void SetMessageParams(const Message& message, char fileMark)
{
    std::vector<AttachedFile> files = message.Images;
    files.insert(files.end(), message.Attachments.begin(), message.Attachments.end());
    SetFileParams(files);
    rynIntegerParam(Channel, RYN_INDIRECTION_CHAR, static_cast<uint8_t>(fileMark));
    rynIntegerParam(Channel, RYN_MAX_LINE_LENGTH, message.LineLength);
    rynIntegerParam(Channel, RYN_KEEP_RAW_CHARS, message.IsQuoted ? 1 : 0);
    rynIntegerParam(Channel, RYN_HTML_CHARSET, message.HtmlCharset);
    rynIntegerParam(Channel, RYN_MESSAGE_TYPE,
                    message.Html.IsGiven ? uint32_t{ TYPE_HTML } : message.TextType);
}

// Bytes that the library reads for the message; it doesn't count a plain alternative.
static void BeginSending(Session& session, const Message& message)
{
    uint64_t total = message.Html.IsGiven ? message.Html.Bytes.size() : message.Text.Bytes.size();
    for (const std::vector<AttachedFile>& files : { message.Images, message.Attachments })
        for (const AttachedFile& file : files)
            total += file.Size;
    // A forwarded message counts as text and once more as an attachment.
    BeginStep(session, "sending", total,
              message.IsForward ? RYN_STAT_MSG_BYTES_IN : RYN_STAT_BYTES_IN);
}

static int32_t SendFrom(Session& session, const Message& message, size_t start)
{
    std::string lists[LIST_COUNT];
    for (const ListKind kind : { LIST_TO, LIST_CC, LIST_BCC })
        lists[kind] = ListFrom(message, start, kind);
    const char* to = lists[LIST_TO].c_str();
    const char* cc = lists[LIST_CC].c_str();
    const char* bcc = lists[LIST_BCC].c_str();
    const char* subject = message.Subject.c_str();
    const char fileMark = PickFileMark(message.Text, message.Html);
    const std::string text = TextArgument(message.Text, fileMark);
    const std::string html = TextArgument(message.Html, fileMark);
    const std::string images = FileList(message.Images);
    const std::string files = FileList(message.Attachments);

    SetMessageParams(message, fileMark);
    BeginSending(session, message);
    int32_t status;
    if (message.Html.IsGiven)
        status = rynSendHTML(Channel, to, cc, bcc, subject, html.c_str(), images.c_str(),
                             text.c_str(), files.c_str());
    else if (message.IsForward)
        status = rynForwardEmail(Channel, to, cc, bcc, subject, text.c_str(), files.c_str());
    else
        status = rynSendEmail(Channel, to, cc, bcc, subject, text.c_str(), files.c_str());
    return status < 0 ? status : Drive(session);
}

// With RYN_IGNORE_RCPT_REFUSAL a send ends its walk at the first recipient that is refused, and
// those accepted so far get the message. So those behind get it by another send.
static ExitCode SendToAll(Session& session, const Message& message, bool skipRefused)
{
    const size_t total = message.Recipients.size();
    size_t sent = 0;
    size_t next = 0;
    ExitCode outcome = EXIT_DONE;
    rynIntegerParam(Channel, RYN_IGNORE_RCPT_REFUSAL, skipRefused ? 1 : 0);
    while (next < total) {
        if (const int32_t status = SendFrom(session, message, next); status < 0) {
            outcome = ReportFailure(session, status);
            break;
        }
        const int32_t accepted = rynStatistics(Channel, RYN_STAT_ACCEPTED_RECIPIENTS);
        sent += static_cast<size_t>(accepted > 0 ? accepted : 0);
        next += static_cast<size_t>(accepted > 0 ? accepted : 0);
        if (next < total) {
            fprintf(stderr, "rynmail: refused: %s: %s\n", message.Recipients[next].Address.c_str(),
                    session.Refusal.c_str());
            outcome = EXIT_REFUSED;
            ++next;
        }
    }
    printf("sent to %zu of %zu recipients\n", sent, total);
    return outcome;
}

static ExitCode SendInSession(Session& session, const Options& options)
{
    Message message = {};
    if (const ExitCode outcome = PrepareMessage(options, message); outcome != EXIT_DONE)
        return outcome;
    if (const ExitCode outcome = Connect(session, options, message.From.c_str());
        outcome != EXIT_DONE)
        return outcome;
    return SendToAll(session, message, options.SkipRefused);
}

// What is wrong with the choice of options; null: nothing.
static const char* FindMisuse(const Options& options)
{
    if (!options.Server || !options.From)
        return "send wants --server and --from";
    if (options.To.empty() && options.Cc.empty() && options.Bcc.empty())
        return "send wants a recipient: --to, --cc or --bcc";
    if (options.Text && options.TextFile)
        return "give --text or a file with the text, not both";
    if (!options.Text && !options.TextFile && !options.HtmlFile && !options.Forward &&
        options.Attach.empty())
        return "send wants a text (--text, --text-file or --html) or a file (--attach or "
               "--forward)";
    if (!options.Inline.empty() && !options.HtmlFile)
        return "--inline wants --html: an HTML text that shows the images";
    if (options.Forward && (options.HtmlFile || !options.Attach.empty()))
        return "--forward goes neither with --html nor with --attach";
    return nullptr;
}

ExitCode RunSend(const Options& options)
{
    if (const char* misuse = FindMisuse(options))
        return WrongUse(misuse);
    Session session;
    if (!StartSession(session))
        return EXIT_OTHER;
    const ExitCode outcome = SendInSession(session, options);
    // Where the connection or a file failed, the server may be waiting for the rest of the message
    // and would take the goodbye for a line of it. Its answer changes nothing: what was sent is sent.
    EndSession(session, outcome == EXIT_DONE || outcome == EXIT_REFUSED);
    return outcome;
}
