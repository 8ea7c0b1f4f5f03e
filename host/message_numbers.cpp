// Reads the numbers of messages and compares them with what the mailbox holds.
#include "message_numbers.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

static bool IsAll(const Options& options)
{
    return options.Messages.size() == 1 && strcmp(options.Messages[0], "all") == 0;
}

bool AreNumbers(const Options& options)
{
    if (IsAll(options))
        return true;
    for (const char* typed : options.Messages) {
        char* end;
        const unsigned long number = strtoul(typed, &end, 10);
        if (*typed < '0' || *typed > '9' || *end || number < 1 || number > INT_MAX)
            return false;
    }
    return true;
}

ExitCode ChooseMessages(const Options& options, int32_t count, std::vector<int32_t>& numbersOut)
{
    if (IsAll(options)) {
        for (int32_t message = 1; message <= count; ++message)
            numbersOut.push_back(message);
        return EXIT_DONE;
    }
    for (const char* typed : options.Messages) {
        const auto message = static_cast<int32_t>(strtol(typed, nullptr, 10));
        numbersOut.push_back(message);
        if (message <= count)
            continue;
        fprintf(stderr, "rynmail: there is no message %d: the mailbox holds %d\n", message, count);
        return EXIT_REFUSED;
    }
    return EXIT_DONE;
}
