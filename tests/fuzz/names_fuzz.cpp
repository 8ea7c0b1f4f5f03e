// The headers of a part and the names in them. The attachments go to a folder of their own, to that
// of the message file, or to where the stored message and the log lie: neither may be touched.
#include "tests/fuzz/fuzz_fetch.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/fuzz/fuzz_world.h"

constexpr char Subject[] = "Subject: kept\r\n";
constexpr char Head[] = "MIME-Version: 1.0\r\n"
                        "Content-Type: multipart/mixed; boundary=x1\r\n"
                        "\r\n"
                        "--x1\r\n";
constexpr char Tail[] = "\r\n\r\nQUJD\r\n--x1--\r\n";

static const std::string& FolderFor(uint8_t choice)
{
    const WorldFolders& folders = Folders();
    const std::string* const all[] = { &folders.Attach, &folders.Mail, &folders.Store };
    return *all[choice % 3];
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzBytes input = { data, size };
    const FuzzSettings bytes = TakeSettings(input);
    const std::string lines = WithLineEnds(TakeMessage(input, bytes));
    WorldBegin(FuzzTick(bytes), 1);
    const FetchSettings settings = ApplySettings(bytes);
    const std::string message = std::string(Subject) + Head + lines + Tail;
    const Fetched fetched = FetchStored(message, settings, FolderFor(bytes.Bytes[3]));
    if (!settings.NoHeaderCopy)
        Require(fetched.Message.compare(0, sizeof Subject - 1, Subject) == 0,
                "the message file is kept");
    CheckHonestFetch();
    WorldEnd();
    return 0;
}
