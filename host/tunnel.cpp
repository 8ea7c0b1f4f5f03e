// Program, certificates, port and folder of a tunnel. The library writes the tunnel's configuration
// into the folder and starts the program; the process ends with the session.
#include "tunnel.h"

#include "protocol.h"
#include "ryn32.h"
#include "session.h"
#include "system.h"
#include "terminal_text.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

constexpr char Launcher[] = "ryn32-stunnel";
constexpr size_t PathLimit = 255; // chars that the library takes
constexpr unsigned long MostPort = 65535;

static bool IsImplicit(const Options& options)
{
    return strcmp(options.Tls, "implicit") == 0;
}

uint32_t UsualPort(const Options& options)
{
    const Protocol& protocol = ProtocolOf(options);
    if (!options.Tls)
        return protocol.Port;
    return IsImplicit(options) ? protocol.ImplicitPort : protocol.StartTlsPort;
}

// --- options ---

static bool IsPort(const char* text)
{
    char* end;
    const unsigned long port = strtoul(text, &end, 10);
    return *text >= '0' && *text <= '9' && *end == 0 && port >= 1 && port <= MostPort;
}

ExitCode CheckTunnel(const Options& options, uint32_t serverPort)
{
    if (!options.Tls) {
        const bool isLeft =
            options.CaFile || options.CertFile || options.TunnelProgram || options.TunnelPort;
        return isLeft ? WrongUse("--ca, --cert, --stunnel and --tunnel-port want --tls")
                      : EXIT_DONE;
    }
    if (!IsImplicit(options) && strcmp(options.Tls, "starttls") != 0)
        return WrongUse("--tls takes implicit or starttls");
    const Protocol& protocol = ProtocolOf(options);
    if (protocol.ImplicitHasOnePort && IsImplicit(options) != (serverPort == protocol.ImplicitPort))
        return WrongUse("--tls implicit is for port 465 and for no other one");
    if (!options.CaFile)
        return WrongUse("--tls wants --ca FILE: the certificates that are trusted");
    if (options.TunnelPort && !IsPort(options.TunnelPort))
        return WrongUse("--tunnel-port takes a number from 1 to 65535");
    return EXIT_DONE;
}

// --- files ---

static bool CannotUse(const char* what, const std::string& path, const char* why)
{
    fprintf(stderr, "rynmail: the %s '%s' can't be used: %s\n", what, path.c_str(), why);
    return false;
}

// The full path of a file, fit for a line of the tunnel's configuration.
static bool FullPath(const char* what, const char* typed, std::string& pathOut)
{
    std::error_code error;
    pathOut = std::filesystem::absolute(typed, error).string();
    if (error || !std::filesystem::is_regular_file(pathOut, error))
        return CannotUse(what, typed, "there is no such file");
    FILE* file = fopen(pathOut.c_str(), "rb");
    if (!file)
        return CannotUse(what, typed, "it can't be read");
    fclose(file);
    if (pathOut.size() > PathLimit)
        return CannotUse(what, typed, "its path is too long");
    if (strpbrk(pathOut.c_str(), " \\\t\r\n"))
        return CannotUse(what, typed, "its path holds a blank or a '\\'");
    return true;
}

static bool FindProgram(const Options& options, std::string& programOut)
{
    if (options.TunnelProgram)
        return FullPath("program", options.TunnelProgram, programOut);
    for (const std::string& folder : { ProgramFolder(), std::string(RYNMAIL_LAUNCHER_FOLDER) }) {
        const std::string path = folder + "/" + Launcher;
        std::error_code error;
        if (!folder.empty() && std::filesystem::is_regular_file(path, error))
            return FullPath("program", path.c_str(), programOut);
    }
    fprintf(stderr, "rynmail: %s is neither beside rynmail nor in %s: name it by --stunnel\n",
            Launcher, RYNMAIL_LAUNCHER_FOLDER);
    return false;
}

// The tunnel always wants a certificate to show of its own; few servers look at it.
static bool FindCertificate(const Options& options, const std::string& folder,
                            std::string& certificateOut)
{
    if (options.CertFile)
        return FullPath("certificate", options.CertFile, certificateOut);
    certificateOut = folder + "/own.pem";
    if (RunQuietly({ "openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                     "ec_paramgen_curve:prime256v1", "-nodes", "-keyout", certificateOut, "-out",
                     certificateOut, "-days", "2", "-subj", "/CN=rynmail" }))
        return true;
    fputs("rynmail: openssl can't make a certificate for this end: name one by --cert, a file with "
          "a key and its certificate\n",
          stderr);
    return false;
}

// --- the tunnel ---

static bool TellLibrary(const Options& options, const Tunnel& tunnel)
{
    std::string program, certificate, trusted;
    if (!FindProgram(options, program) || !FullPath("file", options.CaFile, trusted) ||
        !FindCertificate(options, tunnel.Folder, certificate))
        return false;
    const int32_t status =
        rynSetProxySSL(0, 0, tunnel.Folder.c_str(), certificate.c_str(), program.c_str());
    if (status < 0) {
        char text[512];
        rynErrorText(Channel, status, text, sizeof text);
        text[strcspn(text, "\r\n")] = 0;
        return CannotUse("tunnel program", program, text);
    }
    // Where the library itself writes no such line, it holds for every service of the tunnel.
    const char* startTls = ProtocolOf(options).StartTlsLine;
    if (startTls && !IsImplicit(options) && rynConfigSSL(1, startTls) < 0)
        return false;
    return rynSetCertAuth(nullptr, trusted.c_str()) > 0;
}

ExitCode PrepareTunnel(const Options& options, Tunnel& tunnel)
{
    // Whoever breaks off now shall leave neither the folder nor the process behind.
    CatchStopSignals();
    if (!MakeTemporaryFolder(tunnel.Folder)) {
        fputs("rynmail: no temporary folder can be made\n", stderr);
        return EXIT_LOCAL_FILE;
    }
    if (!TellLibrary(options, tunnel))
        return EXIT_LOCAL_FILE;
    tunnel.LocalPort = options.TunnelPort
                           ? static_cast<uint32_t>(strtoul(options.TunnelPort, nullptr, 10))
                           : FreePort();
    if (tunnel.LocalPort != 0)
        return EXIT_DONE;
    fputs("rynmail: there is no free port for the tunnel\n", stderr);
    return EXIT_OTHER;
}

void TellTunnelTroubles(const Options& options, const Tunnel& tunnel)
{
    constexpr int mostLines = 5;
    if (tunnel.Folder.empty())
        return;
    std::ifstream log(tunnel.Folder + ProtocolOf(options).TunnelLog);
    std::string line;
    for (int told = 0; told < mostLines && std::getline(log, line);) {
        // "2024.01.31 10:00:00 LOG3[0]: TEXT": 3 marks an error, 4 a warning.
        const size_t mark = line.find(" LOG");
        if (mark == std::string::npos || mark + 4 >= line.size() || !strchr("34", line[mark + 4]))
            continue;
        const size_t text = line.find("]: ", mark);
        if (text == std::string::npos)
            continue;
        fprintf(stderr, "rynmail: the tunnel says: %s\n",
                ForTerminal(line.substr(text + 3)).c_str());
        ++told;
    }
}

void EndTunnel(Tunnel& tunnel)
{
    if (!tunnel.Folder.empty())
        RemoveFolder(tunnel.Folder);
    tunnel.Folder.clear();
}
