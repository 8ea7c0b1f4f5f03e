// Methods, user and secret of a login.
#include "login.h"

#include "imap_mailbox.h"
#include "ryn32.h"
#include "session.h"
#include "system.h"
#include "terminal.h"
#include "terminal_text.h"

#include <cctype>
#include <cstdio>
#include <cstring>

constexpr char SecretVariable[] = "RYNMAIL_PASSWORD";
constexpr size_t UserLimit = 64;     // chars that RYN_AUTH_USER keeps
constexpr size_t SecretLimit = 2048; // chars that RYN_AUTH_PASSWORD takes
constexpr size_t MailboxLimit = 64;  // chars that a mailbox's login takes of user and password

enum AuthMethod : uint32_t { AUTH_NONE = 0, AUTH_XOAUTH2 = 8, AUTH_ALL_PASSWORDS = 7 };

struct MethodRow {
    const char* Name;
    uint32_t Bit;
};

constexpr MethodRow MethodTable[] = {
    { "cram-md5", 1 },
    { "login", 2 },
    { "plain", 4 },
    { "xoauth2", AUTH_XOAUTH2 },
};

static uint32_t MethodOf(const char* typed)
{
    std::string name = typed;
    for (char& c : name)
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    for (const MethodRow& row : MethodTable)
        if (name == row.Name)
            return row.Bit;
    return AUTH_NONE;
}

static ExitCode TakeMethods(const Options& options, Login& login)
{
    login.Methods = options.Auth.empty() ? uint32_t{ AUTH_ALL_PASSWORDS } : uint32_t{ AUTH_NONE };
    for (const char* typed : options.Auth) {
        const uint32_t method = MethodOf(typed);
        if (method == AUTH_NONE)
            return WrongUse("--auth takes cram-md5, login, plain and xoauth2");
        login.Methods |= method;
    }
    if ((login.Methods & AUTH_XOAUTH2) != 0 && login.Methods != AUTH_XOAUTH2)
        return WrongUse("--auth xoauth2 stands alone: it wants a token and no password");
    return EXIT_DONE;
}

static ExitCode FindSecret(Login& login)
{
    if (!TakeFromEnvironment(SecretVariable, login.Secret) &&
        !AskSecret("Password for " + login.User + ": ", login.Secret))
        return WrongUse("there is no password: set RYNMAIL_PASSWORD, or run on a terminal");
    if (login.Secret.empty() || login.Secret.size() > SecretLimit)
        return WrongUse("the password is empty or has more than 2048 chars");
    return EXIT_DONE;
}

// XOAUTH2 sends user and token as one text.
static void JoinUserAndToken(Login& login)
{
    constexpr size_t fixedChars = 22; // around the two, with the terminating zero
    std::string joined(login.User.size() + login.Secret.size() + fixedChars, '\0');
    const int32_t length = rynMakeXOAuth2(login.User.c_str(), login.Secret.c_str(), joined.data());
    joined.resize(length > 0 ? static_cast<size_t>(length) : 0);
    ForgetSecret(login);
    login.Secret.swap(joined);
}

// The library masks the first line of a secret in its log, and shows the others.
static bool WouldShowInLog(const Login& login)
{
    constexpr size_t tokenLine = 48;  // bytes that XOAUTH2 sends in one line
    constexpr size_t plainLine = 114; // the same of PLAIN and LOGIN
    if (login.Methods == AUTH_XOAUTH2)
        return login.Secret.size() > tokenLine;
    return 2 * login.User.size() + login.Secret.size() + 2 > plainLine;
}

// User and password of a mailbox go out as they are; the library would cut a longer one, and a line
// end would begin another command.
static ExitCode CheckMailboxLogin(const Login& login)
{
    if (login.User.size() > MailboxLimit || login.Secret.size() > MailboxLimit)
        return WrongUse("user and password for a mailbox may have 64 chars at most, for IMAP with "
                        "the quotes that some chars need");
    if (HasControlChar(login.User) || HasControlChar(login.Secret))
        return WrongUse("user or password hold a control char");
    return EXIT_DONE;
}

// In the one line of an IMAP login a blank or a bracket would part other words.
static void QuoteForImap(Login& login)
{
    std::string quoted = ImapWord(login.Secret);
    ForgetSecret(login);
    login.Secret.swap(quoted);
    login.User = ImapWord(login.User);
}

ExitCode PrepareLogin(const Options& options, Login& loginOut)
{
    loginOut = {};
    if (!options.User)
        return options.Auth.empty() ? EXIT_DONE : WrongUse("--auth wants --user");
    loginOut.IsWanted = true;
    loginOut.User = options.User;
    if (loginOut.User.empty() || loginOut.User.size() > UserLimit)
        return WrongUse("--user takes 1 to 64 chars");
    if (!options.Pop3 && !options.Imap)
        if (const ExitCode outcome = TakeMethods(options, loginOut); outcome != EXIT_DONE)
            return outcome;
    if (const ExitCode outcome = FindSecret(loginOut); outcome != EXIT_DONE)
        return outcome;
    if (options.Imap)
        QuoteForImap(loginOut);
    if (options.Pop3 || options.Imap)
        return CheckMailboxLogin(loginOut);
    if (loginOut.Methods == AUTH_XOAUTH2)
        JoinUserAndToken(loginOut);
    if (loginOut.Secret.size() > SecretLimit)
        return WrongUse("the token is too long");
    if (options.LogFile && WouldShowInLog(loginOut))
        return WrongUse(
            "a password or token of this length would show in the log: leave out --log");
    return EXIT_DONE;
}

ExitCode SetLogin(const Login& login)
{
    rynIntegerParam(Channel, RYN_AUTH_METHODS, login.Methods);
    if (login.Methods == AUTH_NONE)
        return EXIT_DONE;
    const bool isSet = rynStringParam(Channel, RYN_AUTH_USER, login.User.c_str()) > 0 &&
                       rynStringParam(Channel, RYN_AUTH_PASSWORD, login.Secret.c_str()) > 0;
    return isSet ? EXIT_DONE : WrongUse("the library doesn't take this user and password");
}

bool HasLoggedIn(const Login& login)
{
    constexpr int32_t accepted = 235; // RFC 4954, 4.
    if (login.Methods == AUTH_NONE || rynStatistics(Channel, RYN_STAT_REPLY_CODE) == accepted)
        return true;
    char offer[256 + 1];
    rynDebug(Channel, RYN_DEBUG_AUTH_LINES, offer, sizeof offer - 1);
    offer[strcspn(offer, "\r\n")] = 0;
    if (*offer)
        fprintf(stderr, "rynmail: no method of --auth is offered by the server, only: %s\n",
                ForTerminal(offer).c_str());
    else
        fputs("rynmail: the server offers no login here; it may want --tls\n", stderr);
    return false;
}

void ForgetSecret(Login& login)
{
    volatile char* chars = login.Secret.data(); // volatile: or the compiler leaves it out
    for (size_t i = 0; i < login.Secret.size(); ++i)
        chars[i] = 0;
    login.Secret.clear();
}
