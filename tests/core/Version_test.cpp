// The binary reports the version it was built as, which a caller compares with its headers'.

#include "core/Version.h"

#include <gtest/gtest.h>

#include <string>

TEST(VersionTest, TheLibraryReportsTheVersionOfItsHeaders)
{
    EXPECT_EQ(static_cast<unsigned int>(OSAL_KIT_VERSION), PAL::GetVersion());
    EXPECT_EQ(std::string(OSAL_KIT_VERSION_STRING), PAL::GetVersionString());
}
