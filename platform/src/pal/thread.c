#include "morvex_pal_thread.h"

#include "fault_internal.h"

#include <pthread.h>
#include <stdatomic.h>
#include <stdlib.h>
#include <string.h>

#define NAME_LIMIT 15u /* what pthread_setname_np accepts, without the terminator */

/* References keep the object alive: the handle owner's (dropped by DeInit), the
 * running thread's (dropped when its function has returned) and one per thread in
 * ThreadWait. Whoever drops the last one frees it, so DeInit never has to wait. The pthread is
 * detached: ThreadWait uses `ended`, which any number of threads may wait for. */
struct sMorvex_PAL_Thread {
    pthread_mutex_t mutex;
    pthread_cond_t endedChanged;
    atomic_uint references;
    char name[NAME_LIMIT + 1u];
    eMorvex_PAL_ThreadPrio priority;
    tMorvex_PAL_ThreadFunction function;
    void* argument;
    int started; /* under mutex */
    int ended;   /* under mutex */
    int exitValue;
};

static _Thread_local sMorvex_PAL_Thread* t_current;

/* Length of `text` cut to at most `limit` bytes without splitting a UTF-8 character. */
static size_t utf8Cut(const char* text, size_t limit)
{
    size_t length = strnlen(text, limit + 1u);
    if (length <= limit)
        return length;
    length = limit;
    /* text[length] is the first byte left out; while it continues a character, the
     * start of that character is left out too. */
    while (length > 0 && ((unsigned char)text[length] & 0xC0u) == 0x80u)
        --length;
    return length;
}

static void release(sMorvex_PAL_Thread* thread)
{
    if (atomic_fetch_sub_explicit(&thread->references, 1u, memory_order_acq_rel) == 1u) {
        pthread_cond_destroy(&thread->endedChanged);
        pthread_mutex_destroy(&thread->mutex);
        free(thread);
    }
}

eMorvex_PAL_ThreadError Morvex_PAL_ThreadInit(sMorvex_PAL_Thread** handle, const char* name,
                                            eMorvex_PAL_ThreadPrio priority)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_ThreadInit, eMorvex_PAL_ThreadError);
    if (handle == Morvex_NULL)
        return THREAD_ERROR_INV_POINTER;
    if ((int)priority < (int)THREAD_PRIO_LOWEST || (int)priority > (int)THREAD_PRIO_HIGHEST)
        return THREAD_ERROR_INV_PRIORITY;
    sMorvex_PAL_Thread* thread = (sMorvex_PAL_Thread*)calloc(1, sizeof *thread);
    if (thread == Morvex_NULL)
        return THREAD_ERROR_CREATE_FAILED;
    if (pthread_mutex_init(&thread->mutex, Morvex_NULL) != 0) {
        free(thread);
        return THREAD_ERROR_CREATE_FAILED;
    }
    if (pthread_cond_init(&thread->endedChanged, Morvex_NULL) != 0) {
        pthread_mutex_destroy(&thread->mutex);
        free(thread);
        return THREAD_ERROR_CREATE_FAILED;
    }
    if (name != Morvex_NULL) {
        size_t length = utf8Cut(name, NAME_LIMIT);
        memcpy(thread->name, name, length);
        thread->name[length] = '\0';
    }
    thread->priority = priority;
    atomic_init(&thread->references, 1u);
    *handle = thread;
    return THREAD_OK;
}

static void* run(void* argument)
{
    sMorvex_PAL_Thread* thread = (sMorvex_PAL_Thread*)argument;
    t_current = thread;
    /* Named from inside: the creator's copy of the pthread id may not be stored yet. */
    pthread_setname_np(pthread_self(), thread->name);
    int exitValue = thread->function(thread->argument);
    pthread_mutex_lock(&thread->mutex);
    thread->exitValue = exitValue;
    thread->ended = 1;
    pthread_cond_broadcast(&thread->endedChanged);
    pthread_mutex_unlock(&thread->mutex);
    t_current = Morvex_NULL;
    release(thread);
    return Morvex_NULL;
}

