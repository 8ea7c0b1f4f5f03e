// The player of scripts and the sink. Both get a turn whenever the library waits.
#include "tests/support/scripted_peer.h"

#include "tests/support/virtual_clock.h"
#include "tests/support/virtual_socket.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <gtest/gtest.h>
#include <regex>
#include <set>

static constexpr size_t FloodPiece = 16 * 1024; // bytes of a flood made at a time

enum StepKind {
    STEP_SEND,
    STEP_LINE,
    STEP_BYTES,
    STEP_REGEX,
    STEP_SKIP,
    STEP_CLOSE,
    STEP_RESET,
    STEP_SILENCE,
    STEP_WAIT,
    STEP_FLOOD
};

struct Step {
    StepKind Kind;
    std::string Text;
    uint64_t Number; // ms of a wait, pieces of a flood
    int LineNumber;  // in the script, from 1
    std::string Source;
};

struct Played {
    uint16_t Port = 0;
    PeerMode Mode;
    std::vector<Step> Steps;
    size_t Next = 0; // step
    int Link = 0;    // 0 = nobody has connected
    std::string Outbox, Input, Sent, Received;
    uint64_t FloodLeft = 0;
    bool FloodForEver = false;
    std::string FloodText;
    std::string Tag;      // first word of the client's last line
    uint64_t WaitEnd = 0; // virtual ms spent; 0 = no wait
    bool Over = false;    // closed, dropped, silent or failed: nothing more is looked at
    bool Failed = false, WasCut = false;
};

struct Sink {
    int Link = 0;
    std::string Input, Outbox;
    SinkMessage Message;
    bool InData = false, Greeted = false, Leaving = false;
};

static std::deque<Played> Scripts;
static std::deque<Sink> Sinks;
static std::set<uint16_t> SinkPorts;
static std::vector<SinkMessage> Taken;

// --- scripts ---

std::string PeerUnescape(const std::string& text)
{
    std::string bytes;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            bytes += text[i];
            continue;
        }
        const char code = text[++i];
        if (code == 'x' && i + 2 < text.size()) {
            bytes += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            bytes += code == 'r' ? '\r' : code == 'n' ? '\n' : code == 't' ? '\t' : code;
        }
    }
    return bytes;
}

std::string PeerEscape(const std::string& bytes)
{
    std::string text;
    for (const char c : bytes) {
        char code[8];
        snprintf(code, sizeof(code), "\\x%02X", static_cast<unsigned>(c) & 255);
        if (c == '\r')
            text += "\\r";
        else if (c == '\n')
            text += "\\n";
        else if (c == '\\')
            text += "\\\\";
        else
            text += c >= ' ' && c < 127 ? std::string(1, c) : std::string(code);
    }
    return text;
}

static bool Begins(const std::string& text, const char* start)
{
    return text.rfind(start, 0) == 0;
}

static Step ParseAction(const std::string& line, int lineNumber)
{
    const std::string rest = line.substr(std::min<size_t>(2, line.size()));
    if (rest == "close")
        return { STEP_CLOSE, "", 0, lineNumber, line };
    if (rest == "reset")
        return { STEP_RESET, "", 0, lineNumber, line };
    if (rest == "silence")
        return { STEP_SILENCE, "", 0, lineNumber, line };
    if (Begins(rest, "wait "))
        return { STEP_WAIT, "", std::stoull(rest.substr(5)), lineNumber, line };
    const size_t blank = rest.rfind(' ');
    if (Begins(rest, "flood ") && blank > 6)
        return { STEP_FLOOD, PeerUnescape(rest.substr(6, blank - 6)),
                 std::stoull(rest.substr(blank + 1)), lineNumber, line };
    ADD_FAILURE() << "script line " << lineNumber << " can't be understood: " << line;
    return { STEP_SILENCE, "", 0, lineNumber, line };
}

