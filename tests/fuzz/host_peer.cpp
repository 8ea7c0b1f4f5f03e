// The protocols and the moods. The server has its turn whenever the library waits.
#include "tests/fuzz/host_peer.h"

#include "tests/fuzz/fuzz_input.h"
#include "tests/support/virtual_clock.h"
#include "tests/support/virtual_socket.h"

#include <list>

enum PeerProtocol { PEER_SMTP, PEER_POP3, PEER_IMAP };

enum PeerMood {
    MOOD_REFUSE,
    MOOD_SILENT,
    MOOD_CLOSE_BEHIND,
    MOOD_CLOSE,
    MOOD_RESET,
    MOOD_GARBAGE,
    MOOD_NO_LINE_END,
    MOOD_LONG_LINE,
    MOOD_MANY_LINES,
    MOOD_TWICE,
    MOOD_BLANK_LINE,
    MOOD_DRIP,
    MOOD_NOT_NOW,
    MOOD_COUNT,
    MOOD_HONEST
};

struct PeerLink {
    int Link;
    PeerProtocol Protocol;
    bool InData; // the lines of a message
    int Secrets; // lines of a login that are still to come
    bool Drips;  // a byte a turn
    bool IsLeaving;
    std::string Input, Outbox, Mail;
};

struct HostPeer {
    std::string Moods;
    size_t NextMood;
    std::list<PeerLink> Links;
    std::string Mail;
    uint32_t Turns; // of the operation
    const char* Operation;
};

static HostPeer Peer;

constexpr char Message[] =
    "Date: Tue, 17 Nov 2026 22:52:06 +0100\r\nFrom: <a@b.example>\r\nReply-To: <r@b.example>\r\n"
    "To: c,\r\n d\r\nCc: =?iso-8859-1?b?6Q==?=\r\nSubject: =?utf-8?q?=C3=A9?=\r\n"
    "MIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=x\r\n\r\n"
    "--x\r\nContent-Type: multipart/alternative; boundary=y\r\n\r\n--y\r\n\r\ntext\r\n--y--\r\n"
    "--x\r\nContent-Type: message/rfc822\r\n\r\nSubject: z\r\n\r\ninner\r\n"
    "--x\r\nContent-Type: a/b; name=\"\xC3\xA9.txt\"\r\n"
    "Content-Transfer-Encoding: base64\r\n\r\nQUJD\r\n--x--\r\n";

// --- honest answers ---

static bool Asks(const std::string& line, const char* word)
{
    return line.find(word) != std::string::npos;
}

static std::string AnswerSmtp(PeerLink& link, const std::string& line)
{
    if (link.Secrets > 0)
        return --link.Secrets > 0 ? "334 UGFzc3dvcmQ6\r\n" : "235 in\r\n";
    if (Asks(line, "EHLO"))
        return "250-peer\r\n250-AUTH CRAM-MD5 LOGIN PLAIN XOAUTH2\r\n250 HELP\r\n";
    if (Asks(line, "AUTH PLAIN") || Asks(line, "AUTH XOAUTH2"))
        return "235 in\r\n";
    if (Asks(line, "AUTH ")) {
        link.Secrets = Asks(line, "CRAM") ? 1 : 2;
        return "334 PDEuMkB4Pg==\r\n";
    }
    link.InData = Asks(line, "DATA");
    link.IsLeaving = Asks(line, "QUIT");
    return link.InData ? "354 go\r\n" : "250 ok\r\n";
}

static std::string AnswerPop3(PeerLink& link, const std::string& line)
{
    const std::string verb = line.substr(0, 4);
    const bool isList = line.find(' ') == std::string::npos;
    link.IsLeaving = verb == "QUIT";
    if (verb == "STAT")
        return "+OK 2 320\r\n";
    if (verb == "RETR" || verb == "TOP ")
        return std::string("+OK\r\n") + Message + ".\r\n";
    if (verb == "LIST" || verb == "UIDL")
        return isList ? "+OK\r\n1 160\r\n2 160\r\n.\r\n" : "+OK 1 160\r\n";
    return "+OK\r\n";
}

static std::string AnswerImap(PeerLink& link, const std::string& line)
{
    std::string answer;
    link.IsLeaving = Asks(line, "LOGOUT");
    if (Asks(line, " SELECT "))
        answer = "* 2 EXISTS\r\n* OK [UIDVALIDITY 7]\r\n";
    else if (Asks(line, "RFC822.SIZE"))
        answer = "* 1 FETCH (RFC822.SIZE 160)\r\n";
    else if (Asks(line, "RFC822"))
        answer = std::string("* 1 FETCH (RFC822 {9}\r\n") + Message + ")\r\n";
    else if (Asks(line, "FLAGS"))
        answer = "* 1 FETCH (FLAGS (\\Seen \\Draft))\r\n";
    else if (Asks(line, " UID"))
        answer = "* 1 FETCH (UID 42)\r\n";
    else if (Asks(line, " SEARCH "))
        answer = "* SEARCH 1 2 84\r\n";
    else if (Asks(line, " LIST "))
        answer = "* LIST () \"/\" InBox\r\n* LIST () \"/\" box\r\n";
    return answer + line.substr(0, line.find(' ')) + " OK\r\n";
}

static std::string Answer(PeerLink& link, const std::string& line)
{
    switch (link.Protocol) {
    case PEER_SMTP:
        return AnswerSmtp(link, line);
    case PEER_POP3:
        return AnswerPop3(link, line);
    default:
        return AnswerImap(link, line);
    }
}

