// How far the `>>` operators trust a length field read from a stream.
#ifndef OSAL_KIT_CORE_PRIVATE_STREAM_LENGTH_H
#define OSAL_KIT_CORE_PRIVATE_STREAM_LENGTH_H

#include "core/Stream.h"

namespace PAL {
namespace StreamLength {

/// Records up to this size are allocated for as their length field says, whatever the
/// stream holds, so a short stream ends them as each operator describes.
const unsigned int TRUSTED = 0x10000u;

/// True for a length that no allocation should be made for: beyond TRUSTED and beyond
/// what the stream says it still holds. Such a field is most likely a lie (a corrupt or
/// hostile record) and would otherwise have a few bytes of input claim gigabytes of
/// memory; the operators treat it as a record for which no memory could be had.
inline bool beyondStream(const IIStream& stream, unsigned int n)
{
    return n > TRUSTED && n > stream.getAvailable();
}

} // namespace StreamLength
} // namespace PAL

#endif
