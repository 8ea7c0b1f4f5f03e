// Settings, configuration and process of a tunnel. stunnel reads the configuration; what its
// directives mean is told in its manual.
#include "transport/tunnel_ops.h"

#include "codec/text.h"
#include "frame/channel.h"
#include "frame/log.h"
#include "frame/settings.h"
#include "platform/platform.h"
#include "transport/process_ops.h"
#include "transport/vfile.h"

#include <cstring>

constexpr int32_t PathChars = 255;
constexpr int32_t ExtraChars = 1022; // lines of the host's, beside a line end
constexpr size_t ConfigPathCapacity = 256;
constexpr uint32_t OPTION_TASKBAR = 1; // stunnel shows itself
constexpr uint32_t OPTION_NO_LOG = 2;  // stunnel keeps no log
constexpr uint32_t ListenPause = 100;  // ms that a new process has to open its port

// One set of settings for all channels.
struct TunnelSettings {
    uint32_t Options;
    char Dir[PathChars + 1]; // empty = not configured
    char Program[PathChars + 1];
    char Cert[PathChars + 1];
    char CaPath[PathChars + 1];
    char CaFile[PathChars + 1]; // empty = nothing is verified
    char Extra[ExtraChars + 2 + 1];
    std::atomic<bool> ConfigWritten;
};
static constinit TunnelSettings Tunnel = {};

void ClearTunnelSettings()
{
    Tunnel.Options = 0;
    for (char* text :
         { Tunnel.Dir, Tunnel.Program, Tunnel.Cert, Tunnel.CaPath, Tunnel.CaFile, Tunnel.Extra })
        *text = 0;
    Tunnel.ConfigWritten.store(false, std::memory_order_relaxed);
}

const char* TunnelFolder()
{
    return Tunnel.Dir;
}

bool TunnelConfigWritten()
{
    return Tunnel.ConfigWritten.load(std::memory_order_relaxed);
}

static bool IsGiven(const char* text)
{
    return text != nullptr && *text != 0;
}

// --- settings ---

// Copies a folder's name without a '\' at its end, up to its first line end.
static void CopyFolder(char (&target)[PathChars + 1], const char* folder)
{
    CopyField(target, folder);
    CutAtLineEnd(target);
    const int32_t length = TextLength(target);
    if (length > 0 && target[length - 1] == '\\')
        target[length - 1] = 0;
}

// The full path of a file: its name if that is absolute, else the folder and the name.
static void FormPath(char (&target)[PathChars + 1], const char* folder, const char* name)
{
    const bool isAbsolute = *name == '\\' || *name == '/' || (*name != 0 && name[1] == ':');
    target[0] = 0;
    if (!isAbsolute) {
        CopyField(target, folder);
        const int32_t length = TextLength(target);
        if (length > 0 && target[length - 1] != '\\')
            AppendText(target, "\\", PathChars);
    }
    AppendText(target, name, PathChars);
    CutAtLineEnd(target);
}

// Logs which file serves the run.
static void LogFileStamp(const char* label, const char* path, const Channel& ch)
{
    OsLocalTime time;
    uint32_t size = 0;
    if (osFileStamp(path, time, size) < 0)
        return;
    LogFormat(ch, "%s %d/%d/%d %02d:%02d:%02d (%u bytes) %s\r\n", label, time.Month, time.Day,
              time.Year, time.Hour, time.Minute, time.Second, size, path);
}

// Finds a file that a tunnel needs: 1 or RYN_ERR_NO_SUCH_FILE.
static int32_t FindTunnelFile(Channel& ch, const char* label, const char* path)
{
    if (TestFileExists(&ch, path) == 0)
        return RYN_ERR_NO_SUCH_FILE;
    LogFileStamp(label, path, ch);
    return 1;
}

