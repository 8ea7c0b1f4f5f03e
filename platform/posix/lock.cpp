// The library's locks: mutexes that exist when the library is loaded and stay until it goes.
#include "platform/platform.h"

#include <pthread.h>

static pthread_mutex_t Locks[] = { PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER,
                                   PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER };
static_assert(sizeof(Locks) / sizeof(Locks[0]) == OS_LOCK_COUNT);

void osLockEnter(OsLock lock)
{
    pthread_mutex_lock(&Locks[lock]);
}

void osLockLeave(OsLock lock)
{
    pthread_mutex_unlock(&Locks[lock]);
}
