// A calendar kept the plain way, one day at a time, for checking the library's
// arithmetic against something that does not share its shortcuts.
#ifndef OSAL_KIT_TEST_REFERENCE_CALENDAR_H
#define OSAL_KIT_TEST_REFERENCE_CALENDAR_H

namespace osal_kit_test {

inline bool referenceLeap(unsigned int year)
{
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

inline unsigned int referenceMonthLength(unsigned int year, unsigned int month)
{
    static const unsigned int lengths[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && referenceLeap(year) ? 29 : lengths[month - 1];
}

} // namespace osal_kit_test

#endif
