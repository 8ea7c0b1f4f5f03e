// Script pieces and drivers of the wire tests.
#include "tests/wire/dialogue.h"

std::string Lines(const char* step, std::initializer_list<std::string> texts)
{
    std::string script;
    for (const std::string& text : texts)
        script += step + (" " + text) + "\n";
    return script;
}

std::string OpenScript()
{
    return "S: 220 ready\nC: HELO x.example\nS: 250 hello\n";
}

std::string EnvelopeScript(std::initializer_list<std::string> rcpts)
{
    std::string script = "C: MAIL FROM:<a@x.example>\nS: 250 ok\n";
    for (const std::string& rcpt : rcpts)
        script += "C: RCPT TO:" + rcpt + "\nS: 250 ok\n";
    return script + "C: DATA\nS: 354 go\n";
}

std::string IdLine()
{
    return "C~ Message-ID: <[0-9a-f]{8}\\.[0-9a-f]{24}\\.0\\.0@x\\.example>\n";
}

std::string HeadLines()
{
    return std::string("C: X-Mailer: Brindlecroft Rynmark Version 8.4.1 \n") +
           Lines("C:", { "Date: Tue, 17 Nov 2026 22:52:06 +0100", "To: <b@y.example>",
                         "From: Ann <a@x.example>" }) +
           IdLine() + "C: Subject: Hello\n";
}

std::string HeadScript()
{
    return HeadLines() + "C:\n";
}

std::string ByeScript()
{
    return "C: QUIT\nS: 221 bye\n";
}

std::string Conversation(const std::string& headAndBody)
{
    return OpenScript() + EnvelopeScript({ "<b@y.example>" }) + headAndBody + "C: .\nS: 250 ok\n" +
           ByeScript();
}

int32_t Connect(bool manual, uint32_t channel)
{
    return HostFinish(channel, rynSmtpConnect(channel, "server.test", Sender, nullptr), manual);
}

int32_t Send(const Mail& m, bool manual, uint32_t channel)
{
    const int32_t result =
        m.Html ? rynSendHTML(channel, m.To, m.Cc, m.Bcc, m.Subject, m.Message, nullptr,
                             m.Alternative, nullptr)
               : rynSendEmail(channel, m.To, m.Cc, m.Bcc, m.Subject, m.Message, nullptr);
    return HostFinish(channel, result, manual);
}

int32_t Close(bool manual, uint32_t channel)
{
    return HostFinish(channel, rynClose(channel), manual);
}

void Deliver(const Mail& mail, bool manual)
{
    EXPECT_EQ(Connect(manual), 0);
    EXPECT_EQ(Send(mail, manual), 0);
    EXPECT_EQ(Close(manual), 0);
}

static std::string WithSeed(std::string script)
{
    for (size_t at; (at = script.find("{B}")) != std::string::npos;)
        script.replace(at, 3, HostSeed());
    return script;
}

bool WireTest::Begin(const std::string& script, const char* way)
{
    const bool manual = *way == 'm';
    Renew();
    HostAttach();
    PeerScript(HostPort, WithSeed(script), { *way == 'b' });
    HostSet(0, RYN_AUTO_CALL_DRIVER, manual ? 0 : 1);
    return manual;
}

void WireTest::PlayAllWays(const std::string& script, const Mail& mail,
                           const std::function<void()>& settings)
{
    for (const char* way : { "whole", "byte by byte", "manual" }) {
        SCOPED_TRACE(way);
        const bool manual = Begin(script, way);
        if (settings)
            settings();
        Deliver(mail, manual);
    }
}

static std::string SentText(WireTest& test, const Mail& mail, const std::function<void()>& settings)
{
    test.Begin(Conversation("C...\n"));
    if (settings)
        settings();
    Deliver(mail);
    const std::string& all = PeerReceived(0);
    const std::string data = "DATA\r\n";
    const size_t begin = std::min(all.find(data) + data.size(), all.size());
    const size_t end = all.rfind(".\r\nQUIT");
    return end == std::string::npos ? "<no message>" : all.substr(begin, end - begin);
}

std::string WireTest::Head(const Mail& mail, const std::function<void()>& settings)
{
    const std::string text = SentText(*this, mail, settings);
    return text.substr(0, text.find("\r\n\r\n") + 2);
}

std::string WireTest::Body(const Mail& mail, const std::function<void()>& settings)
{
    const std::string text = SentText(*this, mail, settings);
    const size_t end = text.find("\r\n\r\n");
    return end == std::string::npos ? text : text.substr(end + 4);
}
