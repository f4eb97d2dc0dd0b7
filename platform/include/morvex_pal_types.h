/* Common declarations of the Morvex PAL core stand-in: export macro and C linkage. */
#ifndef MORVEX_PAL_TYPES_H
#define MORVEX_PAL_TYPES_H

#if defined(__GNUC__)
#define MORVEX_API __attribute__((visibility("default")))
#else
#define MORVEX_API
#endif

#ifdef __cplusplus
#define MORVEX_BEGIN_DECLS extern "C" {
#define MORVEX_END_DECLS }
#else
#define MORVEX_BEGIN_DECLS
#define MORVEX_END_DECLS
#endif

#define Morvex_NULL 0

#endif
