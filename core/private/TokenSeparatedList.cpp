#include "core/TokenSeparatedList.h"

#include "core/StringUtilities.h"

namespace PAL {

const char CTokenSeparatedList::SEPARATOR_TOKEN_DEFAULT[2] = ",";

namespace {

// Only the shared empty block means "no token": an empty string with a block of its own
// is a list of one empty token.
bool holdsNoToken(const CString& list)
{
    return list.getBuffer() == CString::nullData.mText;
}

// Intake counts any byte with its top bit set as a follower, while the search steps over
// 0x80-0xBF only, so it can match a separator inside a character. Such a match is not
// one: splitting there would drop the bytes of that character from every token.
bool startsCharacter(const CString::const_iterator& from, const CString::const_iterator& at)
{
    const char* p = from.getPosition();
    while (p < at.getPosition()) {
        const unsigned int n = UTF8LookUpTable[static_cast<unsigned char>(*p)];
        if (n > 6u) {
            return false;
        }
        p += n;
    }
    return p == at.getPosition();
}

// The first separator at or after `from` that starts a character, or `text.end()`.
CString::const_iterator findSeparator(const CString& text, const CString& separator,
                                      const CString::const_iterator& from)
{
    CString::const_iterator found = text.find(separator, from);
    while (found != text.end() && !startsCharacter(from, found)) {
        found = text.find(separator, found + 1);
    }
    return found;
}

// Walks the tokens that lie before a separator or run to the end of a non-empty text.
// The one token the walk cannot see (after a trailing separator, or the single token of
// an empty text) is reported by `hasTrailingEmptyToken` once `next` has returned false.
// A token that could not be copied (out of memory) ends the walk with `failed` set.
class CTokenWalk {
public:
    CTokenWalk(const CString& list, const CString& separator)
        : mList(list),
          mSeparator(separator),
          mPosition(list.begin()),
          mLastSeparator(list.begin()),
          mFailed(false)
    {
    }

    bool next(CString& token)
    {
        if (mFailed || mPosition == mList.end()) {
            return false;
        }
        const CString::const_iterator found = findSeparator(mList, mSeparator, mPosition);
        const unsigned int length = static_cast<unsigned int>(found - mPosition);
        token = mList.getMid(mPosition, length);
        if (token.getLength() != length) {
            mFailed = true;
            return false;
        }
        mLastSeparator = found;
        mPosition = (found == mList.end()) ? found : found + static_cast<int>(mSeparator.getLength());
        return true;
    }

    bool failed() const { return mFailed; }

    bool hasTrailingEmptyToken() const
    {
        return mLastSeparator != mList.end() || mList.isEmpty();
    }

private:
    const CString& mList;
    const CString& mSeparator;
    CString::const_iterator mPosition;
    CString::const_iterator mLastSeparator;
    bool mFailed;
};

// push_back reports nothing: a vector that did not grow ran out of memory.
template <class T>
bool pushBack(TVector<T>& vector, const T& element)
{
    const int before = vector.size();
    vector.push_back(element);
    return vector.size() == before + 1;
}

} // namespace

// Every token, the trailing empty one included, through `take`; all or nothing.
template <class T, class Take>
bool CTokenSeparatedList::collectTokens(TVector<T>& out, Take take) const
{
    out.clear();
    if (mListInfo.mIsEmpty) {
        return true;
    }
    CTokenWalk walk(mListInfo.mList, mSeparator);
    CString token;
    bool complete = true;
    while (complete && walk.next(token)) {
        complete = take(token, out);
    }
    complete = complete && !walk.failed();
    if (complete && walk.hasTrailingEmptyToken()) {
        complete = take(CString(), out);
    }
    if (!complete) {
        out.clear();
    }
    return complete;
}

CTokenSeparatedList::CTokenSeparatedList(const CString& separator, const CString& list)
    : mSeparator(separator),
      mListInfo(list, holdsNoToken(list))
{
}

// The members go in reverse order: the list, then the separator.
CTokenSeparatedList::~CTokenSeparatedList()
{
}

void CTokenSeparatedList::Set(const CString& list)
{
    mListInfo = tListInfo(list, holdsNoToken(list));
}

CString CTokenSeparatedList::Get() const
{
    return mListInfo.mList;
}

bool CTokenSeparatedList::IsEmpty() const
{
    return mListInfo.mIsEmpty;
}

bool CTokenSeparatedList::Add(const CString& token)
{
    return addElem(mListInfo, token);
}

bool CTokenSeparatedList::Add(const int& value)
{
    CString text;
    return intToStr(value, text) && addElem(mListInfo, text);
}

int CTokenSeparatedList::Find(const CString& token) const
{
    if (mListInfo.mIsEmpty) {
        return -1;
    }
    CTokenWalk walk(mListInfo.mList, mSeparator);
    CString candidate;
    int index = 0;
    while (walk.next(candidate)) {
        if (candidate == token) {
            return index;
        }
        ++index;
    }
    if (!walk.failed() && walk.hasTrailingEmptyToken() && token.isEmpty()) {
        return index;
    }
    return -1;
}

bool CTokenSeparatedList::FromVector(const TVector<CString>& tokens)
{
    tListInfo info;
    for (int i = 0; i < tokens.size(); ++i) {
        if (!addElem(info, *tokens.get(i))) {
            return false;
        }
    }
    mListInfo = info;
    return true;
}

bool CTokenSeparatedList::FromVector(const TVector<int>& values)
{
    tListInfo info;
    CString text;
    for (int i = 0; i < values.size(); ++i) {
        if (!intToStr(*values.get(i), text) || !addElem(info, text)) {
            return false;
        }
    }
    mListInfo = info;
    return true;
}

bool CTokenSeparatedList::ToVector(TVector<CString>& tokens) const
{
    return collectTokens(tokens, [](const CString& token, TVector<CString>& out) { return pushBack(out, token); });
}

bool CTokenSeparatedList::ToVector(TVector<int>& values) const
{
    // An empty token (after a trailing separator, or the only one of an empty text) is
    // not a number, so strToInt refuses it.
    return collectTokens(values, [](const CString& token, TVector<int>& out) {
        int value = 0;
        return strToInt(token, value) && pushBack(out, value);
    });
}

bool CTokenSeparatedList::strToInt(const CString& text, int& value)
{
    return StringUtilities::toInt32(text, value);
}

bool CTokenSeparatedList::intToStr(const int& value, CString& text)
{
    return text.format("%d", value);
}

bool CTokenSeparatedList::addElem(tListInfo& info, const CString& token) const
{
    if (findSeparator(token, mSeparator, token.begin()) != token.end()) {
        return false;
    }
    // Joined in a copy, so that running out of memory half-way changes nothing.
    CString list(info.mList);
    unsigned int expectedSize = list.getSize() + token.getSize();
    if (!info.mIsEmpty) {
        expectedSize += mSeparator.getSize();
        list.append(mSeparator);
    }
    list.append(token);
    if (list.getSize() != expectedSize) {
        return false;
    }
    info.mList = list;
    info.mIsEmpty = false;
    return true;
}

} // namespace PAL
