// Fails the system's own socket calls or lets them move little, for the platform layer over real
// sockets; works on every thread. Linked with the linker's --wrap on the C functions.
#pragma once

enum CutCall {
    CUT_SOCKET,
    CUT_CONNECT,
    CUT_POLL,
    CUT_RECEIVE,
    CUT_SEND,
    CUT_OPTION, // getsockopt
    CUT_LOOKUP, // getaddrinfo: one of its own errors (below 0), or an errno
    CUT_CALL_COUNT
};

// The next calls of a kind, so many, fail with this error; all others do what they do.
void CutShortFail(CutCall call, int error, int times);

// While on, signals cut every second call short, and a send or receive moves 97 bytes at most: what
// a caller that goes on never notices.
void CutShortAlways(bool on);

// Signals that came in between since the process began.
int CutShortSignals();
