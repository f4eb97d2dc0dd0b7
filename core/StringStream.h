#ifndef OSAL_KIT_CORE_STRINGSTREAM_H
#define OSAL_KIT_CORE_STRINGSTREAM_H

#include "core/Export.h"
#include "core/Stream.h"
#include "core/String.h"

namespace PAL {

// The plain byte-stream form of a string: its byte length as 4 bytes (host byte
// order), then its UTF-8 bytes without a terminator. The aligned, terminated Ipc form
// is `CString::toIpcStream` / `CString::fromIpcStream`; a record written in one form
// cannot be read in the other. The operators keep no state of their own: any thread may
// use them on a stream and a string that no other thread uses meanwhile.

/// Writes the plain form of `text`; returns `stream`.
///
///     out << PAL::CString("hé");     // 03 00 00 00 68 C3 A9
OSAL_KIT_API IOStream& operator<<(IOStream& stream, const CString& text);
/// Reads the plain form into `text`: a length n (0 when the stream delivers none), then
/// n bytes. The text ends at the first 0 byte and is cut at the first invalid UTF-8
/// sequence; bytes the stream does not deliver count as 0 (so a record cut short reads
/// as what arrived of it, or as the empty string). `text` is unchanged when memory
/// cannot be had or n is 0xFFFFFFFF. Returns `stream`.
OSAL_KIT_API const IIStream& operator>>(const IIStream& stream, CString& text);

} // namespace PAL

#endif
