#include "core/StringUtilities.h"

namespace PAL {
namespace StringUtilities {

void toLower(CString& text)
{
    doCaseMapping(text, sToLowerCaseMappingTable);
}

} // namespace StringUtilities
} // namespace PAL
