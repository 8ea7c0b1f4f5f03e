/* Sends a text over TLS with a login.
 *
 *   secure SERVER PORT FROM TO TEXTFILE USER TUNNEL-PORT FOLDER PROGRAM OWN-PEM CA-PEM
 *
 * PORT is 465, or one that begins by STARTTLS. The password comes from MAIL_PASSWORD. TUNNEL-PORT is a
 * free port of this machine. FOLDER takes the configuration and the log of the tunnel: one that nobody
 * else can read or write. PROGRAM is ryn32-stunnel, OWN-PEM a key with its certificate for this end,
 * CA-PEM the certificates that are trusted. These are full paths without blanks. */
#include "tell.h"

enum { AddressSize = 259, NameSize = 4096 };

/* Without rynSetCertAuth nothing would be verified, and anybody could be the server. */
static int32_t PrepareTunnel(char** words)
{
    const int32_t status = rynSetProxySSL(0, 0, words[8], words[10], words[9]);
    return status < 0 ? status : rynSetCertAuth(NULL, words[11]);
}

static int32_t SendSecurely(char** words, const char* from, const char* to)
{
    const char* password = getenv("MAIL_PASSWORD");
    const uint32_t localPort = (uint32_t)strtoul(words[7], NULL, 10);
    const uint32_t securePort = (uint32_t)strtoul(words[2], NULL, 10);
    char text[NameSize];
    snprintf(text, sizeof text, "@%s", words[5]);
    int32_t status = PrepareTunnel(words);
    if (status < 0)
        return status;
    rynIntegerParam(0, RYN_USE_EHLO, 1);
    /* The way to the tunnel is in the clear: by number it never leaves this machine. */
    status = rynSmtpConnectSSL(0, localPort, securePort, words[1], words[6], password, from, NULL,
                               "127.0.0.1");
    return status < 0 ? status : rynSendEmail(0, to, NULL, NULL, "Hello", text, NULL);
}

static int Run(char** words)
{
    char from[AddressSize], to[AddressSize];
    if (!MakeAddress(from, sizeof from, words[3]) || !MakeAddress(to, sizeof to, words[4]))
        return 1;
    OpenLog(0);
    const int32_t status = SendSecurely(words, from, to);
    const int code = status < 0 ? Tell(0, "sending", status) : 0;
    if (status < 0)
        rynAbort(0);
    rynClose(0); /* ends the tunnel, too */
    return code;
}

int main(int count, char** words)
{
    if (count != 12) {
        fputs("usage: secure SERVER PORT FROM TO TEXTFILE USER TUNNEL-PORT FOLDER PROGRAM OWN-PEM "
              "CA-PEM\n",
              stderr);
        return 2;
    }
    const int32_t status = rynAttach(1);
    if (status < 0)
        return Tell(0, "starting", status);
    const int code = Run(words);
    rynRelease();
    return code;
}
