// Counts the library's calls to the system and fails chosen ones. Files and memory are caught by
// the linker's --wrap on the C functions, sockets by the virtual network. Nothing fails and nothing
// is counted while no fault is armed.
#pragma once

enum FaultKind {
    FAULT_OPEN,   // open without O_CREAT
    FAULT_CREATE, // open with O_CREAT
    FAULT_READ,
    FAULT_WRITE,
    FAULT_LOCK,     // flock
    FAULT_TRUNCATE, // ftruncate
    FAULT_CLOSE,    // files and sockets; what is closed is gone all the same
    FAULT_SOCKET,
    FAULT_CONNECT,
    FAULT_POLL,
    FAULT_RECEIVE, // and peek
    FAULT_SEND,
    FAULT_ALLOCATE,
    FAULT_KIND_COUNT,               // of those that every conversation meets
    FAULT_SPAWN = FAULT_KIND_COUNT, // starting a program
    FAULT_INSPECT,                  // fstat and fcntl
    FAULT_UNLINK,
    FAULT_ALL_COUNT
};

const char* FaultName(FaultKind kind);

// From now on calls are counted and the n-th of this kind fails, once. 0: none does.
void FaultArm(FaultKind kind, int nth);

// The same, and every later call of the kind fails too.
void FaultArmFrom(FaultKind kind, int nth);

// Ends counting and failing. True if a call has failed since it was armed.
bool FaultDisarm();

// While on, signals cut every second call to the file system short, and reads and writes move few
// bytes: what a caller that goes on never notices.
void FaultInterrupt(bool on);

// Calls of a kind since the last arming.
int FaultCalls(FaultKind kind);

// For the layers: counts this call and tells whether it has to fail.
bool FaultStrikes(FaultKind kind);

// Open descriptors of the process.
int OpenDescriptors();
