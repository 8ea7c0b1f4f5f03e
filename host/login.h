// The account at the server. The secret comes from the environment or the terminal, never from an
// argument: everybody on the machine can read those.
#pragma once

#include "options.h"

#include <cstdint>
#include <string>

struct Login {
    bool IsWanted;
    std::string User;
    std::string Secret; // a password, or what XOAUTH2 has in its place; for IMAP both as its words
    uint32_t Methods;   // of RYN_AUTH_METHODS; 0: none, for the protocol has a login of its own
};

// Takes the account of the command line and finds its secret. EXIT_DONE or the code to leave with,
// after a message.
ExitCode PrepareLogin(const Options& options, Login& loginOut);

// Gives the account to the channel. Without one the channel logs in nowhere.
ExitCode SetLogin(const Login& login);

// Tells whether the connect that is over has logged in, if it should, and says so on standard error
// if not. (The library asks nothing of an SMTP server that offers no method that is allowed.)
bool HasLoggedIn(const Login& login);

// Overwrites the secret.
void ForgetSecret(Login& login);