int32_t rynSetProxySSL(int32_t unused, uint32_t options, const char* folder,
                       const char* certificate, const char* program)
{
    if (ChannelCount.load(std::memory_order_acquire) == 0)
        return RYN_ERR_NOT_ATTACHED;
    if (folder == nullptr || program == nullptr || certificate == nullptr)
        return RYN_ERR_NO_SERVER;
    Channel& ch = *ChannelTable[0];
    LogFormat(ch, "*** rynSetProxySSL(%d,%d,'%s','%s','%s')\r\n", unused,
              static_cast<int32_t>(options), folder, certificate, program);
    if (*folder == 0 || *program == 0)
        return RYN_ERR_NO_SERVER;
    if (TestDirWritable(&ch, folder) == 0)
        return RYN_ERR_NO_SUCH_PATH;
    char programPath[PathChars + 1];
    char certPath[PathChars + 1];
    FormPath(programPath, folder, program);
    if (const int32_t status = FindTunnelFile(ch, " EXE: ", programPath); status < 0)
        return status;
    FormPath(certPath, folder, certificate);
    if (const int32_t status = FindTunnelFile(ch, "CERT: ", certPath); status < 0)
        return status;
    CopyFolder(Tunnel.Dir, folder);
    CopyField(Tunnel.Program, programPath);
    CopyField(Tunnel.Cert, certPath);
    Tunnel.Options = options;
    return 1;
}

int32_t rynSetCertAuth(const char* folder, const char* file)
{
    char path[PathChars + 1];
    CopyField(path, file == nullptr ? "" : file);
    CutAtLineEnd(path);
    if (path[0] == 0) // what was set before stays: verification is not turned off in passing
        return RYN_ERR_NO_SERVER;
    CopyFolder(Tunnel.CaPath, folder == nullptr ? "" : folder);
    return CopyField(Tunnel.CaFile, path);
}

int32_t rynConfigSSL(int32_t option, const char* text)
{
    constexpr int32_t ExtraLines = 1;
    if (ChannelCount.load(std::memory_order_acquire) == 0)
        return RYN_ERR_NOT_ATTACHED;
    LogFormat(*ChannelTable[0], "*** rynConfigSSL(%d,'%s')\r\n", option,
              text == nullptr ? "(null)" : text);
    if (option != ExtraLines)
        return RYN_ERR_NO_SUCH_OPTION;
    if (!IsGiven(text))
        return RYN_ERR_NO_SERVER;
    const int32_t length = CopyText(Tunnel.Extra, text, ExtraChars);
    if (Tunnel.Extra[length - 1] != '\n')
        AppendText(Tunnel.Extra, "\r\n", ExtraChars + 2);
    return TextLength(Tunnel.Extra);
}

// --- configuration ---

struct ProtocolRow {
    const char* Label;   // in file names
    const char* Section; // of the configuration
};
static const ProtocolRow Protocols[] = { { "Smtp", "[ssmtp]" },
                                         { "Pop3", "[spop3]" },
                                         { "Imap", "[imaps]" } };

