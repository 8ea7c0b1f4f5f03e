// The fixture of mailboxes that are read through a tunnel: Dovecot with a certificate, and stunnel,
// started by the launcher that the project installs.
#pragma once

#include "tests/real/dovecot_fixture.h"
#include "tests/real/stunnel_certs.h"
#include "tests/real/stunnel_watch.h"

struct RealTlsMailbox : RealMailbox {
    uint32_t TunnelPort = 0;

    void SetUp() override
    {
        RealMailbox::SetUp();
        ASSERT_EQ(MakeAuthority(Folder, "ca"), "");
        ASSERT_EQ(MakeCertificate(Folder, "ca", "server", "localhost", 0), "");
        ASSERT_EQ(StartDovecot(Box, "", Folder + "/server.pem"), "");
        // A tunnel ends with the test, even if that crashes.
        const std::string program = Folder + "/guarded-stunnel";
        WriteWholeFile(program, "#!/bin/sh\nexec setpriv --pdeathsig KILL stunnel4 \"$@\" 2>>'" +
                                    Folder + "/stderr'\n");
        chmod(program.c_str(), 0755);
        setenv("RYN32_STUNNEL", program.c_str(), 1);
        TunnelPort = FreeTunnelPort();
    }

    void TearDown() override
    {
        rynRelease();
        EXPECT_EQ(Tunnels(), std::vector<int32_t>());
        EXPECT_FALSE(PortIsOpen(TunnelPort));
        RealMailbox::TearDown();
    }

    void AttachTrusting(const std::string& authority)
    {
        Attach();
        ASSERT_EQ(rynIntegerParam(0, RYN_CONNECT_ATTEMPTS, 20), 1); // for a machine under load
        ASSERT_EQ(rynSetProxySSL(0, 0, Folder.c_str(), "server.pem", RYN_TUNNEL_LAUNCHER), 1);
        const std::string file = Folder + "/" + authority + ".pem";
        ASSERT_EQ(rynSetCertAuth(nullptr, file.c_str()), static_cast<int32_t>(file.size()));
    }

    // Children that are no mail server.
    std::vector<int32_t> Tunnels()
    {
        std::vector<int32_t> tunnels;
        for (const int32_t process : ChildProcesses())
            if (process != Box.Guardian)
                tunnels.push_back(process);
        return tunnels;
    }

    // protocol: "Pop3" or "Imap".
    std::string TunnelLog(const std::string& protocol)
    {
        return ReadWholeFile(Folder + "/" + protocol + "Log(0).txt");
    }

    std::string ServerLog()
    {
        return ReadWholeFile(Box.Folder + "/dovecot.log");
    }
};
