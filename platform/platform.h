// Everything the library asks of an operating system. A folder beside this file answers for one
// system; the build picks it, and no file above this layer asks which one it is.
//
// Common promises: no routine throws or keeps a pointer that it was given; texts are 8-bit and
// zero-terminated; a capacity counts the terminating zero. Unless told otherwise a routine may be
// called from any thread and does not block.
#pragma once

#include <cstddef>
#include <cstdint>

// --- clock and calendar (clock) ---

// Milliseconds since some fixed moment, 32 bits, wraps after 49.7 days; may move in steps of up to
// 16 ms. Never fails.
uint32_t osTickCount();

// Pauses the thread for at least ms milliseconds; 0 yields once. A signal does not shorten it.
void osSleep(uint32_t ms);

// Lets other threads run if that is cheap to offer; may do nothing.
void osYield();

struct OsLocalTime {
    int32_t Year;    // four digits
    int32_t Month;   // 1 to 12
    int32_t Day;     // 1 to 31
    int32_t Weekday; // 0 Sunday to 6 Saturday
    int32_t Hour, Minute, Second;
    int32_t Bias;       // minutes: UTC less local standard time
    int32_t IsDaylight; // 1 while daylight saving is in force, one hour ahead of Bias
};

// The wall clock in the zone of the process.
void osLocalTime(OsLocalTime& timeOut);

// --- identity, texts, notices (system) ---

uint32_t osProcessId();

// The machine's name up to its first dot; empty if unknown or longer than 15 characters.
void osComputerName(char* name, size_t capacity);

// The process's current folder; empty if it can't be told or doesn't fit.
void osCurrentDirectory(char* path, size_t capacity);

// The system's own words for an error number of osFile...; cut to the capacity. Returns the length.
int32_t osErrorText(int32_t error, char* text, size_t capacity);

// Shows a text to whoever runs the program. Never waits for an answer.
void osNotice(const char* text);

// --- memory (memory) ---

// size zero-filled bytes, aligned for any record; null if the system refuses.
void* osAllocate(size_t size);

// Gives back what osAllocate returned; null is ignored.
void osFree(void* memory);

// --- locks (lock) ---

// The locks live as long as the process: there is nothing to create or to leak.
enum OsLock { OS_LOCK_ATTACH, OS_LOCK_SOCKETS, OS_LOCK_FILES, OS_LOCK_PROCESSES, OS_LOCK_COUNT };

void osLockEnter(OsLock lock); // waits for the lock
void osLockLeave(OsLock lock);

// --- files (file) ---
//
// A handle is a small positive number, never 0. A failed call answers with the system's error
// number, negated. Paths take '\' for the separator of folders ('/' works too where the system
// has it). Reads and writes block as the system's do and go on after a signal.

// Opens an existing file for reading, shared with other readers; folders, pipes and devices are
// refused.
int32_t osFileOpen(const char* path);

// Makes an empty file for writing, or empties an old one. A file that a handle holds for writing,
// here or in another process that keeps the rule, can be neither created nor opened.
int32_t osFileCreate(const char* path);

// Makes a file that did not exist; an existing name, a link among them, is refused.
int32_t osFileCreateNew(const char* path);

// As osFileCreate, but what is no plain file is refused, a link among them: for a name that the host
// did not choose.
int32_t osFileCreatePlain(const char* path);

// The same with a name of 16-bit chars, ended by 0.
int32_t osFileOpenWide(const uint16_t* path);
int32_t osFileCreateWide(const uint16_t* path);
int32_t osFileCreatePlainWide(const uint16_t* path);

// Bytes read, fewer than count only at the end; 0 at the end; negative on failure.
int32_t osFileRead(int32_t handle, void* buffer, int32_t count);

// Bytes written: fewer than count if the system stopped taking them (a full disk), negative if
// it took none.
int32_t osFileWrite(int32_t handle, const void* bytes, int32_t count);

void osFileClose(int32_t handle);

// The local time of a file's last change and its size in bytes; 0 or the negated error number.
int32_t osFileStamp(const char* path, OsLocalTime& timeOut, uint32_t& sizeOut);

// Removes a file; 0 or the negated error number.
int32_t osFileDelete(const char* path);

// --- sockets: TCP over IPv4 (socket) ---
//
// A handle is a positive number, never 0, 1 or 2. A failed call answers with the Winsock number of
// its error, negated, one that has none with -10022. Addresses and ports are in host order.

enum OsPoll : int32_t { OS_POLL_READ = 1, OS_POLL_WRITE = 2, OS_POLL_EXCEPT = 4 };

// Makes the network ready for use. 0 or a negated Winsock number.
int32_t osNetworkStart();

// A new blocking socket: handle or failure.
int32_t osSocketCreate();

// All three: 0 or failure. Connecting blocks until it is decided, or answers -10035 at once on a
// non-blocking socket.
int32_t osSocketBind(int32_t handle, uint32_t address, uint16_t port);
int32_t osSocketConnect(int32_t handle, uint32_t address, uint16_t port);
int32_t osSocketSetBlocking(int32_t handle, bool blocking);

// Which of the three OsPoll answers hold at this moment, asked at once and without waiting. A socket
// with an error or a closed peer is readable; a failed connect is exceptional. 0: none.
int32_t osSocketPoll(int32_t handle);

// Bytes received, at most count; 0: the peer has closed; -10035: nothing has come. Peek leaves the
// bytes where they are. Neither waits.
int32_t osSocketReceive(int32_t handle, void* buffer, int32_t count);
int32_t osSocketPeek(int32_t handle, void* buffer, int32_t count);

// Hands bytes to the system and returns how many it took, at least 1. Waits for room up to waitMs
// milliseconds, then answers -10060. Raises no signal.
int32_t osSocketSend(int32_t handle, const void* bytes, int32_t count, uint32_t waitMs);

// Gives the socket up without waiting; the system delivers what is queued. 0 or failure.
int32_t osSocketClose(int32_t handle);

// The local address of a connected socket: 0 or failure.
int32_t osSocketLocalAddress(int32_t handle, uint32_t& addressOut);

// Looks up the first IPv4 address of a name: 0 or failure. May wait for the network.
int32_t osResolve(const char* name, uint32_t& addressOut);

// The machine's full name: 0 or failure. Cut to the capacity.
int32_t osHostName(char* name, size_t capacity);

// --- child processes (process) ---
//
// A process is told by a positive number. A failed call answers with the system's error number,
// negated.

// Starts a program from one command line, without a shell: blanks part its words, double quotes
// group, and '\' stands for the separator of folders outside of them. The program is looked up as the
// system does. It gets the standard streams and nothing else. A program that can't be run is a
// failure here.
int32_t osProcessStart(const char* commandLine);

// 1 while a child runs, 0 once it has ended; no trace of it stays then.
int32_t osProcessIsRunning(int32_t process);

// Ends a child at once and waits until it is gone: 0, also if it had ended by itself, or failure.
int32_t osProcessKill(int32_t process);
