#ifndef OSAL_KIT_EXTENSIONS_THREADPOOLFACTORY_H
#define OSAL_KIT_EXTENSIONS_THREADPOOLFACTORY_H

#include "core/Export.h"
#include "core/String.h"
#include "extensions/IThreadPool.h"

namespace PAL {

/// Makes thread pools.
class OSAL_KIT_API CThreadPoolFactory {
public:
    /// A new, not yet started pool named `poolName` (any name, the empty one included),
    /// or null when there is no memory for it. The caller owns it and destroys it with
    /// `delete`. Any thread may call this.
    ///
    ///     PAL::IThreadPool* pool = PAL::CThreadPoolFactory::Create("decoder");
    static IThreadPool* Create(const CString& poolName);

private:
    CThreadPoolFactory();
};

} // namespace PAL

#endif
