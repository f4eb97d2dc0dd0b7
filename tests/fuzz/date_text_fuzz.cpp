// The date-and-time text readers and the zone offset reader over outside text. A
// refused read leaves its output as it was; an accepted one is in range, and written
// back out by the library and read again it gives the same value (and the same zone).

#include "FuzzSupport.h"

#include "core/DateAndTimeUtilities.h"

using PAL::CDateAndTime;
using PAL::CString;
namespace DTU = PAL::DateAndTimeUtilities;

namespace {

void checkZone(const CString& text)
{
    DTU::STimeZoneOffset zone(-3, 30), again;
    const bool accepted = zone.FromString(text);
    FUZZ_CHECK(zone.IsValid() && zone.mOffsetMinutes >= -720 && zone.mOffsetMinutes <= 840);
    FUZZ_CHECK(accepted ? again.FromString(zone.ToString()) && again == zone : zone.mOffsetMinutes == -210);
}

void checkDate(const CString& text, DTU::eDateTimeFormat format, bool withZone)
{
    const unsigned long long sentinel = 0x0123456789ABCDEFull, day = CDateAndTime::msMicrosIn1Day;
    CDateAndTime dt(sentinel), back(~sentinel), midnight(~sentinel);
    DTU::STimeZoneOffset zone, backZone;
    const bool known = format == DTU::eFormatISO8601 || format == DTU::eFormatSpaceSeparated;
    const bool accepted = DTU::FromString(dt, text, format, withZone ? &zone : nullptr);
    FUZZ_CHECK((format == DTU::eFormatISO8601 || !zone.IsValid()) && (accepted ? known : dt.getMicroseconds() == sentinel));
    if (!accepted)
        return;
    CDateAndTime::SDate date;
    CDateAndTime::STime time;
    dt.getDateAndTime(date, time, 0);
    FUZZ_CHECK(date.isValid() && time.isValid());
    FUZZ_CHECK(DTU::FromString(back, DTU::ToString(dt, format, DTU::eWithFraction, zone), format, &backZone));
    FUZZ_CHECK(back.getMicroseconds() == dt.getMicroseconds() && (!zone.IsValid() || backZone == zone));
    // The date alone reads back as that day's midnight.
    FUZZ_CHECK(DTU::FromString(midnight, DTU::ToString(dt, format, DTU::eDateOnly, zone), format, nullptr));
    FUZZ_CHECK(midnight.getMicroseconds() == dt.getMicroseconds() - dt.getMicroseconds() % day);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    osal_kit_fuzz::Input in(data, size);
    const uint8_t mode = in.byte();
    const std::string bytes = in.rest();
    const CString text(bytes.data(), static_cast<unsigned int>(bytes.size()));
    const int format = mode % 4 == 3 ? 2 + (mode >> 4) : mode % 4 - 1;
    if (mode % 4 == 0)
        checkZone(text);
    else
        checkDate(text, static_cast<DTU::eDateTimeFormat>(format), (mode & (mode % 4 == 3 ? 0x20 : 0x10)) != 0);
    return 0;
}
