#ifndef OSAL_KIT_CORE_TOKENSEPARATEDLIST_H
#define OSAL_KIT_CORE_TOKENSEPARATEDLIST_H

#include "core/Export.h"
#include "core/String.h"
#include "core/Vector.h"

namespace PAL {

/// An ordered list of tokens kept as one text in which the tokens are joined by a
/// separator (which may be several characters long and is fixed at construction).
///
/// Unlike the joined text alone, the list tells "no token" from "one empty token": a
/// list made from the shared empty string (a default-constructed `CString`,
/// `CString::null` or a copy of them) holds no token, while any other empty string,
/// for example `CString("")`, is one empty token. Tokens are the pieces between
/// separators, left to right: "a,b," holds "a", "b" and "".
///
/// Tokens containing the separator are refused. Every operation reports by its result
/// and leaves the list as it was when it fails, also when memory runs out; nothing
/// throws or traces. One thread at a time per list.
///
///     PAL::CTokenSeparatedList colours(PAL::CTokenSeparatedList::SEPARATOR_TOKEN_DEFAULT, PAL::CString());
///     colours.Add("red");
///     colours.Add("green");
///     colours.Add("blue");                  // Get() == "red,green,blue"
///     int where = colours.Find("green");    // 1
///     colours.Add("a,b");                   // false: contains the separator
class OSAL_KIT_API CTokenSeparatedList {
public:
    /// The joined text and whether it holds no token at all.
    struct OSAL_KIT_API tListInfo {
        /// No token: the shared empty string and `mIsEmpty` true.
        tListInfo() : mList(), mIsEmpty(true) {}
        /// The fields as given.
        tListInfo(const CString& list, const bool& isEmpty) : mList(list), mIsEmpty(isEmpty) {}

        CString mList;  ///< the tokens joined by the separator
        bool mIsEmpty;  ///< no token at all (an empty `mList` may also be one empty token)
    };

    /// ",", the separator for callers that have no other.
    static const char SEPARATOR_TOKEN_DEFAULT[2];

    /// A list joined by `separator`, holding the tokens of `list`: none when `list` is the
    /// shared empty string, otherwise the pieces of `list` between separators.
    explicit CTokenSeparatedList(const CString& separator = SEPARATOR_TOKEN_DEFAULT,
                                 const CString& list = CString());
    ~CTokenSeparatedList();

    /// Replaces the tokens as the constructor sets them.
    void Set(const CString& list);
    /// The joined text (empty both for no token and for one empty token).
    CString Get() const;
    /// True when the list holds no token.
    bool IsEmpty() const;

    /// Appends `token`; false, changing nothing, when `token` contains the separator (an
    /// empty separator is contained nowhere) or memory runs out.
    bool Add(const CString& token);
    /// Appends the decimal text of `value`; false as for `Add(const CString&)`, e.g. for
    /// -2 when the separator is "-".
    bool Add(const int& value);

    /// Position (from 0) of the first token equal to `token`, or -1 (always -1 when the
    /// list holds no token; also -1 when memory for the comparison runs out).
    int Find(const CString& token) const;

    /// Replaces the list by `tokens`, in order; an empty vector gives a list with no
    /// token. False, leaving the list unchanged, when a token contains the separator or
    /// memory runs out.
    bool FromVector(const TVector<CString>& tokens);
    /// Replaces the list by the decimal texts of `values`, as `FromVector` of strings.
    bool FromVector(const TVector<int>& values);
    /// Replaces the contents of `tokens` by every token in order (none for a list with no
    /// token). False, with `tokens` empty, only when memory runs out.
    bool ToVector(TVector<CString>& tokens) const;
    /// Replaces the contents of `values` by every token read with `strToInt`. False,
    /// with `values` empty, when a token is not a number (an empty token, including the
    /// one after a trailing separator, is not) or memory runs out; true with no value for
    /// a list with no token.
    bool ToVector(TVector<int>& values) const;

    /// `StringUtilities::toInt32`: `value` is written only on success.
    static bool strToInt(const CString& text, int& value);
    /// Replaces `text` with the decimal text of `value`; false only when memory runs out.
    static bool intToStr(const int& value, CString& text);

    /// Appends `token` to `info` with this list's separator: false, changing nothing,
    /// when `token` contains the separator or memory runs out.
    bool addElem(tListInfo& info, const CString& token) const;

private:
    template <class T, class Take>
    bool collectTokens(TVector<T>& out, Take take) const;

    CString mSeparator;
    tListInfo mListInfo;
};

} // namespace PAL

#endif
