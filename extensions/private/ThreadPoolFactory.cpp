#include "extensions/ThreadPoolFactory.h"

#include "extensions/ThreadPool.h"

#include <new>

namespace PAL {

IThreadPool* CThreadPoolFactory::Create(const CString& poolName)
{
    return new (std::nothrow) CThreadPool(poolName);
}

} // namespace PAL
