#ifndef OSAL_KIT_CORE_STREAM_H
#define OSAL_KIT_CORE_STREAM_H

#include "core/Export.h"

namespace PAL {

class CDateAndTime;

/// A source of bytes, implemented by the library's users (the library offers one over
/// memory: `CMemoryIStream`, core/MemoryStream.h).
///
/// Every `>>` operator of the library reads through `read` and nothing else; only
/// `CString::fromIpcStream` also calls `align(4)`. The operators never look at a
/// result: an implementation is expected to deliver exactly the bytes asked for, and
/// one that cannot should deliver none of them (what the operators then leave in
/// their target is said with each operator). Reading is `const` so that operators can
/// take a `const IIStream&`: the read position of an implementation is mutable state.
/// One stream object is used by one thread at a time.
///
/// The order of the virtual functions is part of the interface: `align` is the fifth
/// and the raw read the sixth, counting the destructor as the first.
class OSAL_KIT_API IIStream {
public:
    virtual ~IIStream();
    /// Bytes consumed so far, alignment skips included.
    virtual unsigned int getPosition() const = 0;
    /// Bytes that can still be read, as far as the stream knows.
    virtual unsigned int getAvailable() const = 0;
    /// False once a read or an alignment could not be satisfied.
    virtual bool isGood() const = 0;
    /// Moves the position to the next multiple of `alignment`; true when it got there.
    virtual bool align(unsigned int alignment) const = 0;
    /// Copies the next `n` bytes to `dst` and returns how many were delivered.
    virtual unsigned int readBytes(void* dst, unsigned int n) const = 0;

    /// The raw read: `readBytes(dst, n)`.
    unsigned int read(void* dst, unsigned int n) const { return readBytes(dst, n); }
};

/// A sink for bytes, implemented by the library's users (the library offers one over
/// memory: `CMemoryOStream`, core/MemoryStream.h).
///
/// Every `<<` operator of the library writes through `write` and nothing else; only
/// `CString::toIpcStream` also calls `align(4)`. The operators never look at a result.
/// One stream object is used by one thread at a time.
///
/// The order of the virtual functions is part of the interface: `align` is the fifth
/// and the raw write the sixth, counting the destructor as the first.
class OSAL_KIT_API IOStream {
public:
    virtual ~IOStream();
    /// Bytes written so far, alignment padding included.
    virtual unsigned int getPosition() const = 0;
    /// False once a write or an alignment could not be carried out.
    virtual bool isGood() const = 0;
    /// Hands what was written on to wherever the stream leads; true when that worked.
    virtual bool flush() = 0;
    /// Moves the position to the next multiple of `alignment`; true when it got there.
    virtual bool align(unsigned int alignment) = 0;
    /// Writes the `n` bytes at `src` and returns how many were taken.
    virtual unsigned int writeBytes(const void* src, unsigned int n) = 0;

    /// The raw write: `writeBytes(src, n)`.
    unsigned int write(const void* src, unsigned int n) { return writeBytes(src, n); }
};

// Byte-stream forms: each value as it lies in memory (host byte order), with no tag
// and no padding. Results of `read` and `write` are not looked at. Every operator
// returns its stream argument. They keep no state of their own: any thread may use them
// on a stream that no other thread uses meanwhile.
//
//     out << 7u << when;        // 4 bytes, then the 8 bytes of the microsecond count
//     in >> count >> when;      // in the same order

/// The 4 bytes of `value`.
OSAL_KIT_API IOStream& operator<<(IOStream& stream, const unsigned int& value);
/// One read of 4 bytes straight into `value`: bytes the stream does not deliver keep
/// their previous contents.
OSAL_KIT_API const IIStream& operator>>(const IIStream& stream, unsigned int& value);
/// The 8 bytes of `value`.
OSAL_KIT_API IOStream& operator<<(IOStream& stream, const unsigned long long& value);
/// One read of 8 bytes straight into `value`, as for `unsigned int`.
OSAL_KIT_API const IIStream& operator>>(const IIStream& stream, unsigned long long& value);
/// 1 byte. (There is no reading counterpart; read a byte with `read`.)
OSAL_KIT_API IOStream& operator<<(IOStream& stream, const char& value);
/// The 8 bytes of the microsecond count.
OSAL_KIT_API IOStream& operator<<(IOStream& stream, const CDateAndTime& value);
/// 8 bytes into the microsecond count, as for `unsigned long long`.
OSAL_KIT_API const IIStream& operator>>(const IIStream& stream, CDateAndTime& value);

} // namespace PAL

#endif
