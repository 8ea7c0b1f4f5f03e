/* Sends a text from a file with one attachment.
 *
 *   send SERVER PORT FROM TO SUBJECT TEXTFILE ATTACHMENT [USER]
 *
 * Subject and text are UTF-8. With USER it logs in; the password comes from the environment variable
 * MAIL_PASSWORD, since everybody on the machine can read the arguments of a program. */
#include "tell.h"

#include <string.h>

enum { AddressSize = 259, WordSize = 1024, ListSize = 4096 };

/* Names the account for the login that the server may ask for. */
static int32_t SetLogin(const char* user)
{
    const char* password = getenv("MAIL_PASSWORD");
    rynIntegerParam(0, RYN_USE_EHLO, 1); /* logins are an extension */
    const int32_t status = rynStringParam(0, RYN_AUTH_USER, user);
    return status < 0 ? status : rynStringParam(0, RYN_AUTH_PASSWORD, password ? password : "");
}

/* One entry of the list of attachments: the path, and the name that the recipient sees. */
static int MakeEntry(char* entry, const char* path)
{
    const char* slash = strrchr(path, '/');
    const int length = snprintf(entry, ListSize, "%s|%s", path, slash ? slash + 1 : path);
    /* These have a meaning in such a list. */
    if (length < ListSize && strpbrk(path, ";|*\"") == NULL)
        return 1;
    fprintf(stderr, "'%s' can't be attached under this name\n", path);
    return 0;
}

static int32_t Send(char** words, const char* from, const char* to, const char* entry)
{
    char subject[WordSize];
    char text[ListSize];
    snprintf(text, sizeof text, "@%s", words[6]); /* the '@' makes it a file's name */
    int32_t status = rynMakeSubject(words[5], 15, subject, sizeof subject);
    if (status < 0)
        return status;
    rynIntegerParam(0, RYN_MESSAGE_TYPE, 15); /* UTF-8, quoted-printable */
    rynIntegerParam(0, RYN_SMTP_PORT, (uint32_t)strtoul(words[2], NULL, 10));
    status = rynSmtpConnect(0, words[1], from, NULL);
    if (status < 0)
        return status;
    return rynSendEmail(0, to, NULL, NULL, subject, text, entry);
}

/* Sends and takes leave. Returns the exit code. */
static int Run(int count, char** words)
{
    char from[AddressSize], to[AddressSize], entry[ListSize];
    if (!MakeAddress(from, sizeof from, words[3]) || !MakeAddress(to, sizeof to, words[4]) ||
        !MakeEntry(entry, words[7]))
        return 1;
    OpenLog(0);
    int32_t status = count > 8 ? SetLogin(words[8]) : 0;
    if (status < 0)
        return Tell(0, "login", status);
    status = Send(words, from, to, entry);
    if (status < 0) {
        const int code = Tell(0, "sending", status);
        rynAbort(0); /* inside a message the server would wait for its end */
        return code;
    }
    /* The server has the message already: whatever the farewell brings, it is sent. */
    status = rynClose(0);
    if (status < 0)
        Tell(0, "taking leave", status);
    return 0;
}

int main(int count, char** words)
{
    if (count < 8) {
        fputs("usage: send SERVER PORT FROM TO SUBJECT TEXTFILE ATTACHMENT [USER]\n", stderr);
        return 2;
    }
    const int32_t status = rynAttach(1);
    if (status < 0)
        return Tell(0, "starting", status);
    const int code = Run(count, words);
    rynRelease();
    return code;
}
