// The table of vSocks and the life of a connection: making, resolving, connecting, closing.
#include "transport/vsock.h"

#include "codec/text.h"
#include "frame/settings.h"
#include "frame/ticks.h"
#include "platform/platform.h"
#include "transport/vfile.h"
#include "transport/vstream.h"

#include <cstring>

constexpr uint32_t ClosePause = 500; // ms that a close leaves the system to deliver

static VSockRecord vSockTable[RYN_MAX_CHANNELS];
static uint32_t vSockCount;

VSockRecord* vsRecord(int32_t vs)
{
    return static_cast<uint32_t>(vs) < vSockCount ? &vSockTable[vs] : nullptr;
}

static bool HasSocket(const VSockRecord& record)
{
    return record.Socket > SOCKET_CLAIMED;
}

static bool HasFile(const VSockRecord& record)
{
    return record.SourceFile != 0 || record.TargetFile != 0;
}

int32_t vsInit(uint32_t count, uint32_t pollDelay)
{
    vSockCount = count < RYN_MAX_CHANNELS ? count : RYN_MAX_CHANNELS;
    memset(vSockTable, 0, vSockCount * sizeof vSockTable[0]);
    for (uint32_t i = 0; i < vSockCount; i++) {
        vSockTable[i].Number = static_cast<int32_t>(i);
        vSockTable[i].PollDelay = pollDelay;
    }
    const int32_t status = osNetworkStart();
    return status < 0 ? status : VS_OK;
}

void vsShutdown()
{
    for (uint32_t i = 0; i < vSockCount; i++) {
        VSockRecord& record = vSockTable[i];
        if (HasSocket(record))
            osSocketClose(record.Socket);
        u_Close(record.SourceFile);
        u_Close(record.TargetFile);
        record.SourceFile = record.TargetFile = 0;
        record.Socket = SOCKET_FREE;
        record.InUse = 0;
    }
    vSockCount = 0;
}

// --- dotted quads ---

// One part, moving the text behind it: the value, or -1. An empty part is 0.
static int32_t ParseQuadPart(const char*& text)
{
    int32_t value = 0;
    for (; *text != '.' && *text != 0; text++) {
        if (*text < '0' || *text > '9')
            return -1;
        value = value * 10 + (*text - '0');
        if (value > 255)
            return -1;
    }
    return value;
}

// False unless four parts are there, with a dot between each two.
static bool ParseQuad(const char* text, uint32_t& addressOut)
{
    addressOut = 0;
    for (int part = 0; part < 4; part++) {
        if (part > 0 && *text++ != '.')
            return false;
        const int32_t value = ParseQuadPart(text);
        if (value < 0)
            return false;
        addressOut = addressOut << 8 | static_cast<uint32_t>(value);
    }
    return true;
}

bool IsDottedQuad(const char* text)
{
    uint32_t address = 0;
    return *text != 0 && ParseQuad(text, address);
}

uint32_t ParseDottedQuad(const char* text)
{
    uint32_t address = 0;
    ParseQuad(text, address);
    return address;
}

int32_t FormatDottedQuad(uint32_t address, char* text, int32_t capacity)
{
    constexpr int32_t QuadCapacity = 17;
    if (capacity < QuadCapacity)
        return 0;
    return FormatText(text, static_cast<size_t>(capacity), "%u.%u.%u.%u", address >> 24,
                      address >> 16 & 255, address >> 8 & 255, address & 255);
}

// --- making and connecting ---

// Claims the lowest free record: its number, or -1.
static int32_t vsAllocate()
{
    int32_t number = -1;
    osLockEnter(OS_LOCK_SOCKETS);
    for (uint32_t i = 0; i < vSockCount && number < 0; i++) {
        if (vSockTable[i].Socket == SOCKET_FREE) {
            vSockTable[i].Socket = SOCKET_CLAIMED;
            number = static_cast<int32_t>(i);
        }
    }
    osLockLeave(OS_LOCK_SOCKETS);
    return number;
}

