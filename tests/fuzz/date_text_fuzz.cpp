// The date-and-time text readers and the zone offset reader over outside text. A
// refused read leaves its output as it was; an accepted one, written back out by the
// library and read again, gives the same value (and the same zone).

#include "FuzzSupport.h"

#include "core/DateAndTimeUtilities.h"

using osal_kit_fuzz::Input;
using PAL::CDateAndTime;
using PAL::CString;
namespace DTU = PAL::DateAndTimeUtilities;

namespace {

bool sameOffset(const DTU::STimeZoneOffset& a, const DTU::STimeZoneOffset& b)
{
    return a.mIsValid == b.mIsValid && a.mOffsetMinutes == b.mOffsetMinutes;
}

void checkZone(const CString& text)
{
    DTU::STimeZoneOffset zone;
    zone.Set(-3, 30);
    const DTU::STimeZoneOffset before = zone;
    if (!zone.FromString(text)) {
        FUZZ_CHECK(sameOffset(zone, before));
        return;
    }
    FUZZ_CHECK(zone.IsValid());
    FUZZ_CHECK(zone.mOffsetMinutes >= -720 && zone.mOffsetMinutes <= 840);
    const CString written = zone.ToString();
    osal_kit_fuzz::checkString(written);
    DTU::STimeZoneOffset again;
    FUZZ_CHECK(again.FromString(written));
    FUZZ_CHECK(again == zone);
}

void checkDate(const CString& text, DTU::eDateTimeFormat format, bool withZone)
{
    const unsigned long long sentinel = 0x0123456789ABCDEFull;
    CDateAndTime dt(sentinel);
    DTU::STimeZoneOffset zone;
    const bool accepted = DTU::FromString(dt, text, format, withZone ? &zone : nullptr);
    if (format != DTU::eFormatISO8601) {
        FUZZ_CHECK(!zone.IsValid());
    }
    if (!accepted) {
        FUZZ_CHECK(dt.getMicroseconds() == sentinel);
        return;
    }
    FUZZ_CHECK(format == DTU::eFormatISO8601 || format == DTU::eFormatSpaceSeparated);
    CDateAndTime::SDate date;
    CDateAndTime::STime time;
    dt.getDateAndTime(date, time, 0);
    FUZZ_CHECK(date.isValid() && time.isValid());

    const CString written = DTU::ToString(dt, format, DTU::eWithFraction, zone);
    osal_kit_fuzz::checkString(written);
    CDateAndTime back(~sentinel);
    DTU::STimeZoneOffset backZone;
    FUZZ_CHECK(DTU::FromString(back, written, format, &backZone));
    FUZZ_CHECK(back.getMicroseconds() == dt.getMicroseconds());
    if (format == DTU::eFormatISO8601 && zone.IsValid()) {
        FUZZ_CHECK(backZone == zone);
    }
    // The date alone reads back as that day's midnight.
    CDateAndTime day(~sentinel);
    FUZZ_CHECK(DTU::FromString(day, DTU::ToString(dt, format, DTU::eDateOnly, zone), format, nullptr));
    FUZZ_CHECK(day.getMicroseconds() == dt.getMicroseconds() - dt.getMicroseconds() % CDateAndTime::msMicrosIn1Day);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input in(data, size);
    const uint8_t mode = in.byte();
    const std::string bytes = in.rest();
    const CString text(bytes.data(), static_cast<unsigned int>(bytes.size()));
    switch (mode % 4) {
    case 0:
        checkZone(text);
        break;
    case 1:
        checkDate(text, DTU::eFormatISO8601, (mode & 0x10) != 0);
        break;
    case 2:
        checkDate(text, DTU::eFormatSpaceSeparated, (mode & 0x10) != 0);
        break;
    default:
        checkDate(text, static_cast<DTU::eDateTimeFormat>(2 + (mode >> 4)), (mode & 0x20) != 0);
        break;
    }
    return 0;
}
