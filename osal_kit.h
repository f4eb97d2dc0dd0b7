#ifndef OSAL_KIT_H
#define OSAL_KIT_H

/// Every public header of libosal_kit.

#include "core/Export.h"
#include "core/String.h"
#include "os/pal_wrapper.h"

#endif