eMorvex_PAL_ThreadError Morvex_PAL_ThreadCreate(sMorvex_PAL_Thread* handle, tMorvex_PAL_ThreadFunction function,
                                              void* argument)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_ThreadCreate, eMorvex_PAL_ThreadError);
    if (handle == Morvex_NULL)
        return THREAD_ERROR_INV_HANDLE;
    if (function == Morvex_NULL)
        return THREAD_ERROR_INV_POINTER;
    pthread_mutex_lock(&handle->mutex);
    /* An object whose function has returned may run again (a worker stopped and
     * started anew); one still running may not. */
    if (handle->started && !handle->ended) {
        pthread_mutex_unlock(&handle->mutex);
        return THREAD_ERROR_ALREADY_STARTED;
    }
    handle->function = function;
    handle->argument = argument;
    atomic_fetch_add_explicit(&handle->references, 1u, memory_order_relaxed);

    eMorvex_PAL_ThreadError result = THREAD_ERROR_CREATE_FAILED;
    pthread_attr_t attr;
    if (pthread_attr_init(&attr) == 0) {
        pthread_t id;
        if (pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED) == 0 &&
            pthread_create(&id, &attr, run, handle) == 0)
            result = THREAD_OK;
        pthread_attr_destroy(&attr);
    }
    if (result == THREAD_OK) {
        /* Still under the mutex: the new run cannot report its end before this. */
        handle->started = 1;
        handle->ended = 0;
    }
    else
        atomic_fetch_sub_explicit(&handle->references, 1u, memory_order_relaxed);
    pthread_mutex_unlock(&handle->mutex);
    return result;
}

eMorvex_PAL_ThreadError Morvex_PAL_ThreadWait(sMorvex_PAL_Thread* handle, int* exitValue)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_ThreadWait, eMorvex_PAL_ThreadError);
    if (handle == Morvex_NULL)
        return THREAD_ERROR_INV_HANDLE;
    if (handle == t_current)
        return THREAD_ERROR_WAIT_SELF;
    /* A waiter holds a reference too: DeInit may come while it sleeps, and it still
     * has to take the mutex again on waking. */
    atomic_fetch_add_explicit(&handle->references, 1u, memory_order_relaxed);
    eMorvex_PAL_ThreadError result = THREAD_OK;
    pthread_mutex_lock(&handle->mutex);
    if (!handle->started) {
        result = THREAD_ERROR_NOT_STARTED;
    } else {
        while (!handle->ended)
            pthread_cond_wait(&handle->endedChanged, &handle->mutex);
        if (exitValue != Morvex_NULL)
            *exitValue = handle->exitValue;
    }
    pthread_mutex_unlock(&handle->mutex);
    release(handle);
    return result;
}

eMorvex_PAL_ThreadError Morvex_PAL_ThreadDeInit(sMorvex_PAL_Thread** handle)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_ThreadDeInit, eMorvex_PAL_ThreadError);
    if (handle == Morvex_NULL)
        return THREAD_ERROR_INV_POINTER;
    if (*handle == Morvex_NULL)
        return THREAD_ERROR_INV_HANDLE;
    sMorvex_PAL_Thread* thread = *handle;
    *handle = Morvex_NULL;
    release(thread);
    return THREAD_OK;
}

sMorvex_PAL_Thread* Morvex_PAL_ThreadGetCurrent(void)
{
    int code;
    if (MORVEX_FAULT_CHECK(MORVEX_FAULT_ThreadGetCurrent, &code))
        return Morvex_NULL;
    return t_current;
}

eMorvex_PAL_ThreadError Morvex_PAL_ThreadGetName(const sMorvex_PAL_Thread* handle, char* name, unsigned int size)
{
    if (handle == Morvex_NULL)
        return THREAD_ERROR_INV_HANDLE;
    if (name == Morvex_NULL || size == 0)
        return THREAD_ERROR_INV_POINTER;
    size_t length = utf8Cut(handle->name, size - 1u);
    memcpy(name, handle->name, length);
    name[length] = '\0';
    return THREAD_OK;
}

eMorvex_PAL_ThreadError Morvex_PAL_ThreadGetPriority(const sMorvex_PAL_Thread* handle,
                                                   eMorvex_PAL_ThreadPrio* priority)
{
    if (handle == Morvex_NULL)
        return THREAD_ERROR_INV_HANDLE;
    if (priority == Morvex_NULL)
        return THREAD_ERROR_INV_POINTER;
    *priority = handle->priority;
    return THREAD_OK;
}
