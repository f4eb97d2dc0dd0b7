#ifndef OSAL_KIT_OS_PRIVATE_PAL_ENUM_H
#define OSAL_KIT_OS_PRIVATE_PAL_ENUM_H

// The translation tables take PAL core and library codes as enumerations, but a code
// may come from a newer PAL core or from a caller's cast and lie outside the
// enumeration's range. Loading such a value as the enumeration is undefined, so the
// tables read the integer that the object holds instead.

#include <cstring>

namespace PAL {
namespace EnumValue {

template <typename E>
inline int raw(const E& value)
{
    static_assert(sizeof(E) == sizeof(int), "codes are 32-bit integers");
    int result;
    std::memcpy(&result, &value, sizeof result);
    return result;
}

} // namespace EnumValue
} // namespace PAL

#endif
