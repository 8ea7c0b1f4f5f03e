// rynmail send: one message to any number of recipients.
#include "address.h"
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

static ExitCode WrongUse(const char* what)
{
    fprintf(stderr, "rynmail: %s (rynmail --help tells more)\n", what);
    return EXIT_USAGE;
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
    message.TextType = message.Text.Traits.IsPlain ? TYPE_PLAIN : TYPE_UTF8;
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

static ExitCode PrepareMessage(const Options& options, Message& message)
{
    if (!TakeAddresses(options, message))
        return EXIT_USAGE;
    if (!TakeTexts(options, message))
        return EXIT_LOCAL_FILE;
    if (const ExitCode outcome = ChooseCharset(options, message); outcome != EXIT_DONE)
        return outcome;
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

    rynIntegerParam(Channel, RYN_INDIRECTION_CHAR, static_cast<uint8_t>(fileMark));
    rynIntegerParam(Channel, RYN_MAX_LINE_LENGTH, QuotedLineLength);
    rynIntegerParam(Channel, RYN_HTML_CHARSET, message.HtmlCharset);
    rynIntegerParam(Channel, RYN_MESSAGE_TYPE,
                    message.Html.IsGiven ? uint32_t{ TYPE_HTML } : message.TextType);
    BeginStep(session, "sending");
    const int32_t status =
        message.Html.IsGiven
            ? rynSendHTML(Channel, to, cc, bcc, subject, html.c_str(), "", text.c_str(), "")
            : rynSendEmail(Channel, to, cc, bcc, subject, text.c_str(), "");
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
                    session.Refusal);
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

ExitCode RunSend(const Options& options)
{
    if (!options.Server || !options.From)
        return WrongUse("send wants --server and --from");
    if (options.To.empty() && options.Cc.empty() && options.Bcc.empty())
        return WrongUse("send wants a recipient: --to, --cc or --bcc");
    if (options.Text && options.TextFile)
        return WrongUse("give --text or --text-file, not both");
    if (!options.Text && !options.TextFile && !options.HtmlFile)
        return WrongUse("send wants a text: --text, --text-file or --html");
    Session session;
    if (!StartSession(session))
        return EXIT_OTHER;
    const ExitCode outcome = SendInSession(session, options);
    // Where the connection or a file failed, the server may be waiting for the rest of the message
    // and would take the goodbye for a line of it.
    EndSession(session, outcome == EXIT_DONE || outcome == EXIT_REFUSED);
    return outcome;
}