static Step ParseStep(const std::string& line, int lineNumber)
{
    const std::string text = line.size() > 3 ? line.substr(3) : "";
    if (Begins(line, "S:"))
        return { STEP_SEND, text + "\r\n", 0, lineNumber, line };
    if (Begins(line, "S-"))
        return { STEP_SEND, PeerUnescape(text), 0, lineNumber, line };
    if (Begins(line, "C:"))
        return { STEP_LINE, text, 0, lineNumber, line };
    if (Begins(line, "C-"))
        return { STEP_BYTES, PeerUnescape(text), 0, lineNumber, line };
    if (Begins(line, "C~"))
        return { STEP_REGEX, text, 0, lineNumber, line };
    if (Begins(line, "C..."))
        return { STEP_SKIP, "", 0, lineNumber, line };
    return ParseAction(line, lineNumber);
}

static std::vector<Step> ParseScript(const std::string& script)
{
    std::vector<Step> steps;
    int lineNumber = 0;
    for (size_t at = 0; at < script.size();) {
        const size_t end = std::min(script.find('\n', at), script.size());
        std::string line = script.substr(at, end - at);
        at = end + 1;
        ++lineNumber;
        line.erase(0, std::min(line.find_first_not_of(" \t"), line.size()));
        if (!line.empty() && line[0] != '#')
            steps.push_back(ParseStep(line, lineNumber));
    }
    return steps;
}

// --- playing ---

static void Fail(Played& p, const std::string& got)
{
    if (p.Next < p.Steps.size())
        ADD_FAILURE() << "script line " << p.Steps[p.Next].LineNumber << "\n  expected ["
                      << p.Steps[p.Next].Source << "]\n  got      [" << PeerEscape(got) << "]";
    else
        ADD_FAILURE() << "behind the end of the script\n  got      [" << PeerEscape(got) << "]";
    p.Failed = p.Over = true;
    VirtualClose(p.Link);
}

static void CutNow(Played& p)
{
    p.WasCut = p.Over = true;
    if (p.Mode.Cut == PEER_CUT_CLOSE)
        VirtualClose(p.Link);
    if (p.Mode.Cut == PEER_CUT_RESET)
        VirtualReset(p.Link);
}

static void FillFlood(Played& p)
{
    while ((p.FloodLeft > 0 || p.FloodForEver) && p.Outbox.size() < FloodPiece) {
        p.Outbox += p.FloodText;
        p.FloodLeft -= p.FloodForEver ? 0 : 1;
    }
}

// Sends what stands in the outbox, as far as mode, window and cut let it. True: all of it went.
static bool Deliver(Played& p)
{
    size_t most = p.Mode.ByteByByte ? 1 : p.Outbox.size();
    if (p.Mode.CutAt >= 0) {
        const size_t left = static_cast<size_t>(p.Mode.CutAt) - p.Sent.size();
        if (left == 0) {
            CutNow(p);
            return false;
        }
        most = std::min(most, left);
    }
    const size_t count = VirtualPut(p.Link, std::string_view(p.Outbox).substr(0, most));
    p.Sent.append(p.Outbox, 0, count);
    p.Outbox.erase(0, count);
    if (p.Mode.CutAt >= 0 && p.Sent.size() == static_cast<size_t>(p.Mode.CutAt)) {
        CutNow(p);
        return false;
    }
    return p.Outbox.empty();
}

// A step's text with the client's tag filled in.
static std::string WithTag(const Played& p, const Step& step)
{
    std::string text = step.Text;
    for (size_t at = 0; (at = text.find("{T}", at)) != std::string::npos; at += p.Tag.size())
        text.replace(at, 3, p.Tag);
    return text;
}

static bool LineMatches(const Played& p, const Step& step, const std::string& line)
{
    if (step.Kind == STEP_LINE)
        return line == WithTag(p, step);
    return std::regex_match(line, std::regex(step.Text));
}

