// Built outside the osal_kit tree against an installed copy, once through the CMake
// package and once through pkg-config; each build passes in the version its way of
// finding the library reported, and how it was found. It also prints the version its
// headers declare and the one the loaded library reports, and fails when they differ.

#include "osal_kit.h"

#include <cstdio>

int main()
{
    const PAL::CString name("Grüße");
    PAL::CDateAndTime when;
    const bool read = PAL::DateAndTimeUtilities::FromString(when, "2024-05-17T10:20:30Z",
                                                            PAL::DateAndTimeUtilities::eFormatISO8601, 0);
    PAL::CString line;
    line.format("\"%s\" has %u characters; 2024-05-17 read: %s", name.getBuffer(), name.getLength(),
                read ? "yes" : "no");
    std::printf("osal_kit %s through %s, headers %s, library %s: %s\n", OSAL_KIT_CONSUMER_VERSION,
                OSAL_KIT_CONSUMER_HOW, OSAL_KIT_VERSION_STRING, PAL::GetVersionString(), line.getBuffer());
    return read && name.getLength() == 5 && PAL::GetVersion() == OSAL_KIT_VERSION ? 0 : 1;
}
