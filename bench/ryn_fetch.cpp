// Fetching and decoding by the library; see ryn_fetch.h.
#include "bench/ryn_fetch.h"

#include "include/ryn32.h"

#include <cstdio>

static bool Succeeded(int32_t result, const char* what)
{
    if (result >= 0)
        return true;
    char text[256] = "";
    rynErrorText(0, result, text, sizeof text);
    fprintf(stderr, "%s: %d %s\n", what, result, text);
    return false;
}

bool RynDecode(const std::vector<BenchMessage>& messages, const std::string& folder)
{
    if (!Succeeded(rynAttach(1), "attach"))
        return false;
    bool isRight = true;
    for (const BenchMessage& message : messages) {
        isRight =
            isRight && Succeeded(rynImapSource(0, message.File.c_str()), "source") &&
            Succeeded(rynGetEmailFile(0, 1, message.Name.c_str(), folder.c_str(), folder.c_str()),
                      "decode");
    }
    rynRelease();
    return isRight;
}

static bool FetchAll(const std::vector<BenchMessage>& messages, int32_t firstNumber,
                     const std::string& folder)
{
    int32_t number = firstNumber;
    for (const BenchMessage& message : messages) {
        if (!Succeeded(
                rynGetEmailFile(0, number, message.Name.c_str(), folder.c_str(), folder.c_str()),
                "fetch"))
            return false;
        number++;
    }
    return true;
}

bool RynFetchByPop3(const std::vector<BenchMessage>& messages, uint16_t port, int32_t firstNumber,
                    const std::string& folder)
{
    if (!Succeeded(rynAttach(1), "attach"))
        return false;
    rynIntegerParam(0, RYN_POP3_PORT, port);
    rynIntegerParam(0, RYN_COMMAND_GAP, 0);
    const bool isRight = Succeeded(rynPop3Connect(0, "127.0.0.1", "user", "secret"), "connect") &&
                         FetchAll(messages, firstNumber, folder);
    rynClose(0);
    rynRelease();
    return isRight;
}

bool RynFetchByImap(const std::vector<BenchMessage>& messages, uint16_t port, int32_t firstNumber,
                    const std::string& folder)
{
    if (!Succeeded(rynAttach(1), "attach"))
        return false;
    rynIntegerParam(0, RYN_IMAP_PORT, port);
    rynIntegerParam(0, RYN_COMMAND_GAP, 0);
    const bool isRight = Succeeded(rynImapConnect(0, "127.0.0.1", "user", "secret"), "connect") &&
                         FetchAll(messages, firstNumber, folder);
    rynClose(0);
    rynRelease();
    return isRight;
}
