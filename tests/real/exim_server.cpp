// Starting, watching and stopping Exim; see exim_server.h.
#include "tests/real/exim_server.h"

#include "tests/real/guardian.h"
#include "tests/support/temp_folder.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

std::string EximProgram()
{
    for (const char* path : { "/usr/sbin/exim4", "/usr/sbin/exim" })
        if (access(path, X_OK) == 0)
            return path;
    return "";
}

void WriteSecrets(const std::string& folder, const std::string& certificate)
{
    WriteWholeFile(folder + "/users.smtp", "alice: secret1\nbob: secret2\ncarol: secret3\n");
    if (certificate.empty())
        return;
    WriteWholeFile(folder + "/tokens", "alice: tok\n");
    WriteWholeFile(folder + "/offer", "CRAM-MD5 LOGIN PLAIN XOAUTH2\n");
    WriteWholeFile(folder + "/server.pem", ReadWholeFile(certificate));
}

// The folder is open to all because deliveries run under the server's account.
std::string MakeFolder(EximServer& server, const ServerAccount& account,
                       const std::string& certificate)
{
    const std::string problem =
        MakeServerFolder("ryn-exim", { "spool", "mail" }, account, server.Folder);
    if (!problem.empty())
        return problem;
    WriteSecrets(server.Folder, certificate);
    WriteFromTemplate(server.Folder + "/exim.conf", RYN_EXIM_CONF,
                      { { "@SECURE@", certificate.empty() ? "" : "WITH_TLS = yes" },
                        { "@EXIM@", EximProgram() },
                        { "@USER@", account.User },
                        { "@GROUP@", account.Group },
                        { "@DIR@", server.Folder },
                        { "@SMTP@", std::to_string(server.Port) },
                        { "@SMTPS@", std::to_string(server.TlsPort) } });
    return "";
}

std::vector<std::string> ListMail(const EximServer& server, const std::string& user)
{
    return ListMaildir({ server.Folder + "/mail/" + user + "/new" });
}

} // namespace

std::string StartExim(EximServer& server, const std::string& certificate)
{
    if (EximProgram().empty())
        return "no Exim on this machine: install exim4-daemon-light";
    const ServerAccount account = FindServerAccount();
    if (account.User.empty())
        return "no account to run the server under";
    for (int attempt = 0; attempt < StartAttempts; attempt++) {
        const std::vector<uint32_t> ports = FreePorts(2);
        server.Port = ports[0];
        server.TlsPort = certificate.empty() ? 0 : ports[1];
        const std::string problem = MakeFolder(server, account, certificate);
        if (!problem.empty())
            return problem;
        if (StartGuardian(server.Folder,
                          { EximProgram(), "-C", server.Folder + "/exim.conf", "-bdf" },
                          server.Guardian, server.LifeHandle) &&
            WaitUntilListening(server.Guardian, server.Folder + "/spool/mainlog",
                               "listening for SMTP", { server.Port, server.TlsPort }))
            return "";
        StopExim(server);
    }
    return "Exim does not start";
}

void StopExim(EximServer& server)
{
    StopGuardian(server.Guardian, server.LifeHandle);
}

size_t CountMail(const EximServer& server, const std::string& user)
{
    return ListMail(server, user).size();
}

bool WaitForMail(const EximServer& server, const std::string& user, size_t n, std::string& bytesOut)
{
    const auto begin = std::chrono::steady_clock::now();
    while (!PatienceIsOver(begin)) {
        // A message comes into this folder by a rename: what stands here is whole.
        const std::vector<std::string> names = ListMail(server, user);
        if (names.size() >= n) {
            bytesOut = ReadWholeFile(names[n - 1]);
            return true;
        }
        Pause();
    }
    ADD_FAILURE() << "message " << n << " for " << user << " did not arrive";
    return false;
}
