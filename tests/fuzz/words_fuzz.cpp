// The lines of a message's head, with their folds and encoded words, read from a file and from a
// server in pieces.
#include "tests/fuzz/fuzz_fetch.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/fuzz/fuzz_world.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzBytes input = { data, size };
    const FuzzSettings bytes = TakeSettings(input);
    const std::string head = WithLineEnds(TakeMessage(input, bytes));
    const std::string message = head + "\r\n\r\nbody\r\n";
    WorldBegin(FuzzTick(bytes), 1);
    const FetchSettings settings = ApplySettings(bytes);
    if (CanCompare(settings))
        CompareWays(message, bytes);
    else
        FetchStored(message, settings, Folders().Attach);
    CheckHonestFetch();
    WorldEnd();
    return 0;
}
