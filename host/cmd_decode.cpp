// rynmail decode: stored messages, each into a folder of its own, without a server.
#include "commands.h"
#include "message_folder.h"
#include "received.h"
#include "ryn32.h"
#include "session.h"
#include "stored_message.h"
#include "system.h"
#include "terminal_text.h"

#include <cstdio>
#include <string>
#include <vector>

constexpr char CopyName[] = ".source";

// Lets the library decode the copy of a message that lies in the folder.
static ExitCode DecodeCopy(Session& session, const char* path, const std::string& folder,
                           uint64_t size)
{
    // By the rules of POP3: those of IMAP take a line of one bracket, which ends a message there,
    // out of texts and files.
    const std::string copy = PathIn(folder, CopyName);
    BeginStep(session, "decoding " + ForTerminal(path), size, RYN_STAT_BYTES_IN);
    int32_t status = rynPop3Source(Channel, copy.c_str());
    if (status >= 0)
        status = rynGetEmailFile(Channel, 1, TextFileName, folder.c_str(), folder.c_str());
    if (status >= 0)
        status = Drive(session);
    if (status < 0)
        return ReportFailure(session, status);
    if (remove(copy.c_str()) == 0)
        return EXIT_DONE;
    fprintf(stderr, "rynmail: can't remove '%s'\n", ForTerminal(copy).c_str());
    return EXIT_LOCAL_FILE;
}

static ExitCode DecodeInto(Session& session, const char* path, const std::string& into,
                           std::string& folder)
{
    MessageTraits traits;
    if (!MakeServerCopy(path, PathIn(folder, CopyName), traits))
        return EXIT_LOCAL_FILE;
    if (!HasRoomFor(folder, 2 * traits.Bytes)) {
        fprintf(stderr, "rynmail: there is no room for what '%s' holds\n", path);
        return EXIT_LOCAL_FILE;
    }
    if (const ExitCode outcome = DecodeCopy(session, path, folder, traits.Bytes);
        outcome != EXIT_DONE)
        return outcome;
    if (traits.HasOkLine)
        fprintf(stderr, "rynmail: %s lacks lines that begin with +OK\n", TextFileName);
    const std::vector<ReceivedFile> attachments = TakeAttachments(folder);
    if (!CommitFolder(into, folder))
        return EXIT_LOCAL_FILE;
    printf("%s: %s\n", ForTerminal(path).c_str(), ForTerminal(folder).c_str());
    PrintReceived(folder, traits.Head, attachments);
    return EXIT_DONE;
}

static ExitCode DecodeAll(Session& session, const Options& options)
{
    std::string into, folder;
    if (const ExitCode outcome = OpenLog(options); outcome != EXIT_DONE)
        return outcome;
    if (const ExitCode outcome = PrepareInto(options.Into, into); outcome != EXIT_DONE)
        return outcome;
    rynIntegerParam(Channel, RYN_AUTO_CALL_DRIVER, 0);
    SetReceiveParams();
    for (const char* path : options.Words) {
        if (!ClaimFolder(into, folder))
            return EXIT_LOCAL_FILE;
        const ExitCode outcome = DecodeInto(session, path, into, folder);
        if (outcome == EXIT_DONE)
            continue;
        RemoveFolder(folder); // the file itself is still there
        return outcome;
    }
    return EXIT_DONE;
}

ExitCode RunDecode(const Options& options)
{
    if (options.Words.empty() || !options.Into)
        return WrongUse("decode wants a file and --into");
    Session session;
    if (!StartSession(session))
        return EXIT_OTHER;
    const ExitCode outcome = DecodeAll(session, options);
    EndSession(session, false);
    return outcome;
}
