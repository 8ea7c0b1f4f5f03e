/* Sends an HTML text with an image and a plain alternative.
 *
 *   html SERVER PORT FROM TO SUBJECT HTMLFILE IMAGE PLAINFILE
 *
 * The HTML text is UTF-8 and shows the image as <img src="cid:message-root.1">; the plain text is
 * ASCII. */
#include "tell.h"

#include <string.h>

enum { AddressSize = 259, WordSize = 1024, NameSize = 4096 };

static int32_t SendHtml(char** words, const char* from, const char* to)
{
    char subject[WordSize], html[NameSize], plain[NameSize];
    snprintf(html, sizeof html, "@%s", words[6]);
    snprintf(plain, sizeof plain, "@%s", words[8]);
    int32_t status = rynMakeSubject(words[5], 15, subject, sizeof subject);
    if (status < 0)
        return status;
    rynIntegerParam(0, RYN_MESSAGE_TYPE, 2); /* HTML, quoted-printable, */
    rynIntegerParam(0, RYN_HTML_CHARSET, 8); /* in UTF-8 */
    rynIntegerParam(0, RYN_SMTP_PORT, (uint32_t)strtoul(words[2], NULL, 10));
    status = rynSmtpConnect(0, words[1], from, NULL);
    if (status < 0)
        return status;
    return rynSendHTML(0, to, NULL, NULL, subject, html, words[7], plain, NULL);
}

static int Run(char** words)
{
    char from[AddressSize], to[AddressSize];
    if (!MakeAddress(from, sizeof from, words[3]) || !MakeAddress(to, sizeof to, words[4]))
        return 1;
    if (strpbrk(words[7], ";|*\"")) { /* a list of files gives these a meaning */
        fprintf(stderr, "'%s' can't be sent under this name\n", words[7]);
        return 1;
    }
    OpenLog(0);
    const int32_t status = SendHtml(words, from, to);
    const int code = status < 0 ? Tell(0, "sending", status) : 0;
    if (status < 0)
        rynAbort(0);
    else
        rynClose(0); /* the server has the message whatever comes of this */
    return code;
}

int main(int count, char** words)
{
    if (count != 9) {
        fputs("usage: html SERVER PORT FROM TO SUBJECT HTMLFILE IMAGE PLAINFILE\n", stderr);
        return 2;
    }
    const int32_t status = rynAttach(1);
    if (status < 0)
        return Tell(0, "starting", status);
    const int code = Run(words);
    rynRelease();
    return code;
}
