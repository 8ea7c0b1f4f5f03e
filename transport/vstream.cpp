// Reading and writing of a vSock: the receive ring, lines, the send path with its log.
#include "transport/vstream.h"

#include "codec/text.h"
#include "frame/settings.h"
#include "frame/ticks.h"
#include "platform/platform.h"
#include "transport/vfile.h"
#include "transport/vsock.h"

#include <cstring>

constexpr int32_t BlockLineChars = 512; // a line below this length goes out in one block
constexpr int32_t MaskedLogChars = 256; // texts from this length on are logged as they stand

// --- the receive ring ---
//
// It is filled only where its bytes end, so they always stand in one piece between head and tail.

static int32_t BytesHeld(const VSockRecord& record)
{
    return record.RingTail - record.RingHead;
}

int32_t vsResetRing(int32_t vs)
{
    VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    record->RingHead = record->RingTail = 0;
    return VS_OK;
}

static void TakeFromRing(VSockRecord& record, char* buffer, int32_t count)
{
    memcpy(buffer, record.Ring + record.RingHead, static_cast<size_t>(count));
    record.RingHead += count;
    if (record.RingHead == record.RingTail)
        record.RingHead = record.RingTail = 0;
}

// One read from the file or the socket behind a record: bytes, 0 if nothing has come after all, or
// RYN_ERR_SOCK_CLOSED.
static int32_t Receive(VSockRecord& record, char* buffer, int32_t count)
{
    int32_t result = RYN_ERR_SOCK_CLOSED;
    if (record.SourceFile != 0) {
        result = u_Read(record.SourceFile, buffer, count);
        osYield();
    } else if (record.Socket > SOCKET_CLAIMED) {
        record.KnownReadable = 0;
        result = osSocketReceive(record.Socket, buffer, count);
        vsLogFormat(record, "recv(%d)=%d\r\n", record.Number, result < 0 ? -1 : result);
        if (result == RYN_WSAEWOULDBLOCK)
            return 0;
    }
    if (result < 1)
        return RYN_ERR_SOCK_CLOSED;
    BlankZeros(buffer, result);
    return result;
}

// Adds up to count bytes behind what the ring holds: 1 if it now holds more, 0 if nothing is there
// yet, or a status.
static int32_t FillRing(VSockRecord& record, int32_t count)
{
    vsFlush(record.Number);
    const int32_t writable = vsSelect(record.Number, VS_WAIT_WRITE);
    if (writable == 0)
        return RYN_ERR_SOCK_CLOSED;
    if (vsSelect(record.Number, VS_WAIT_READ) == 0)
        return 0;
    const int32_t held = BytesHeld(record);
    memmove(record.Ring, record.Ring + record.RingHead, static_cast<size_t>(held));
    record.RingHead = 0;
    record.RingTail = held;
    const int32_t room = RingCapacity - held;
    const int32_t received = Receive(record, record.Ring + held, count < room ? count : room);
    if (received < 1)
        return received;
    record.RingTail += received;
    return 1;
}

// Sees to it that the ring holds something, for a reader that wants count bytes: bytes held, of
// those wanted; 0 = nothing yet; RYN_ERR_SOCK_CLOSED.
static int32_t ReadyBytes(VSockRecord& record, int32_t count)
{
    if (count > RingCapacity)
        count = RingCapacity;
    const int32_t held = BytesHeld(record);
    if (held == 0 || (held == 1 && count > 1)) {
        const int32_t status = FillRing(record, count - held);
        if (status < 0 && held == 0)
            return status;
    }
    return BytesHeld(record) < count ? BytesHeld(record) : count;
}

int32_t vsPeek(int32_t vs, char* buffer, int32_t count)
{
    VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    if (count < 1)
        return 0;
    const int32_t ready = ReadyBytes(*record, count);
    if (ready > 0)
        memcpy(buffer, record->Ring + record->RingHead, static_cast<size_t>(ready));
    return ready;
}