// --- moods ---

static PeerMood NextMood()
{
    const auto mood =
        static_cast<uint8_t>(Peer.NextMood < Peer.Moods.size() ? Peer.Moods[Peer.NextMood++] : 0);
    return mood < 128 ? MOOD_HONEST : static_cast<PeerMood>(mood % MOOD_COUNT);
}

static std::string Refusal(PeerProtocol protocol, const std::string& line)
{
    if (protocol == PEER_IMAP)
        return line.substr(0, line.find(' ')) + " NO no\r\n";
    return protocol == PEER_SMTP ? "550-no\r\n550 no\r\n" : "-ERR no\r\n";
}

static std::string ManyLines(PeerProtocol protocol, const std::string& answer)
{
    constexpr int Lines = 500;
    std::string text;
    for (int i = 0; i < Lines; i++)
        text += protocol == PEER_SMTP ? "250-more\r\n" : "* 9 more\r\n";
    return text + answer;
}

static void Say(PeerLink& link, const std::string& line, const std::string& answer)
{
    constexpr size_t LongLine = 9000;
    const PeerMood mood = NextMood();
    link.IsLeaving |= mood == MOOD_CLOSE || mood == MOOD_CLOSE_BEHIND;
    link.Drips |= mood == MOOD_DRIP;
    if (mood == MOOD_REFUSE)
        link.Outbox += Refusal(link.Protocol, line);
    else if (mood == MOOD_NOT_NOW)
        link.Outbox += "450 not now\r\n";
    else if (mood == MOOD_GARBAGE)
        link.Outbox += std::string("\0\xFF=?\x01 ", 6) + answer;
    else if (mood == MOOD_NO_LINE_END)
        link.Outbox += answer.substr(0, answer.size() - 2);
    else if (mood == MOOD_LONG_LINE)
        link.Outbox += answer.substr(0, 4) + std::string(LongLine, 'x') + answer;
    else if (mood == MOOD_MANY_LINES)
        link.Outbox += ManyLines(link.Protocol, answer);
    else if (mood == MOOD_TWICE)
        link.Outbox += answer + answer;
    else if (mood == MOOD_BLANK_LINE)
        link.Outbox += "\r\n" + answer;
    else if (mood == MOOD_RESET)
        VirtualReset(link.Link);
    else if (mood != MOOD_SILENT && mood != MOOD_CLOSE)
        link.Outbox += answer;
}

// --- turns ---

static void TakeDataLine(PeerLink& link, const std::string& line)
{
    if (line != ".\r\n") {
        link.Mail += line;
        return;
    }
    link.InData = false;
    Peer.Mail = link.Mail;
    link.Mail.clear();
    Say(link, line, "250 taken\r\n");
}

static void TakeLines(PeerLink& link)
{
    link.Input += VirtualTake(link.Link);
    for (size_t end = link.Input.find('\n'); end != std::string::npos && !link.IsLeaving;
         end = link.Input.find('\n')) {
        const std::string line = link.Input.substr(0, end + 1);
        link.Input.erase(0, end + 1);
        if (link.InData)
            TakeDataLine(link, line);
        else
            Say(link, line, Answer(link, line));
    }
}

// False: the link is no more.
static bool Serve(PeerLink& link)
{
    if (VirtualClientClosed(link.Link))
        return false;
    TakeLines(link);
    const size_t most = link.Drips ? 1 : link.Outbox.size();
    link.Outbox.erase(0, VirtualPut(link.Link, std::string_view(link.Outbox).substr(0, most)));
    if (!link.IsLeaving || !link.Outbox.empty())
        return true;
    VirtualClose(link.Link);
    return false;
}

static void AcceptAll()
{
    static constexpr const char* Greetings[] = { "220 peer\r\n", "+OK <1.2@x>\r\n",
                                                 "* OK peer\r\n" };
    for (size_t i = 0; i < std::size(HostPeerPorts); i++) {
        const auto protocol = static_cast<PeerProtocol>(i % 3);
        for (int number = VirtualAccept(HostPeerPorts[i]); number != 0;
             number = VirtualAccept(HostPeerPorts[i])) {
            Peer.Links.push_back({ number, protocol, false, 0, false, false, {}, {}, {} });
            Say(Peer.Links.back(), "* ", Greetings[protocol]);
        }
    }
}

// A host may choose waits of weeks: the clock leaps over them.
static void HurryClock()
{
    constexpr uint32_t SomeTurns = 3000, ManyTurns = 20000, MostTurns = 2000000;
    constexpr uint32_t Second = 1000, Hour = 3600 * Second;
    if (++Peer.Turns > MostTurns)
        Breach("an operation ends", Peer.Operation);
    if (Peer.Turns > SomeTurns)
        VirtualClockAdvance(Peer.Turns > ManyTurns ? Hour : Second);
}

static void Turn()
{
    AcceptAll();
    Peer.Links.remove_if([](PeerLink& link) { return !Serve(link); });
    HurryClock();
}

void HostPeerStart(const std::string& moods)
{
    Peer = {};
    Peer.Moods = moods;
    for (const uint16_t port : HostPeerPorts)
        VirtualListen(port);
    VirtualClockSetLimit(UINT64_MAX);
    VirtualClockOnTurn(Turn);
}

void HostPeerBegin(const char* operation)
{
    Peer.Operation = operation;
    Peer.Turns = 0;
}

const std::string& HostPeerMail()
{
    return Peer.Mail;
}