// The field is looked at by other threads' vsAllocate, so it changes under the lock.
static void SetSocket(VSockRecord& record, int32_t socket)
{
    osLockEnter(OS_LOCK_SOCKETS);
    record.Socket = socket;
    osLockLeave(OS_LOCK_SOCKETS);
}

// Claims one certain record for a file: false while a connection or another file has it.
static bool ClaimRecord(VSockRecord& record)
{
    osLockEnter(OS_LOCK_SOCKETS);
    const bool isFree = record.Socket == SOCKET_FREE || HasFile(record);
    if (isFree) {
        record.Socket = SOCKET_CLAIMED;
        record.InUse = 0;
    }
    osLockLeave(OS_LOCK_SOCKETS);
    return isFree;
}

static void ForgetLooks(VSockRecord& record)
{
    record.KnownWritable = record.KnownReadable = record.KnownSilent = 0;
    record.HasFailed = 0;
}

// What the last user left behind must not reach the next: the ring, what polls told, and the log,
// whose handle may name another file by now.
static void ForgetLastUse(VSockRecord& record)
{
    record.RingHead = record.RingTail = 0;
    ForgetLooks(record);
    record.NonBlocking = 0;
    record.LogHandle = 0;
    record.Gathers = 0;
    record.SendFailure = 0;
    record.GatheredBytes = 0;
}

int32_t vsCreate(uint32_t localIP)
{
    const int32_t vs = vsAllocate();
    if (vs < 0)
        return VS_ERR_NO_SLOT;
    VSockRecord& record = vSockTable[vs];
    ForgetLastUse(record);
    if (HasFile(record))
        return vs;
    const int32_t socket = osSocketCreate();
    if (socket < 0) {
        SetSocket(record, SOCKET_FREE);
        return VS_ERR_NO_SOCKET;
    }
    SetSocket(record, socket);
    if (localIP != 0)
        vsBind(vs, localIP, 0);
    record.InUse = 1;
    return vs;
}

int32_t vsBind(int32_t vs, uint32_t localIP, uint16_t localPort)
{
    VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    record->LocalIP = localIP;
    record->LocalPort = localPort;
    const int32_t status = osSocketBind(record->Socket, localIP, localPort);
    return status < 0 ? status : VS_OK;
}

// Looks the record's name up: VS_OK, VS_ERR_NOT_OPEN, or a negated Winsock number.
static int32_t vsResolve(VSockRecord& record)
{
    osSleep(record.PollDelay);
    uint32_t address = 0;
    if (const int32_t status = osResolve(record.HostName, address); status < 0)
        return status;
    // Some resolvers answer with the first four bytes of the name where they know nothing.
    const uint8_t bytes[4] = { static_cast<uint8_t>(address >> 24),
                               static_cast<uint8_t>(address >> 16),
                               static_cast<uint8_t>(address >> 8), static_cast<uint8_t>(address) };
    if (address == 0 || memcmp(bytes, record.HostName, sizeof bytes) == 0)
        return VS_ERR_NOT_OPEN;
    record.RemoteIP = address;
    return VS_OK;
}

int32_t vsSetHost(int32_t vs, const char* name)
{
    VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    if (strlen(name) >= HostNameCapacity)
        return VS_ERR_NAME_TOO_LONG;
    CopyField(record->HostName, name);
    if (IsDottedQuad(name)) {
        record->RemoteIP = ParseDottedQuad(name);
        return VS_OK;
    }
    return vsResolve(*record) < 1 ? RYN_ERR_SERVER_NOT_FOUND : VS_OK;
}

int32_t vsConnect(int32_t vs, const char* name, uint16_t port)
{
    VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    record->RemotePort = port;
    vsSetHost(vs, name); // a lookup that fails leaves the address of the last one
    vsLogFormat(*record, "Socket=%d, RemoteIP=%x, RemotePort=%d\r\n", record->Socket,
                record->RemoteIP, port);
    ForgetLooks(*record); // an unconnected socket looks writable
    const int32_t status = osSocketConnect(record->Socket, record->RemoteIP, port);
    vsLogFormat(*record, "connect(%d) returns %d\r\n", record->Socket, status < 0 ? -1 : 0);
    if (status >= 0 || status == RYN_WSAEWOULDBLOCK)
        return VS_OK;
    record->HasFailed = 1;
    return status;
}

