#include "core/StringUtilities.h"

namespace PAL {
namespace StringUtilities {

void toUpper(CString& text)
{
    doCaseMapping(text, sToUpperCaseMappingTable);
}

} // namespace StringUtilities
} // namespace PAL
