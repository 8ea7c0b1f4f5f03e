/* Lists a mailbox and fetches all its messages, each into a new folder.
 *
 *   fetch pop3|imap SERVER PORT USER FOLDER
 *
 * The password comes from the environment variable MAIL_PASSWORD. FOLDER/0001/message.txt is the text
 * of the first message, beside it stand its attachments, decoded. No folder that is there already is
 * written to. */
#define _POSIX_C_SOURCE 200809L /* mkdir */
#include "tell.h"

#include <string.h>
#include <sys/stat.h>

enum { PathSize = 250, ValueSize = 1000, ListSize = 5122 };

/* No name of an attachment holds it: the library has made '_' of control chars. */
static const char ListDelimiter = 1;

static void SetReceiveParams(void)
{
    rynIntegerParam(0, RYN_ATTACH_NUMBERING, 1); /* "1-menu.pdf": keeps equal names apart */
    rynIntegerParam(0, RYN_ATTACH_DELIMITER, (uint32_t)ListDelimiter);
    rynIntegerParam(0, RYN_SAVE_UNNAMED_BASE64, 1);
    rynIntegerParam(0, RYN_UNDERSCORE_TO_SPACE, 0); /* on, it changes texts and files too */
}

static int32_t Connect(char** words)
{
    const char* password = getenv("MAIL_PASSWORD");
    const uint32_t port = (uint32_t)strtoul(words[3], NULL, 10);
    if (!password)
        password = "";
    if (strcmp(words[1], "imap") == 0) {
        rynIntegerParam(0, RYN_IMAP_PORT, port);
        return rynImapConnect(0, words[2], words[4], password);
    }
    rynIntegerParam(0, RYN_POP3_PORT, port);
    return rynPop3Connect(0, words[2], words[4], password);
}

/* What the decoder has found: the subject, and the names of the files. */
static void PrintFound(const char* folder)
{
    char subject[ValueSize + 1], names[ListSize + 1];
    rynGetHeader(0, RYN_HEADER_SUBJECT, subject, ValueSize);
    BlankControls(subject);
    printf("  %s\n  %s/message.txt\n", subject, folder);
    rynDebug(0, RYN_DEBUG_ATTACH_LIST, names, ListSize);
    const char delimiters[] = { ListDelimiter, 0 };
    for (char* name = strtok(names, delimiters); name; name = strtok(NULL, delimiters))
        printf("  %s/%s\n", folder, name);
}

static int32_t FetchMessage(int32_t message, const char* into)
{
    char folder[PathSize + 1], uid[256];
    const int32_t size = rynGetEmailSize(0, message);
    if (size < 0)
        return size;
    const int32_t length = rynGetEmailUID(0, message, uid, sizeof uid);
    if (length < 0)
        return length;
    BlankControls(uid);
    printf("%d: %d bytes, id %s\n", (int)message, (int)size, uid);
    if (snprintf(folder, sizeof folder, "%s/%04d", into, (int)message) > PathSize ||
        mkdir(folder, 0700) != 0) {
        fprintf(stderr, "can't make the folder of message %d\n", (int)message);
        return RYN_ERR_NO_SUCH_PATH;
    }
    const int32_t status = rynGetEmailFile(0, message, "message.txt", folder, folder);
    if (status < 0)
        return status;
    /* A server that goes away inside a message ends it just like its last line: one that still
     * answers has said all of it. */
    const int32_t sizeNow = rynGetEmailSize(0, message);
    if (sizeNow != size)
        return sizeNow < 0 ? sizeNow : RYN_ERR_SOCK_CLOSED;
    PrintFound(folder);
    return 0;
}

static int Run(char** words)
{
    OpenLog(0);
    int32_t status = Connect(words);
    if (status < 0)
        return Tell(0, "connecting", status);
    SetReceiveParams();
    const int32_t count = rynGetEmailCount(0);
    if (count < 0)
        status = count;
    for (int32_t message = 1; message <= count && status >= 0; message++)
        status = FetchMessage(message, words[5]);
    const int code = status < 0 ? Tell(0, "fetching", status) : 0;
    if (status < 0)
        rynAbort(0);
    else if ((status = rynClose(0)) < 0)
        Tell(0, "taking leave", status);
    return code;
}

int main(int count, char** words)
{
    if (count != 6 || (strcmp(words[1], "pop3") != 0 && strcmp(words[1], "imap") != 0)) {
        fputs("usage: fetch pop3|imap SERVER PORT USER FOLDER\n", stderr);
        return 2;
    }
    const int32_t status = rynAttach(1);
    if (status < 0)
        return Tell(0, "starting", status);
    const int code = Run(words);
    rynRelease();
    return code;
}
