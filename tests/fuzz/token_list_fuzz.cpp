// The token-separated list over outside text and tokens: what is read out joins back to
// the same text and reads again the same; lists built token by token give their tokens
// back; numbers survive the round trip; Find names the first equal token.

#include "FuzzSupport.h"

#include "core/StringUtilities.h"
#include "core/TokenSeparatedList.h"

#include <vector>

using osal_kit_fuzz::Input;
using PAL::CString;
using PAL::CTokenSeparatedList;
using PAL::TVector;

namespace {

const char* const sSeparators[] = {",", ", ", ";", "-", "1", "ab", "aa", "\xC3\xA9", "", "::"};

CString fromBytes(const std::string& bytes)
{
    return CString(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

// Whether `token` holds `separator` where one of its characters starts, before any
// 0 byte (where searches end): what makes a token unfit for the list.
bool holdsSeparator(const CString& token, const CString& separator)
{
    const std::string bytes = osal_kit_fuzz::bytesOf(token);
    const std::string wanted = osal_kit_fuzz::bytesOf(separator);
    const size_t end = bytes.find('\0');
    const std::string searched = bytes.substr(0, end);
    if (wanted.empty()) {
        return false;
    }
    for (size_t i = 0; i < searched.size(); i += osal_kit_fuzz::leadLength(static_cast<unsigned char>(searched[i]))) {
        if (searched.compare(i, wanted.size(), wanted) == 0) {
            return true;
        }
    }
    return false;
}

std::vector<CString> tokensOf(const CTokenSeparatedList& list)
{
    TVector<CString> tokens;
    FUZZ_CHECK(list.ToVector(tokens));
    std::vector<CString> out;
    for (int i = 0; i < tokens.size(); ++i) {
        osal_kit_fuzz::checkString(*tokens.get(i));
        out.push_back(*tokens.get(i));
    }
    return out;
}

CString join(const std::vector<CString>& tokens, const CString& separator)
{
    CString text;
    for (size_t i = 0; i < tokens.size(); ++i) {
        if (i != 0) {
            text += separator;
        }
        text += tokens[i];
    }
    return text;
}

// Read out, joined, read in again and out again: the same tokens and the same text.
void checkRoundTrip(const CTokenSeparatedList& list, const CString& separator)
{
    const std::vector<CString> tokens = tokensOf(list);
    FUZZ_CHECK(list.IsEmpty() == tokens.empty());
    if (list.IsEmpty()) {
        FUZZ_CHECK(list.Find(CString()) == -1);
        return;
    }
    FUZZ_CHECK(join(tokens, separator) == list.Get());
    TVector<CString> vector;
    for (const CString& token : tokens) {
        vector.push_back(token);
    }
    CTokenSeparatedList again(separator);
    FUZZ_CHECK(again.FromVector(vector));
    FUZZ_CHECK(again.Get() == list.Get());
    const std::vector<CString> reread = tokensOf(again);
    FUZZ_CHECK(reread.size() == tokens.size());
    for (size_t i = 0; i < tokens.size(); ++i) {
        FUZZ_CHECK(reread[i] == tokens[i]);
        size_t first = 0;
        while (!(tokens[first] == tokens[i])) {
            ++first;
        }
        FUZZ_CHECK(list.Find(tokens[i]) == static_cast<int>(first));
    }

    // As numbers: every token must read as one, or the whole reading fails and
    // leaves nothing behind.
    TVector<int> numbers;
    numbers.push_back(12345);
    const bool allNumbers = list.ToVector(numbers);
    bool expected = true;
    for (const CString& token : tokens) {
        int value = 0;
        expected = expected && PAL::StringUtilities::toInt32(token, value);
    }
    FUZZ_CHECK(allNumbers == expected);
    if (!allNumbers) {
        FUZZ_CHECK(numbers.size() == 0);
        return;
    }
    FUZZ_CHECK(numbers.size() == static_cast<int>(tokens.size()));
    CTokenSeparatedList written(separator);
    if (written.FromVector(numbers)) {
        TVector<int> back;
        FUZZ_CHECK(written.ToVector(back));
        FUZZ_CHECK(back.size() == numbers.size());
        for (int i = 0; i < numbers.size(); ++i) {
            FUZZ_CHECK(*back.get(i) == *numbers.get(i));
        }
    } else {
        // Refused only for a number whose text holds the separator; the list stays as it was.
        FUZZ_CHECK(written.IsEmpty());
        bool holds = false;
        for (int i = 0; i < numbers.size(); ++i) {
            CString number;
            CTokenSeparatedList::intToStr(*numbers.get(i), number);
            holds = holds || holdsSeparator(number, separator);
        }
        FUZZ_CHECK(holds);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input in(data, size);
    const uint8_t mode = in.byte();
    const CString separator(sSeparators[in.byte() % (sizeof(sSeparators) / sizeof(sSeparators[0]))]);
    if (mode & 1) {
        // A whole list text from outside.
        const std::string bytes = in.rest();
        CTokenSeparatedList list(separator, fromBytes(bytes));
        FUZZ_CHECK(!list.IsEmpty());
        if (bytes.find('\0') != std::string::npos) {
            // Token ends are found by searches and character distances, which both stop
            // at a 0 byte: such a text reads only up to it. It must still read safely.
            tokensOf(list);
            TVector<int> numbers;
            list.ToVector(numbers);
            list.Find(fromBytes(bytes));
            return 0;
        }
        checkRoundTrip(list, separator);
        list.Set(CString());
        FUZZ_CHECK(list.IsEmpty());
        checkRoundTrip(list, separator);
        return 0;
    }
    // A list built token by token; a token holding the separator is refused.
    CTokenSeparatedList list(separator);
    std::vector<CString> added;
    while (!in.empty() && added.size() < 32) {
        const uint8_t kind = in.byte();
        const CString before = list.Get();
        if (kind & 1) {
            const int value = static_cast<int>(in.u32());
            CString text;
            CTokenSeparatedList::intToStr(value, text);
            const bool holds = !separator.isEmpty() && text.find(separator) != text.end();
            FUZZ_CHECK(list.Add(value) == !holds);
            if (!holds) {
                added.push_back(text);
            }
        } else {
            const CString token = fromBytes(in.text());
            const bool holds = holdsSeparator(token, separator);
            FUZZ_CHECK(list.Add(token) == !holds);
            if (!holds) {
                added.push_back(token);
            }
        }
        if (added.empty()) {
            FUZZ_CHECK(list.IsEmpty() && list.Get() == before);
        }
    }
    FUZZ_CHECK(list.IsEmpty() == added.empty());
    FUZZ_CHECK(list.Get() == join(added, separator));
    // A token holding a 0 byte hides what follows it from the searches, so such a
    // list is only read; otherwise, with a one-character separator, the tokens come
    // back as they went in.
    bool plain = true;
    for (const CString& token : added) {
        plain = plain && osal_kit_fuzz::bytesOf(token).find('\0') == std::string::npos;
    }
    if (!plain) {
        tokensOf(list);
        return 0;
    }
    if (!separator.isEmpty() && separator.getLength() == 1) {
        const std::vector<CString> tokens = tokensOf(list);
        FUZZ_CHECK(tokens.size() == added.size());
        for (size_t i = 0; i < tokens.size(); ++i) {
            FUZZ_CHECK(tokens[i] == added[i]);
        }
    }
    checkRoundTrip(list, separator);
    return 0;
}
