#ifndef OSAL_KIT_CORE_EXPORT_H
#define OSAL_KIT_CORE_EXPORT_H

/// Marks a class or function as part of libosal_kit's interface; everything else in
/// the library is hidden.
#if defined(__GNUC__)
#define OSAL_KIT_API __attribute__((visibility("default")))
#else
#define OSAL_KIT_API
#endif

#endif
