#include "core/Stream.h"

#include "core/DateAndTime.h"

namespace PAL {

// Out of line, so that each interface has one home for its vtable.
IIStream::~IIStream()
{
}

IOStream::~IOStream()
{
}

IOStream& operator<<(IOStream& stream, const unsigned int& value)
{
    stream.write(&value, static_cast<unsigned int>(sizeof(value)));
    return stream;
}

const IIStream& operator>>(const IIStream& stream, unsigned int& value)
{
    stream.read(&value, static_cast<unsigned int>(sizeof(value)));
    return stream;
}

IOStream& operator<<(IOStream& stream, const unsigned long long& value)
{
    stream.writeBytes(&value, static_cast<unsigned int>(sizeof(value)));
    return stream;
}

const IIStream& operator>>(const IIStream& stream, unsigned long long& value)
{
    stream.readBytes(&value, static_cast<unsigned int>(sizeof(value)));
    return stream;
}

IOStream& operator<<(IOStream& stream, const char& value)
{
    stream.write(&value, 1u);
    return stream;
}

IOStream& operator<<(IOStream& stream, const CDateAndTime& value)
{
    const unsigned long long micros = value.getMicroseconds();
    return stream << micros;
}

const IIStream& operator>>(const IIStream& stream, CDateAndTime& value)
{
    // Starts from the current value, so bytes the stream does not deliver keep theirs.
    unsigned long long micros = value.getMicroseconds();
    stream >> micros;
    value.setMicroseconds(micros);
    return stream;
}

} // namespace PAL
