/* Bounded priority message queues of the tools library.
 *
 * A message is one pointer-sized word. Smaller priority values are received first and
 * equal values in the order sent, so a message is received only after every message
 * sent before it with a smaller or equal value. Handles are 32-bit numbers, never 0
 * for a live queue. All functions may be called from any thread. */
#ifndef MSGQUEUE_H
#define MSGQUEUE_H

#include "morvex_pal_types.h"

MORVEX_BEGIN_DECLS

typedef unsigned int tMsgQueueHandle;

typedef enum eMsgQueueError {
    MSGQUEUE_OK = 0,
    MSGQUEUE_ERROR_INV_POINTER = 1,
    MSGQUEUE_ERROR_INV_HANDLE = 2,  /* unknown handle, or the queue was destroyed while waiting */
    MSGQUEUE_ERROR_INV_PARAM = 3,   /* capacity 0 */
    MSGQUEUE_ERROR_FULL = 4,        /* try send: no room */
    MSGQUEUE_ERROR_NO_MEMORY = 5,
    MSGQUEUE_ERROR_INTERNAL = 6
} eMsgQueueError;

/* Three 32-bit words: messages now queued, the most ever queued at once, capacity. */
typedef struct sMsgQueueStatus {
    unsigned int count;
    unsigned int highWater;
    unsigned int capacity;
} sMsgQueueStatus;

/* Creates a queue for `capacity` messages; *handle gets its handle. */
MORVEX_API int MsgQueue_Init(tMsgQueueHandle* handle, unsigned int capacity);
/* Destroys the queue and sets *handle to 0; waiting senders and receivers return
 * MSGQUEUE_ERROR_INV_HANDLE. Messages still queued are dropped (their owners' affair). */
MORVEX_API int MsgQueue_DeInit(tMsgQueueHandle* handle);
MORVEX_API int MsgQueue_GetStatus(tMsgQueueHandle handle, sMsgQueueStatus* status);
/* Queues `message`, waiting for room. */
MORVEX_API int MsgQueue_SendMsg(tMsgQueueHandle handle, void* message, int priority);
/* Queues `message`, or returns MSGQUEUE_ERROR_FULL (4) at once when there is no room. */
MORVEX_API int MsgQueue_TrySendMsg(tMsgQueueHandle handle, void* message, int priority);
/* Waits for a message and takes it. */
MORVEX_API int MsgQueue_ReceiveMsg(tMsgQueueHandle handle, void** message);

MORVEX_END_DECLS

#endif
