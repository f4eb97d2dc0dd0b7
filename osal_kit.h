#ifndef OSAL_KIT_H
#define OSAL_KIT_H

/// Every public header of libosal_kit.

#include "core/Export.h"

#include "core/Buffer.h"
#include "core/DateAndTime.h"
#include "core/DateAndTimeUtilities.h"
#include "core/HashArray.h"
#include "core/HashArrayImpl.h"
#include "core/HashMap.h"
#include "core/HashMapImpl.h"
#include "core/HashValuePool.h"
#include "core/MemoryStream.h"
#include "core/PtrVector.h"
#include "core/RCMemoryBuffer.h"
#include "core/Stream.h"
#include "core/String.h"
#include "core/StringStream.h"
#include "core/StringUtilities.h"
#include "core/TimeSpan.h"
#include "core/TokenSeparatedList.h"
#include "core/Vector.h"
#include "core/VectorBase.h"
#include "core/VectorHelpers.h"
#include "core/Version.h"

#include "os/ClientSocket.h"
#include "os/Mutex.h"
#include "os/Semaphore.h"
#include "os/Socket.h"
#include "os/Thread.h"
#include "os/pal_wrapper.h"

#include "extensions/IPoolTask.h"
#include "extensions/IThreadPool.h"
#include "extensions/JobQueue.h"
#include "extensions/ThreadPool.h"
#include "extensions/ThreadPoolFactory.h"

#endif
