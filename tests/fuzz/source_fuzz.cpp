// A stored message through the whole decoder; if the input asks for it, the same from a server, in
// pieces: that must make no difference.
#include "tests/fuzz/fuzz_fetch.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/fuzz/fuzz_world.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzBytes input = { data, size };
    const FuzzSettings bytes = TakeSettings(input);
    const std::string message = TakeMessage(input, bytes);
    WorldBegin(FuzzTick(bytes), 1);
    const FetchSettings settings = ApplySettings(bytes);
    const bool compares = bytes.Bytes[3] != 0 && CanCompare(settings);
    if (compares)
        CompareWays(message, bytes);
    else
        FetchStored(message, settings, Folders().Attach);
    CheckHonestFetch();
    WorldEnd();
    return 0;
}
