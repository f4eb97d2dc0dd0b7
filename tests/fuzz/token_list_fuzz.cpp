// The token-separated list over outside text and tokens, against a model: the tokens as
// strings, split and joined here. Lists built token by token hold exactly the accepted
// tokens; what is read out joins back to the same text; Find names the first equal token.

#include "FuzzSupport.h"

#include "core/TokenSeparatedList.h"

#include <algorithm>
#include <vector>

using osal_kit_fuzz::Input;
using osal_kit_fuzz::bytesOf;
using PAL::CString;
using PAL::CTokenSeparatedList;
using PAL::TVector;
using Tokens = std::vector<std::string>;

namespace {

const char* const sSeparators[] = {",", ", ", ";", "-", "1", "ab", "aa", "\xC3\xA9", "", "::"};

CString fromBytes(const std::string& bytes) { return CString(bytes.data(), static_cast<unsigned int>(bytes.size())); }

// Where `separator` starts a match in `text`, searching whole characters up to any 0 byte
// (where searches end); npos when it does not occur or is empty.
size_t findSeparator(const std::string& text, const std::string& separator, size_t from)
{
    for (size_t i = from; !separator.empty() && i < text.size() && text[i] != 0;
         i += osal_kit_fuzz::leadLength(static_cast<unsigned char>(text[i]))) {
        if (text.compare(i, separator.size(), separator) == 0)
            return i;
    }
    return std::string::npos;
}

Tokens split(const std::string& text, const std::string& separator)
{
    Tokens out;
    size_t from = 0;
    for (size_t at; (at = findSeparator(text, separator, from)) != std::string::npos; from = at + separator.size())
        out.push_back(text.substr(from, at - from));
    out.push_back(text.substr(from));
    return out;
}

// Everything the list gives out must agree with the model `tokens` (none: an empty list).
void check(const CTokenSeparatedList& list, const Tokens& tokens, const std::string& separator)
{
    TVector<CString> strings;
    FUZZ_CHECK(list.ToVector(strings) && list.IsEmpty() == tokens.empty());
    FUZZ_CHECK(strings.size() == static_cast<int>(tokens.size()));
    std::string joined;
    for (size_t i = 0; i < tokens.size(); ++i) {
        FUZZ_CHECK(bytesOf(*strings.get(static_cast<int>(i))) == tokens[i]);
        FUZZ_CHECK(list.Find(fromBytes(tokens[i])) ==
                   static_cast<int>(std::find(tokens.begin(), tokens.end(), tokens[i]) - tokens.begin()));
        joined += (i == 0 ? "" : separator) + tokens[i];
    }
    FUZZ_CHECK(bytesOf(list.Get()) == joined);
    CTokenSeparatedList again(fromBytes(separator));
    FUZZ_CHECK(again.FromVector(strings) && again.Get() == list.Get() && again.IsEmpty() == list.IsEmpty());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input in(data, size);
    const uint8_t mode = in.byte();
    const std::string separator = sSeparators[in.byte() % (sizeof(sSeparators) / sizeof(sSeparators[0]))];
    if (mode & 1) {  // a whole list text from outside
        CTokenSeparatedList list(fromBytes(separator), fromBytes(in.rest()));
        const std::string text = bytesOf(list.Get());
        // Token ends are found by searches and character distances, which both stop at a
        // 0 byte: such a text reads only up to it, but must still read safely.
        if (text.find('\0') == std::string::npos)
            check(list, split(text, separator), separator);
        list.Set(CString());
        check(list, Tokens(), separator);
        return 0;
    }
    // Built token by token: a token holding the separator is refused, and the list holds
    // the accepted ones joined (which, with a separator of several characters, may split
    // into other tokens).
    CTokenSeparatedList list(fromBytes(separator));
    std::string joined;
    bool any = false, plain = true;
    for (unsigned int added = 0; !in.empty() && added < 32;) {
        const bool number = in.byte() & 1;
        const int value = number ? static_cast<int>(in.u32()) : 0;
        CString token = fromBytes(number ? std::string() : in.text());
        if (number)
            CTokenSeparatedList::intToStr(value, token);
        const std::string bytes = bytesOf(token);
        const bool fits = findSeparator(bytes, separator, 0) == std::string::npos;
        FUZZ_CHECK((number ? list.Add(value) : list.Add(token)) == fits);
        if (fits) {
            joined += (any ? separator : "") + bytes;
            plain = plain && bytes.find('\0') == std::string::npos;
            any = true;
            ++added;
        }
    }
    FUZZ_CHECK(bytesOf(list.Get()) == joined);
    if (plain)
        check(list, any ? split(joined, separator) : Tokens(), separator);
    return 0;
}