// True if the ring holds count bytes or a line feed among those that it holds.
static bool HoldsLineHead(const VSockRecord& record, int32_t count)
{
    const int32_t held = BytesHeld(record);
    return held >= count || (held > 0 && memchr(record.Ring + record.RingHead, '\n',
                                                static_cast<size_t>(held)) != nullptr);
}

int32_t vsPeekLine(int32_t vs, char* buffer, int32_t count, uint32_t ms)
{
    VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    uint32_t deadline = 0;
    bool isWaiting = false;
    while (!HoldsLineHead(*record, count)) {
        const int32_t status = FillRing(*record, RingCapacity);
        if (status < 0 && BytesHeld(*record) == 0)
            return status;
        if (status < 0)
            break;
        if (status > 0)
            continue;
        const uint32_t now = osTickCount();
        if (!isWaiting)
            deadline = TickAfter(now, ms);
        isWaiting = true;
        if (TickReached(now, deadline))
            break;
        osSleep(record->PollDelay);
    }
    const int32_t ready = BytesHeld(*record) < count ? BytesHeld(*record) : count;
    memcpy(buffer, record->Ring + record->RingHead, static_cast<size_t>(ready));
    return ready;
}

static void LogTaken(const VSockRecord& record, const char* prefix, const char* text)
{
    if (record.LogHandle == 0)
        return;
    vsLog(record.Number, prefix);
    vsLog(record.Number, text);
}

int32_t vsRead(int32_t vs, char* buffer, int32_t count)
{
    VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    if (count < 1)
        return VS_ERR_BAD_LENGTH;
    const int32_t held = BytesHeld(*record);
    const int32_t taken = held < count ? held : count;
    if (taken > 0) {
        TakeFromRing(*record, buffer, taken);
        buffer[taken] = 0;
        LogTaken(*record, "R: ", buffer);
    }
    if (taken == count)
        return taken;
    vsFlush(vs);
    if (vsSelect(vs, VS_WAIT_WRITE) == 0)
        return RYN_ERR_SOCK_CLOSED;
    if (vsSelect(vs, VS_WAIT_READ) == 0)
        return taken;
    const int32_t received = Receive(*record, buffer + taken, count - taken);
    if (received < 1)
        return received < 0 ? received : taken;
    buffer[taken + received] = 0;
    LogTaken(*record, "r: ", buffer + taken);
    return taken + received;
}

int32_t vsGetChunk(int32_t vs, char* buffer, int32_t capacity)
{
    VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    const int32_t ready = ReadyBytes(*record, capacity - 1);
    if (ready < 1)
        return ready;
    const char* head = record->Ring + record->RingHead;
    const void* lineFeed = memchr(head, '\n', static_cast<size_t>(ready));
    if (lineFeed == nullptr)
        return vsRead(vs, buffer, ready);
    const ptrdiff_t line = static_cast<const char*>(lineFeed) - head + 1;
    return vsRead(vs, buffer, static_cast<int32_t>(line));
}

static uint32_t TimeLeft(uint32_t deadline)
{
    const uint32_t now = osTickCount();
    return TickReached(now, deadline) ? 0 : deadline - now;
}

int32_t vsReadLine(int32_t vs, char* buffer, int32_t capacity, uint32_t firstWait,
                   uint32_t nextWait)
{
    buffer[0] = 0;
    if (vsWaitData(vs, firstWait) == 0)
        return 0;
    int32_t count = vsGetChunk(vs, buffer, capacity);
    if (count < 1)
        return count;
    if (count == capacity - 1 || buffer[count - 1] == '\n')
        return count;
    const uint32_t deadline = TickAfter(osTickCount(), nextWait); // a slow drip must not renew it
    while (count < capacity - 1 && buffer[count - 1] != '\n' &&
           vsWaitData(vs, TimeLeft(deadline)) != 0) {
        const int32_t more = vsGetChunk(vs, buffer + count, capacity - count);
        if (more < 1)
            return more;
        count += more;
    }
    return count;
}

