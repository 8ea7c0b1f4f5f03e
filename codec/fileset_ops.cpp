// Small operations that need no connection: whether files can be opened, a pause, a tick count.
#include "codec/text.h"
#include "frame/channel.h"
#include "frame/log.h"
#include "frame/settings.h"
#include "platform/platform.h"
#include "transport/vfile.h"

constexpr int32_t EntryTooLong = 99;

// Copies the entry at the head of a list: its length, or -1 for one of size chars or more, whose head
// is copied.
static int32_t TakeEntry(const char* list, char* name, int32_t size)
{
    int32_t length = 0;
    for (; list[length] != 0 && list[length] != AttachDelimiter; length++) {
        if (length + 1 >= size) {
            name[length] = 0;
            return -1;
        }
        name[length] = list[length];
    }
    name[length] = 0;
    return length;
}

// Tests the entries one after the other; the channel may be null.
static int32_t TestEntries(const Channel* ch, const char* list, char* buffer, int32_t size)
{
    for (int32_t number = 1;; number++) {
        const int32_t length = TakeEntry(list, buffer, size);
        if (length < 0)
            return EntryTooLong;
        if (u_Probe(buffer) < 0) {
            if (ch != nullptr)
                LogFormat(*ch, "File #%d (%s) does not exist", number, buffer);
            return length;
        }
        buffer[0] = 0;
        if (list[length] == 0)
            return 0;
        list += length + 1;
    }
}

int32_t rynTestFileSet(uint32_t channel, const char* list, char* buffer, int32_t size)
{
    constexpr uint32_t NoChannel = static_cast<uint32_t>(-1);
    constexpr int32_t SmallestBuffer = 80;
    constexpr char FileMark = '@'; // in front of the list; the setting of that mark does not count
    const Channel* ch = nullptr;
    if (channel != NoChannel) {
        if (const int32_t status = GuardChannel(channel); status < 0)
            return status;
        ch = ChannelTable[channel];
    }
    if (size < SmallestBuffer)
        return RYN_ERR_BUFFER_TOO_SMALL;
    if (list == nullptr)
        return RYN_ERR_NO_FILENAME;
    if (buffer == nullptr)
        return RYN_ERR_NULL_BUFFER;
    return TestEntries(ch, *list == FileMark ? list + 1 : list, buffer, size);
}

int32_t rynSleep(int32_t ms)
{
    if (ms < 0)
        return 0;
    osSleep(static_cast<uint32_t>(ms));
    return 1;
}

int32_t rynGetTicks(int32_t divisor)
{
    return divisor < 1 ? 0 : static_cast<int32_t>(osTickCount() / static_cast<uint32_t>(divisor));
}
