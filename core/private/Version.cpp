#include "core/Version.h"

namespace PAL {

// The macros are expanded here, inside the library, so these report the version the
// binary was built as rather than the one a caller's headers claim.
unsigned int GetVersion()
{
    return OSAL_KIT_VERSION;
}

const char* GetVersionString()
{
    return OSAL_KIT_VERSION_STRING;
}

} // namespace PAL