int32_t vsSetBlocking(int32_t vs, bool blocking)
{
    VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    const int32_t nonBlocking = blocking ? 0 : 1;
    if (record->NonBlocking != nonBlocking)
        osSocketSetBlocking(record->Socket, blocking);
    record->NonBlocking = nonBlocking;
    return VS_OK;
}

// --- looking ---

// One look at the socket; what it tells of reading and writing is kept.
static int32_t Look(VSockRecord& record)
{
    int32_t answers = osSocketPoll(record.Socket);
    if (answers < 0) // the system can't tell now: whoever waits asks again, within its deadline
        answers = 0;
    record.KnownWritable = (answers & OS_POLL_WRITE) != 0;
    record.KnownReadable = (answers & OS_POLL_READ) != 0;
    record.KnownSilent = record.KnownReadable == 0;
    return answers;
}

int32_t vsSelect(int32_t vs, int32_t kind)
{
    VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    if (HasFile(*record))
        return 1;
    if (!HasSocket(*record))
        return 0;
    if (kind == VS_WAIT_WRITE && record->GatheredBytes > 0)
        return 1; // there is room: a full buffer is sent at once
    switch (kind) {
    case VS_WAIT_READ:
        return record->KnownReadable != 0 || (Look(*record) & OS_POLL_READ) != 0 ? 1 : 0;
    case VS_WAIT_WRITE:
        return record->KnownWritable != 0 || (Look(*record) & OS_POLL_WRITE) != 0 ? 1 : 0;
    case VS_WAIT_EXCEPT:
        return record->HasFailed != 0 || (Look(*record) & OS_POLL_EXCEPT) != 0 ? 1 : 0;
    default:
        return VS_ERR_BAD_WAIT_KIND;
    }
}

// True if a readable socket has no byte to read but the peer's farewell, or an error. The system
// tells an error once, so it is kept.
static bool HasGone(VSockRecord& record)
{
    char byte = 0;
    const int32_t result = osSocketPeek(record.Socket, &byte, 1);
    if (result >= 1 || result == RYN_WSAEWOULDBLOCK)
        return false;
    if (result < 0)
        record.HasFailed = 1;
    return true;
}

void vsForgetSilence(int32_t vs)
{
    if (VSockRecord* record = vsRecord(vs); record != nullptr)
        record->KnownSilent = 0;
}

int32_t vsIsConnected(int32_t vs)
{
    VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    if (record->TargetFile != 0)
        return 1;
    if (!HasSocket(*record))
        return 0; // a file that is read is no connection
    vsFlush(vs);
    const int32_t answers = Look(*record);
    if ((answers & OS_POLL_WRITE) == 0)
        return 0;
    if ((answers & OS_POLL_READ) != 0 && HasGone(*record))
        return 0;
    vsSetBlocking(vs, true);
    return 1;
}

int32_t vsWaitConnected(int32_t vs, uint32_t ms)
{
    constexpr uint32_t Pause = 50;
    const uint32_t deadline = TickAfter(osTickCount(), ms);
    for (;;) {
        if (const int32_t isConnected = vsIsConnected(vs); isConnected != 0)
            return isConnected;
        if (TickReached(osTickCount(), deadline + 1))
            return 0;
        osSleep(Pause);
    }
}

// --- closing, options, files ---

int32_t vsClose(int32_t vs)
{
    VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    if (record->InUse == 0)
        return VS_ERR_NOT_OPEN;
    if (!HasSocket(*record))
        return VS_OK;
    vsFlush(vs);
    const int32_t status = osSocketClose(record->Socket);
    osSleep(ClosePause);
    if (status >= 0)
        record->InUse = 0;
    SetSocket(*record, SOCKET_FREE);
    return status < 0 ? status : VS_OK;
}

int32_t vsLocalAddress(int32_t vs, char* text, int32_t capacity)
{
    const VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    uint32_t address = 0;
    if (!HasSocket(*record) || osSocketLocalAddress(record->Socket, address) < 0)
        return 0;
    return FormatDottedQuad(address, text, capacity);
}

