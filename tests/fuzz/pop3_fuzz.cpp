// A POP3 session with a hostile server (fuzz_session.h).
#include "include/ryn32.h"
#include "tests/fuzz/fuzz_fetch.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/fuzz/fuzz_peer.h"
#include "tests/fuzz/fuzz_session.h"

static int32_t Connect(SessionHost& host)
{
    SessionAbort(host);
    return rynPop3Connect(0, PeerName, "user", "secret");
}

static constexpr SessionLetter Letters[] = { { 'n', Connect } };

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSession({ Letters, RYN_ERR_POP3_REPLY, CheckHonestPop3 }, data, size);
    return 0;
}
