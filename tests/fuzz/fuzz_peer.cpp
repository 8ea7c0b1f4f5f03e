// Both servers. They have their turn whenever the library waits.
#include "tests/fuzz/fuzz_peer.h"

#include "tests/support/virtual_clock.h"
#include "tests/support/virtual_socket.h"

#include <algorithm>

constexpr uint32_t WaitUnit = 10; // ms
constexpr uint32_t TagChars = 12; // at most

struct FuzzPeer {
    bool IsHonest;
    bool Closes;         // behind the message
    bool IsLeaving;      // closes when the outbox is empty
    size_t Piece;        // bytes at a time, 0 = all
    std::string Message; // what a fetch answers, or the script
    size_t Next;         // in the script
    uint64_t WaitEnd;    // virtual ms spent; 0 = no wait
    int Link;            // 0 = nobody has connected
    std::string Tag;     // of the last command
    std::string Input, Outbox;
    size_t Sent; // of the outbox
};

static FuzzPeer Peer;

// --- both ---

static void HangUp()
{
    Peer.Link = 0;
    Peer.Input.clear();
    Peer.Outbox.clear();
    Peer.Sent = 0;
    Peer.IsLeaving = false;
    Peer.WaitEnd = 0;
}

// Sends a piece of the outbox: true if nothing is left.
static bool Deliver()
{
    const size_t most = Peer.Piece == 0 ? Peer.Outbox.size() : Peer.Piece;
    Peer.Sent += VirtualPut(Peer.Link, std::string_view(Peer.Outbox).substr(Peer.Sent, most));
    if (Peer.Sent < Peer.Outbox.size())
        return false;
    Peer.Outbox.clear();
    Peer.Sent = 0;
    return true;
}

static bool TakeCommand(std::string& lineOut)
{
    const size_t end = Peer.Input.find('\n');
    if (end == std::string::npos)
        return false;
    lineOut = Peer.Input.substr(0, end + 1);
    Peer.Tag = lineOut.substr(0, lineOut.find_first_of(" \r\n"));
    Peer.Input.erase(0, end + 1);
    return true;
}

// --- the honest server ---

static void Greet(bool isImap)
{
    Peer.Outbox = isImap ? "* OK ready\r\n" : "+OK <1.2@server.test>\r\n";
}

static void AnswerImap(const std::string& command)
{
    const auto asks = [&](const char* word) { return command.find(word) != std::string::npos; };
    if (asks(" SELECT "))
        Peer.Outbox += "* 2 EXISTS\r\n";
    else if (asks("RFC822.SIZE"))
        Peer.Outbox += "* 1 FETCH (RFC822.SIZE 160)\r\n";
    else if (asks("RFC822"))
        Peer.Outbox += Peer.Message;
    else if (asks(" SEARCH "))
        Peer.Outbox += "* SEARCH 1 2\r\n";
    Peer.Outbox += Peer.Tag + " OK\r\n";
    Peer.IsLeaving = asks(" LOGOUT");
}

static void AnswerPop3(const std::string& command)
{
    const std::string verb = command.substr(0, 4);
    if (verb == "STAT")
        Peer.Outbox += "+OK 2 320\r\n";
    else if (verb == "LIST")
        Peer.Outbox += "+OK 1 160\r\n";
    else if (verb == "RETR")
        Peer.Outbox += Peer.Message;
    else
        Peer.Outbox += "+OK\r\n";
    Peer.IsLeaving = verb == "QUIT" || (verb == "RETR" && Peer.Closes);
}

static void ServeTurn()
{
    std::string command;
    while (!Peer.IsLeaving && TakeCommand(command))
        Peer.Tag.starts_with("RYN") ? AnswerImap(command) : AnswerPop3(command);
    if (!Deliver() || !Peer.IsLeaving)
        return;
    VirtualClose(Peer.Link);
    HangUp();
}

// --- the script ---

static bool PlayWait(uint8_t units)
{
    if (Peer.WaitEnd == 0)
        Peer.WaitEnd = VirtualClockSpent() + WaitUnit * units;
    if (VirtualClockSpent() < Peer.WaitEnd)
        return false;
    Peer.WaitEnd = 0;
    Peer.Next += 2;
    return true;
}