// A line of the configuration; false if the disk didn't take it.
static bool WriteConfigLine(int32_t file, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

static bool WriteConfigLine(int32_t file, const char* format, ...)
{
    char line[FormatCapacity];
    va_list arguments;
    va_start(arguments, format);
    const int32_t length = FormatTextV(line, sizeof line, format, arguments);
    va_end(arguments);
    return u_Write(file, line, length) == length;
}

// What stands in front of the service.
static bool WriteGlobalPart(int32_t file, const char* label, int32_t channel)
{
    bool isGood = WriteConfigLine(file, "; Configuration file (CID %u)\r\n", CID);
    if ((Tunnel.Options & OPTION_NO_LOG) == 0)
        isGood &=
            WriteConfigLine(file, "output = %s\\%sLog(%d).txt\r\n", Tunnel.Dir, label, channel);
    isGood &= WriteConfigLine(file, "taskbar = %s\r\n",
                              (Tunnel.Options & OPTION_TASKBAR) != 0 ? "yes" : "no");
    isGood &= WriteConfigLine(file, "cert = %s\r\n", Tunnel.Cert);
    isGood &= WriteConfigLine(file, "client = yes\r\n");
    const int32_t length = TextLength(Tunnel.Extra);
    if (length > 0)
        isGood &= u_Write(file, Tunnel.Extra, length) == length;
    return isGood;
}

// The service, and what is asked of the server's certificate.
static bool WriteService(int32_t file, TunnelProtocol protocol, const char* server,
                         uint16_t acceptPort, uint16_t connectPort)
{
    constexpr uint16_t SmtpsPort =
        465; // TLS from the first byte; other SMTP ports begin by STARTTLS
    bool isGood = true;
    if (acceptPort > 0) {
        isGood &= WriteConfigLine(file, "%s\r\n", Protocols[protocol].Section);
        isGood &= WriteConfigLine(file, "accept = %d\r\n", acceptPort);
        isGood &= WriteConfigLine(file, "connect = %s:%d\r\n", server, connectPort);
    }
    if (acceptPort > 0 && protocol == TUNNEL_SMTP && connectPort != SmtpsPort)
        isGood &= WriteConfigLine(file, "protocol = smtp\r\n");
    if (Tunnel.CaFile[0] == 0)
        return isGood;
    isGood &= WriteConfigLine(file, "verifyChain = yes\r\n");
    if (Tunnel.CaPath[0] != 0)
        isGood &= WriteConfigLine(file, "CApath = %s\r\n", Tunnel.CaPath);
    isGood &= WriteConfigLine(file, "CAfile = %s\r\n", Tunnel.CaFile);
    isGood &= WriteConfigLine(file, "checkHost = %s\r\n", server);
    return isGood & WriteConfigLine(file, "OCSPaia = yes\r\n");
}

// The path of a channel's configuration: false if it does not fit.
static bool FormConfigPath(char (&path)[ConfigPathCapacity], const char* label, int32_t channel)
{
    char whole[FormatCapacity];
    const int32_t length =
        FormatText(whole, sizeof whole, "%s\\%sConfig(%d).txt", Tunnel.Dir, label, channel);
    CopyField(path, whole);
    return length < static_cast<int32_t>(sizeof path);
}

int32_t WriteStunnelConfig(const Channel& ch, TunnelProtocol protocol, const char* server,
                           uint16_t acceptPort, uint16_t connectPort)
{
    constexpr int32_t ServerChars = 255;
    char path[ConfigPathCapacity];
    char serverLine[ServerChars + 1];
    CopyField(serverLine, server);
    CutAtLineEnd(serverLine); // a name must not bring directives of its own
    const char* label = Protocols[protocol].Label;
    if (!FormConfigPath(path, label, ch.ChannelNumber))
        return RYN_ERR_CANNOT_CREATE_FILE;
    const int32_t file = u_Create(path, 2, false);
    if (file < 1)
        return RYN_ERR_CANNOT_CREATE_FILE;
    const bool isGood = WriteGlobalPart(file, label, ch.ChannelNumber) &&
                        WriteService(file, protocol, serverLine, acceptPort, connectPort);
    u_Close(file);
    Tunnel.ConfigWritten.store(true, std::memory_order_relaxed);
    return isGood ? 1 : RYN_ERR_CANNOT_CREATE_FILE;
}

// --- process ---

int32_t StartStunnel(Channel& ch, TunnelProtocol protocol)
{
    const char* label = Protocols[protocol].Label;
    LogFormat(ch, "*** StartStunnel(%d,'%s')\n", ch.ChannelNumber, label);
    if (ch.StunnelSlot >= 0 && ProgramIsRunning(ch.StunnelSlot) == 1)
        return 1;
    ch.StunnelSlot = -1;
    char line[FormatCapacity];
    FormatText(line, sizeof line, "%s %s\\%sConfig(%d).txt", Tunnel.Program, Tunnel.Dir, label,
               ch.ChannelNumber);
    LogFormat(ch, "%s\r\n", line);
    const int32_t entry = StartProgram(line);
    if (entry < 0) {
        LogFormat(ch, "Stunnel could not be started (chan %d)\r\n", ch.ChannelNumber);
        osErrorText(LastFileError(), line, sizeof line);
        LogText(&ch, line);
        return RYN_ERR_PROXY_START;
    }
    ch.StunnelSlot = entry;
    LogFormat(ch, "Stunnel started (chan %d, process %d)\r\n", ch.ChannelNumber, entry);
    osSleep(ListenPause);
    return 1;
}

void KillStunnel(Channel& ch)
{
    if (ch.StunnelSlot < 0)
        return;
    LogFormat(ch, "KillStunnel(%d) pid=%d\n", ch.ChannelNumber, ch.StunnelSlot);
    osYield();
    if (KillProgram(ch.StunnelSlot, 0) == 0) {
        LogFormat(ch, "Could not kill Stunnel (chan %d, process %d)\r\n", ch.ChannelNumber,
                  ch.StunnelSlot);
        return;
    }
    LogFormat(ch, "Stunnel killed (chan %d, process %d)\r\n", ch.ChannelNumber, ch.StunnelSlot);
    ch.StunnelSlot = -1;
}