int32_t vsRemoteAddress(int32_t vs, char* text, int32_t capacity)
{
    const VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    return FormatDottedQuad(record->RemoteIP, text, capacity);
}

int32_t vsSetOption(int32_t vs, int32_t option, int32_t value)
{
    if (vs == -1) {
        if (option == VS_OPT_SHOW_SECRETS)
            ShowSecrets = static_cast<uint32_t>(value);
        return option == VS_OPT_SHOW_SECRETS || option == VS_OPT_LOG_HANDLE ? VS_OK
                                                                            : VS_ERR_BAD_OPTION;
    }
    VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    if (option == VS_OPT_LOG_HANDLE) {
        record->LogHandle = value;
        vsLogFormat(*record, "vs: LogHandle = %d\r\n", value);
        return VS_OK;
    }
    if (option != VS_OPT_WRITE_WAIT)
        return VS_ERR_BAD_OPTION;
    record->WriteWait = static_cast<uint32_t>(value);
    return VS_OK;
}

int32_t vsGetInfo(int32_t vs, int32_t query)
{
    if (query == VS_INFO_VERSION)
        return VersionNumber;
    if (query == VS_INFO_BUILD)
        return BuildNumber;
    const VSockRecord* record = vsRecord(vs);
    if (query == VS_INFO_IS_OPEN)
        return record == nullptr ? 0 : record->InUse;
    return record == nullptr ? RYN_ERR_NO_SUCH_VSOCK : VS_ERR_BAD_OPTION;
}

// Closes one of the two files; the record is given up with the last.
static void CloseFile(VSockRecord& record, int32_t& file)
{
    if (file == 0)
        return;
    u_Close(file);
    file = 0;
    record.RingHead = record.RingTail = 0;
    if (!HasFile(record) && !HasSocket(record))
        SetSocket(record, SOCKET_FREE);
}

// Opens a file for a record that was claimed for it.
static int32_t AttachFile(VSockRecord& record, int32_t& file, int32_t opened)
{
    if (opened < 1) {
        if (!HasFile(record))
            SetSocket(record, SOCKET_FREE);
        return VS_ERR_NO_FILE;
    }
    file = opened;
    return VS_OK;
}

int32_t vsOpenSource(int32_t vs, const char* name)
{
    VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    CloseFile(*record, record->SourceFile);
    if (!ClaimRecord(*record))
        return VS_ERR_NO_SLOT;
    ForgetLastUse(*record);
    return AttachFile(*record, record->SourceFile, u_Open(name, 0, false));
}

int32_t vsOpenTarget(int32_t vs, const char* name)
{
    VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    CloseFile(*record, record->TargetFile);
    if (!ClaimRecord(*record))
        return VS_ERR_NO_SLOT;
    ForgetLastUse(*record);
    return AttachFile(*record, record->TargetFile, u_Create(name, 0, false));
}

int32_t vsCloseSource(int32_t vs)
{
    VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    CloseFile(*record, record->SourceFile);
    return VS_OK;
}

int32_t vsCloseTarget(int32_t vs)
{
    VSockRecord* record = vsRecord(vs);
    if (record == nullptr)
        return RYN_ERR_NO_SUCH_VSOCK;
    CloseFile(*record, record->TargetFile);
    return VS_OK;
}

int32_t vsGetHostName(char* text, int32_t capacity)
{
    text[0] = 0;
    const int32_t status = osHostName(text, static_cast<size_t>(capacity));
    if (status < 0)
        return status;
    return text[0] == 0 ? RYN_ERR_NO_HOST_NAME : 1;
}

void vsLog(int32_t vs, const char* text)
{
    const VSockRecord* record = vsRecord(vs);
    if (record != nullptr && record->LogHandle != 0)
        u_Write(record->LogHandle, text, TextLength(text));
}

void vsLogFormat(const VSockRecord& record, const char* format, ...)
{
    if (record.LogHandle == 0)
        return;
    char line[FormatCapacity];
    va_list arguments;
    va_start(arguments, format);
    FormatTextV(line, sizeof line, format, arguments);
    va_end(arguments);
    vsLog(record.Number, line);
}