int32_t vsWaitData(int32_t vs, uint32_t ms)
{
    const VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    vsFlush(vs);
    if (BytesHeld(*record) > 0 || record->SourceFile != 0)
        return 1;
    uint32_t deadline = 0;
    bool isWaiting = false;
    while (vsSelect(vs, VS_WAIT_READ) == 0) {
        const uint32_t now = osTickCount();
        if (!isWaiting)
            deadline = TickAfter(now, ms);
        isWaiting = true;
        if (TickReached(now, deadline))
            return 0;
        osSleep(record->PollDelay);
    }
    return 1;
}

int32_t vsDrain(int32_t vs)
{
    constexpr int32_t DrainBytes = 255;
    constexpr int32_t MostDrained = 65536; // a peer that never stops is not waited for
    char scratch[DrainBytes + 1];
    if (vsRecord(vs) == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    for (int32_t drained = 0; drained < MostDrained && vsWaitData(vs, 0) != 0;) {
        const int32_t count = vsRead(vs, scratch, DrainBytes);
        if (count < 1)
            break;
        drained += count;
    }
    return VS_OK;
}

// --- sending ---

// True if the connection takes data, by what the last look has told or by a new one.
static bool IsUsable(const VSockRecord& record)
{
    if (record.TargetFile != 0 || (record.KnownWritable != 0 && record.KnownSilent != 0))
        return true;
    return vsWaitConnected(record.Number, record.WriteWait) == 1;
}

static int32_t SendSome(VSockRecord& record, const char* bytes, int32_t count)
{
    if (record.TargetFile != 0) {
        const int32_t written = u_Write(record.TargetFile, bytes, count);
        return written > 0 ? written : RYN_WSAEINVAL; // a full disk has no number of the network's
    }
    if (record.Socket <= SOCKET_CLAIMED)
        return RYN_WSAENOTSOCK;
    record.KnownWritable = record.KnownSilent = 0;
    return osSocketSend(record.Socket, bytes, count, DataTimeout);
}

// Sends bytes that can't be asked for again: a send that fails goes on where it stopped, as often as a
// line is tried. Bytes sent of count, or a status.
static int32_t SendPersistently(VSockRecord& record, const char* bytes, int32_t count)
{
    int32_t taken = SendSome(record, bytes, count);
    for (int tries = 1; taken < 1 && taken != RYN_WSAETIMEDOUT && tries < SendTries; tries++) {
        osSleep(SendRetryPause);
        taken = SendSome(record, bytes, count);
    }
    return taken;
}

int32_t vsFlush(int32_t vs)
{
    VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    const int32_t count = record->GatheredBytes;
    record->GatheredBytes = 0;
    for (int32_t sent = 0; sent < count && record->SendFailure == 0;) {
        const int32_t taken = SendPersistently(*record, record->Gathered + sent, count - sent);
        if (taken < 1) // what was sent of it can't be taken back
            record->SendFailure = taken < 0 ? taken : RYN_WSAEINVAL;
        sent += taken;
    }
    return record->SendFailure == 0 ? VS_OK : record->SendFailure;
}

void vsForgetSends(int32_t vs)
{
    VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return;
    record->SendFailure = 0;
    record->GatheredBytes = 0;
}

int32_t vsSendFailure(int32_t vs)
{
    const VSockRecord* record = vsRecord(vs);
    return record == nullptr ? 0 : record->SendFailure;
}

int32_t vsSetGather(int32_t vs, bool gathers)
{
    VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    record->Gathers = gathers ? 1 : 0;
    return gathers ? VS_OK : vsFlush(vs);
}

// Only a log must know at once what has gone out, and only a socket is slow.
static bool MayGather(const VSockRecord& record, int32_t count)
{
    return record.Gathers != 0 && record.LogHandle == 0 && record.TargetFile == 0 &&
           count <= GatherCapacity;
}

// Adds bytes to those that wait; the connection is tested when the first of them come.
static int32_t Gather(VSockRecord& record, const char* bytes, int32_t count)
{
    const bool isFull = count > GatherCapacity - record.GatheredBytes;
    if (isFull)
        if (const int32_t status = vsFlush(record.Number); status < 0)
            return status;
    // A flush may have filled the system's buffers to the brim: the next one waits for room.
    if (record.GatheredBytes == 0 && !isFull && !IsUsable(record))
        return RYN_ERR_SOCK_CLOSED;
    memcpy(record.Gathered + record.GatheredBytes, bytes, static_cast<size_t>(count));
    record.GatheredBytes += count;
    return count;
}

// The text as the log shows it: stars from maskStart up to the line end.
static void LogMasked(const VSockRecord& record, const char* text, int32_t maskStart)
{
    const int32_t length = TextLength(text);
    if (ShowSecrets != 0 || length >= MaskedLogChars || maskStart > length) {
        vsLog(record.Number, text);
        return;
    }
    char masked[MaskedLogChars];
    CopyField(masked, text);
    for (char* c = masked + maskStart; *c != 0 && *c != '\r' && *c != '\n'; c++)
        *c = '*';
    vsLog(record.Number, masked);
}

int32_t vsWrite(int32_t vs, const char* bytes, int32_t count, int32_t maskStart)
{
    VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    if (count < 1)
        return VS_ERR_BAD_LENGTH;
    // A secret does not wait in a buffer.
    if (maskStart < 0 && MayGather(*record, count) && record->SendFailure == 0)
        return Gather(*record, bytes, count);
    if (const int32_t status = vsFlush(vs); status < 0)
        return status;
    if (!IsUsable(*record))
        return RYN_ERR_SOCK_CLOSED;
    for (int32_t sent = 0; sent < count;) {
        const int32_t taken = SendSome(*record, bytes + sent, count - sent);
        if (taken < 1 && sent > 0) // half a line is out: it must not be sent once more
            record->SendFailure = taken < 0 ? taken : RYN_WSAEINVAL;
        if (taken < 1)
            return taken;
        sent += taken;
        osYield();
    }
    if (record->LogHandle == 0)
        return count;
    vsLog(vs, "S: ");
    if (maskStart < 0)
        vsLog(vs, bytes);
    else
        LogMasked(*record, bytes, maskStart);
    return count;
}

int32_t vsWriteText(int32_t vs, const char* text)
{
    return vsWrite(vs, text, TextLength(text), NoMask);
}

int32_t vsWriteLine(int32_t vs, const char* text)
{
    char line[BlockLineChars + 3];
    const int32_t length = CopyText(line, text, BlockLineChars);
    if (length < BlockLineChars) {
        memcpy(line + length, "\r\n", 3);
        return vsWrite(vs, line, length + 2, NoMask);
    }
    const int32_t whole = TextLength(text);
    const int32_t result = vsWrite(vs, text, whole, NoMask);
    if (result < 0)
        return result;
    const int32_t lineEnd = vsWrite(vs, "\r\n", 2, NoMask);
    if (lineEnd < 0 && vsRecord(vs)->SendFailure == 0)
        vsRecord(vs)->SendFailure = lineEnd; // the line is out without its end
    return whole + 2;
}

int32_t vsWriteLineMasked(int32_t vs, const char* text, int32_t maskStart)
{
    char line[BlockLineChars + 3];
    const int32_t length = CopyText(line, text, BlockLineChars);
    memcpy(line + length, "\r\n", 3);
    return vsWrite(vs, line, length + 2, maskStart);
}

// --- dots ---

void InsertDot(char* text, int32_t length)
{
    memmove(text + 1, text, static_cast<size_t>(length) + 1);
    text[0] = '.';
}

void DoubleLineDots(char* text, int32_t capacity)
{
    int32_t length = TextLength(text);
    for (char* place = strstr(text, "\r\n."); place != nullptr && length + 1 < capacity;
         place = strstr(place + 4, "\r\n.")) {
        InsertDot(place + 2, length - static_cast<int32_t>(place + 2 - text));
        length++;
    }
}