static bool PlayEnd(bool isReset)
{
    if (isReset)
        VirtualReset(Peer.Link);
    else
        VirtualClose(Peer.Link);
    HangUp();
    return false;
}

static bool IsMark(char c)
{
    return c >= MARK_LINE && c <= MARK_TAG;
}

static void FillOutbox()
{
    const std::string& script = Peer.Message;
    const auto begin = script.begin() + static_cast<ptrdiff_t>(Peer.Next);
    const auto end = std::find_if(begin, script.end(), IsMark);
    Peer.Outbox.append(begin, end);
    Peer.Next += static_cast<size_t>(end - begin);
}

// Plays what stands next. False: no more in this turn.
static bool PlayStep()
{
    if (!Peer.Outbox.empty() && !Deliver())
        return false;
    const std::string& script = Peer.Message;
    if (Peer.Next == script.size())
        return PlayEnd(false);
    std::string command;
    switch (script[Peer.Next]) {
    case MARK_LINE:
        Peer.Next += TakeCommand(command) ? 1 : 0;
        return !command.empty();
    case MARK_WAIT:
        if (Peer.Next + 1 < script.size())
            return PlayWait(static_cast<uint8_t>(script[Peer.Next + 1]));
        ++Peer.Next;
        return true;
    case MARK_CLOSE:
    case MARK_RESET:
        return PlayEnd(script[Peer.Next++] == MARK_RESET);
    case MARK_SILENCE:
        return false;
    case MARK_PIECE:
        ++Peer.Next;
        return false;
    case MARK_TAG:
        ++Peer.Next;
        Peer.Outbox = Peer.Tag.substr(0, TagChars);
        return true;
    default:
        FillOutbox();
        return true;
    }
}

// The client has gone: the silence that this connection was told is over.
static void PlayFarewell()
{
    if (Peer.Next < Peer.Message.size() && Peer.Message[Peer.Next] == MARK_SILENCE)
        ++Peer.Next;
    HangUp();
}

static void PlayTurn()
{
    while (Peer.Link != 0 && PlayStep()) {
    }
    if (Peer.Link != 0 && VirtualClientClosed(Peer.Link))
        PlayFarewell();
}

// --- turns ---

static void Accept()
{
    for (const uint16_t port : { PeerPop3Port, PeerImapPort }) {
        if (Peer.Link != 0)
            return;
        Peer.Link = VirtualAccept(port);
        if (Peer.Link != 0 && Peer.IsHonest)
            Greet(port == PeerImapPort);
    }
}

static void PeerTurn()
{
    Accept();
    if (Peer.Link == 0)
        return;
    Peer.Input += VirtualTake(Peer.Link);
    if (!Peer.IsHonest)
        PlayTurn();
    else if (VirtualClientClosed(Peer.Link))
        HangUp();
    else
        ServeTurn();
}

static void Start(const std::string& message, size_t piece)
{
    constexpr size_t MostPieces = 500;
    Peer = {};
    Peer.Piece = piece == 0 ? 0 : std::max(piece, message.size() / MostPieces);
    Peer.Message = message;
    VirtualListen(PeerPop3Port);
    VirtualListen(PeerImapPort);
    VirtualClockOnTurn(PeerTurn);
}

void PeerServe(const std::string& message, size_t piece, bool closes)
{
    Start(message, piece);
    Peer.IsHonest = true;
    Peer.Closes = closes;
}

void PeerPlay(const std::string& script, size_t piece)
{
    Start(script, piece);
}

uint32_t PeerWaits(const std::string& script, uint32_t pieceMs)
{
    uint32_t ms = 0;
    for (const char c : script) {
        ms += c == MARK_WAIT ? WaitUnit * 255 : 0;
        ms += c == MARK_PIECE ? pieceMs : 0;
        ms += c == MARK_TAG ? TagChars * pieceMs : 0;
    }
    return ms;
}