// Takes one line for a line step. False: it is not there yet, or was wrong.
static bool PlayLine(Played& p, bool skipping)
{
    const Step& step = p.Steps[p.Next + (skipping ? 1 : 0)];
    for (;;) {
        const size_t end = p.Input.find("\r\n");
        if (end == std::string::npos) {
            const bool hopeless =
                step.Kind == STEP_LINE && !skipping && p.Input.size() > WithTag(p, step).size() + 1;
            if (hopeless)
                Fail(p, p.Input);
            return false;
        }
        const std::string line = p.Input.substr(0, end);
        const bool matches = LineMatches(p, step, line);
        if (!matches && !skipping) {
            Fail(p, line);
            return false;
        }
        p.Input.erase(0, end + 2);
        p.Tag = line.substr(0, line.find(' '));
        if (matches) {
            p.Next += skipping ? 2 : 1;
            return true;
        }
    }
}

static bool PlayBytes(Played& p)
{
    const std::string& wanted = p.Steps[p.Next].Text;
    const size_t count = std::min(wanted.size(), p.Input.size());
    if (p.Input.compare(0, count, wanted, 0, count) != 0) {
        Fail(p, p.Input.substr(0, wanted.size()));
        return false;
    }
    if (count < wanted.size())
        return false;
    p.Input.erase(0, count);
    ++p.Next;
    return true;
}

static bool PlayWait(Played& p)
{
    if (p.WaitEnd == 0)
        p.WaitEnd = VirtualClockSpent() + p.Steps[p.Next].Number;
    if (VirtualClockSpent() < p.WaitEnd)
        return false;
    p.WaitEnd = 0;
    ++p.Next;
    return true;
}

static bool PlayEnd(Played& p, StepKind kind)
{
    p.Over = true;
    ++p.Next;
    if (kind == STEP_CLOSE)
        VirtualClose(p.Link);
    if (kind == STEP_RESET)
        VirtualReset(p.Link);
    return false;
}

static bool PlaySend(Played& p)
{
    if (!p.Input.empty()) {
        Fail(p, p.Input); // RFC 5321, 4.3: a client without pipelining waits for the reply
        return false;
    }
    while (p.Next < p.Steps.size() && p.Steps[p.Next].Kind == STEP_SEND)
        p.Outbox += WithTag(p, p.Steps[p.Next++]);
    if (p.Next < p.Steps.size() && p.Steps[p.Next].Kind == STEP_FLOOD) {
        const Step& flood = p.Steps[p.Next++];
        p.FloodText = flood.Text;
        p.FloodLeft = flood.Number;
        p.FloodForEver = flood.Number == 0;
    }
    return true;
}

// Plays one step. False: it can't go on now.
static bool PlayStep(Played& p)
{
    const Step& step = p.Steps[p.Next];
    switch (step.Kind) {
    case STEP_SEND:
    case STEP_FLOOD:
        return PlaySend(p);
    case STEP_LINE:
    case STEP_REGEX:
        return PlayLine(p, false);
    case STEP_SKIP:
        return PlayLine(p, true);
    case STEP_BYTES:
        return PlayBytes(p);
    case STEP_WAIT:
        return PlayWait(p);
    default:
        return PlayEnd(p, step.Kind);
    }
}

// The client has gone: what was left to play is missing, but for the server's own endings.
static void PlayFarewell(Played& p)
{
    while (p.Next < p.Steps.size() &&
           (p.Steps[p.Next].Kind >= STEP_CLOSE && p.Steps[p.Next].Kind <= STEP_WAIT))
        ++p.Next;
    if (p.Next < p.Steps.size() && !p.Mode.MayEndEarly)
        Fail(p, p.Input + "<the client has closed>");
    p.Over = true;
}

static void PlayTurn(Played& p)
{
    if (p.Link == 0) {
        p.Link = VirtualAccept(p.Port);
        if (p.Link == 0)
            return;
        if (p.Mode.CutAt == 0)
            CutNow(p);
    }
    if (p.Over)
        return;
    const std::string got = VirtualTake(p.Link);
    p.Input += got;
    p.Received += got;
    bool goesOn = true;
    while (goesOn && !p.Over) {
        FillFlood(p);
        if (!p.Outbox.empty() && !Deliver(p))
            break;
        if (p.FloodForEver || p.FloodLeft > 0)
            break;
        goesOn = p.Next < p.Steps.size() && PlayStep(p);
    }
    const bool ended = p.Next == p.Steps.size() && p.Outbox.empty() && !p.FloodForEver;
    if (!p.Over && ended && !p.Input.empty())
        Fail(p, p.Input);
    if (!p.Over && VirtualClientClosed(p.Link))
        PlayFarewell(p);
}

