// Starting and stopping Dovecot, and the Maildirs that it serves; see dovecot_server.h.
#include "tests/real/dovecot_server.h"

#include "tests/real/guardian.h"
#include "tests/support/temp_folder.h"

#include <algorithm>
#include <cstdio>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

std::string DovecotProgram()
{
    for (const char* path : { "/usr/sbin/dovecot", "/usr/local/sbin/dovecot" })
        if (access(path, X_OK) == 0)
            return path;
    return "";
}

std::string MakeFolder(DovecotServer& server, const ServerAccount& account,
                       const std::string& mailFolder, const std::string& certificate)
{
    const std::string problem =
        MakeServerFolder("ryn-dovecot", { "run", "mail" }, account, server.Folder);
    if (!problem.empty())
        return problem;
    server.MailFolder = mailFolder.empty() ? server.Folder + "/mail" : mailFolder;
    WriteWholeFile(server.Folder + "/users", server.Users);
    if (!certificate.empty())
        WriteWholeFile(server.Folder + "/server.pem", ReadWholeFile(certificate));
    WriteFromTemplate(server.Folder + "/dovecot.conf", RYN_DOVECOT_CONF,
                      { { "@WITH_TLS@", certificate.empty() ? "#" : "" },
                        { "@WITHOUT_TLS@", certificate.empty() ? "" : "#" },
                        { "@NOT_ROOT@", geteuid() == 0 ? "#" : "" },
                        { "@USER@", account.User },
                        { "@GROUP@", account.Group },
                        { "@DIR@", server.Folder },
                        { "@MAIL@", server.MailFolder },
                        { "@POP3@", std::to_string(server.Pop3Port) },
                        { "@IMAP@", std::to_string(server.ImapPort) },
                        { "@POP3S@", std::to_string(server.Pop3TlsPort) },
                        { "@IMAPS@", std::to_string(server.ImapTlsPort) } });
    return "";
}

// A name that sorts behind all names before it: no two moments are the same.
std::string NextName()
{
    static int64_t last = 0;
    timeval now = {};
    gettimeofday(&now, nullptr);
    last = std::max<int64_t>(last + 1, now.tv_sec * 1000000LL + now.tv_usec);
    // As many digits in every name, whether who sorts them reads numbers or texts.
    return std::to_string(last / 1000000) + ".M" + std::to_string(1000000 + last % 1000000) +
           "P1.put";
}

} // namespace

std::string StartDovecot(DovecotServer& server, const std::string& mailFolder,
                         const std::string& certificate)
{
    if (DovecotProgram().empty())
        return "no Dovecot on this machine: install dovecot-pop3d and dovecot-imapd";
    const ServerAccount account = FindServerAccount();
    if (account.User.empty())
        return "no account to run the server under";
    for (int attempt = 0; attempt < StartAttempts; attempt++) {
        const std::vector<uint32_t> ports = FreePorts(4);
        server.Pop3Port = ports[0];
        server.ImapPort = ports[1];
        server.Pop3TlsPort = certificate.empty() ? 0 : ports[2];
        server.ImapTlsPort = certificate.empty() ? 0 : ports[3];
        const std::string problem = MakeFolder(server, account, mailFolder, certificate);
        if (!problem.empty())
            return problem;
        // Its own name is part of each APOP stamp: a short one leaves room for the password.
        if (StartGuardian(server.Folder,
                          { "env", "DOVECOT_HOSTNAME=t", DovecotProgram(), "-F", "-c",
                            server.Folder + "/dovecot.conf" },
                          server.Guardian, server.LifeHandle) &&
            WaitUntilListening(
                server.Guardian, server.Folder + "/dovecot.log", "starting up",
                { server.Pop3Port, server.ImapPort, server.Pop3TlsPort, server.ImapTlsPort }))
            return "";
        StopDovecot(server);
    }
    return "Dovecot does not start";
}

void StopDovecot(DovecotServer& server)
{
    StopGuardian(server.Guardian, server.LifeHandle);
}

void PutMail(const DovecotServer& server, const std::string& user, const std::string& bytes)
{
    const ServerAccount account = FindServerAccount();
    const std::string box = server.MailFolder + "/" + user;
    for (const char* name : { "", "/cur", "/new", "/tmp" }) {
        const bool isNew = mkdir((box + name).c_str(), 0755) == 0;
        EXPECT_TRUE(!isNew || GiveToServer(box + name, account)) << box << name;
    }
    const std::string name = NextName(), made = box + "/tmp/" + name;
    WriteWholeFile(made, bytes);
    EXPECT_TRUE(GiveToServer(made, account)) << made;
    EXPECT_EQ(rename(made.c_str(), (box + "/new/" + name).c_str()), 0) << made;
}

std::vector<std::string> ListMailbox(const DovecotServer& server, const std::string& user)
{
    const std::string box = server.MailFolder + "/" + user;
    return ListMaildir({ box + "/cur", box + "/new" });
}