// --- the sink ---

static void SinkCommand(Sink& sink, const std::string& line)
{
    const std::string verb = line.substr(0, 4);
    std::string reply = "250 ok\r\n";
    if (verb == "MAIL")
        sink.Message = { line, {}, "" };
    if (verb == "RCPT")
        sink.Message.To.push_back(line);
    if (verb == "DATA") {
        sink.InData = true;
        reply = "354 go\r\n";
    }
    if (verb == "QUIT") {
        sink.Leaving = true;
        reply = "221 bye\r\n";
    }
    sink.Outbox += reply;
}

static void SinkDataLine(Sink& sink, const std::string& line)
{
    if (line != ".") {
        sink.Message.Data += line.substr(line[0] == '.' ? 1 : 0) + "\r\n";
        return;
    }
    Taken.push_back(sink.Message);
    sink.InData = false;
    sink.Outbox += "250 taken\r\n";
}

static void SinkTurn(Sink& sink)
{
    sink.Input += VirtualTake(sink.Link);
    if (!sink.Greeted)
        sink.Outbox += "220 sink\r\n";
    sink.Greeted = true;
    size_t at = 0;
    for (size_t end; (end = sink.Input.find("\r\n", at)) != std::string::npos; at = end + 2) {
        const std::string line = sink.Input.substr(at, end - at);
        sink.InData ? SinkDataLine(sink, line) : SinkCommand(sink, line);
    }
    sink.Input.erase(0, at);
    sink.Outbox.erase(0, VirtualPut(sink.Link, sink.Outbox));
    if (sink.Leaving && sink.Outbox.empty())
        VirtualClose(sink.Link);
}

// --- all together ---

static void PeersTurn()
{
    // A port's scripts are taken in order, so the first without a connection is asked alone.
    std::set<uint16_t> waiting;
    for (Played& p : Scripts) {
        if (p.Link != 0 || waiting.insert(p.Port).second)
            PlayTurn(p);
    }
    for (const uint16_t port : SinkPorts) {
        for (int link = VirtualAccept(port); link != 0; link = VirtualAccept(port)) {
            Sinks.emplace_back();
            Sinks.back().Link = link;
        }
    }
    for (Sink& sink : Sinks)
        SinkTurn(sink);
}

void PeersReset()
{
    Scripts.clear();
    Sinks.clear();
    SinkPorts.clear();
    Taken.clear();
    VirtualClockOnTurn(PeersTurn);
}

void PeerScript(uint16_t port, const std::string& script, PeerMode mode)
{
    Played p;
    p.Port = port;
    p.Mode = mode;
    p.Steps = ParseScript(script);
    Scripts.push_back(std::move(p));
    VirtualListen(port);
}

void PeersCheck()
{
    PeersTurn(); // what was sent last is still to be looked at
    for (Played& p : Scripts) {
        const bool excused = p.Mode.MayEndEarly || p.WasCut || p.Failed;
        if (p.Link == 0 && !excused)
            ADD_FAILURE() << "nobody has connected to port " << p.Port << " for a script";
        else if (p.Next < p.Steps.size() && !excused)
            Fail(p, p.Input + "<the test has ended>");
    }
}

const std::string& PeerReceived(size_t script)
{
    return Scripts.at(script).Received;
}

const std::string& PeerSent(size_t script)
{
    return Scripts.at(script).Sent;
}

bool PeerWasCut(size_t script)
{
    return Scripts.at(script).WasCut;
}

bool PeerWasPlayed(size_t script)
{
    const Played& p = Scripts.at(script);
    return !p.Failed && !p.WasCut && p.Next == p.Steps.size() && p.Outbox.empty();
}

void SinkListen(uint16_t port)
{
    SinkPorts.insert(port);
    VirtualListen(port);
}

const std::vector<SinkMessage>& SinkMessages()
{
    return Taken;
}
