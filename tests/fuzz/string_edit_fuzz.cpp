// A sequence of CString edits chosen by the input, each checked against a model: the
// string's code points as a std::u32string. Positions come from the input, including ones
// no edit may accept (another string's, the sentinel before the text, a default
// iterator). After each call the string must be sound and hold the model, and a copy
// taken before the call must be unchanged.

#include "FuzzSupport.h"

#include <vector>

using osal_kit_fuzz::Input;
using PAL::CString;
using Iterator = PAL::CString::const_iterator;
using Model = std::u32string;

namespace {

// A small alphabet, so that searches and placeholders hit: ASCII letters, digits, '%',
// white space, and one character of each longer length.
const char32_t sAlphabet[] = {U'a', U'b', U'%', U'1', U'2', U'0', U' ', U'\t', U'\n', 0xE9, 0x20AC, 0x1F600,
                              0x3FFFFFF, 0x7FFFFFFF, U'a', U'9'};
const size_t NONE = Model::npos;

Model modelText(Input& in, unsigned int maxChars)
{
    const unsigned int n = in.byte() % (maxChars + 1);
    Model out;
    for (unsigned int i = 0; i < n && !in.empty(); ++i)
        out += sAlphabet[in.byte() % 16];
    return out;
}

CString build(const Model& model)
{
    const std::vector<unsigned int> values(model.begin(), model.end());
    return CString(values.data(), values.data() + values.size());
}

void checkAgainst(const CString& s, const Model& model)
{
    std::string expected;
    for (char32_t cp : model)
        expected += osal_kit_fuzz::encode(cp);
    osal_kit_fuzz::checkString(s);
    FUZZ_CHECK(osal_kit_fuzz::bytesOf(s) == expected);
}

// A position: an index (past the end it lands on end()), or one that every edit refuses,
// for which `index` gets NONE.
Iterator position(Input& in, const CString& s, const CString& other, size_t& index)
{
    const uint8_t choice = in.byte() % 8;
    index = choice < 3 ? NONE : s.getLength();
    if (choice < 3)
        return choice == 0 ? other.begin() + in.byte() % 4 : choice == 1 ? Iterator() : --s.begin();
    const unsigned int steps = choice == 3 ? index : in.byte();
    index = std::min<size_t>(steps, index);
    return s.begin() + static_cast<int>(steps);
}

unsigned int count(Input& in, unsigned int below) { return in.byte() % 8 == 7 ? 0xFFFFFFFFu : in.byte() % below; }

size_t indexOf(const CString& s, const Iterator& it) { return it == s.end() ? NONE : static_cast<size_t>(it - s.begin()); }

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input in(data, size);
    Model model = modelText(in, 24), text, what;
    CString s = build(model);
    const CString other("zzz");
    // Replacing all of a short text by a longer one grows the string fast: stop while the
    // model is still cheap to compare. Edits of the string by itself double it.
    for (unsigned int round = 0; round < 64 && !in.empty() && model.size() < 4096; ++round) {
        const CString before(s);
        const Model beforeModel = model;
        const uint8_t op = in.byte() % 20;
        size_t index = NONE, at = NONE, lead = 0;
        Iterator it, original;
        CString built;
        unsigned int n = 0;
        bool itself = false, forward = false;
        switch (op) {
        case 0:  // append a string, or the string itself
            built = build(text = modelText(in, 6));
            itself = (in.byte() & 1) && model.size() < 512;
            s.append(itself ? s : built);
            model += itself ? beforeModel : text;
            break;
        case 2:  // insert, the string into itself too
        case 4:  // replace (a count of 0 inserts), with the string itself too
            it = original = position(in, s, other, index);
            n = op == 4 ? count(in, 5) : 0;
            itself = (in.byte() & 1) && model.size() < 512;
            built = build(text = itself ? model : modelText(in, 6));
            if (op == 2)
                s.insert(it, itself ? s : built);
            else
                s.replace(it, n, itself ? s : built);
            if (index != NONE && (op == 4 ? n == 0 || index < beforeModel.size() : !text.empty()))
                model.replace(index, n, text);
            FUZZ_CHECK(index == NONE || (op == 2 && text.empty()) ? it == original : it - s.begin() == int(index));
            break;
        case 3:  // remove
            it = position(in, s, other, index);
            s.remove(it, n = count(in, 8));
            model.erase(std::min(index, model.size()), n);
            FUZZ_CHECK(index == NONE || it - s.begin() == static_cast<int>(index));
            break;
        case 5:  // replace all, never searching the replacements
            what = modelText(in, 3);
            text = modelText(in, 4);
            s.replaceAll(build(what), build(text));
            for (at = what.empty() ? NONE : model.find(what); at != NONE; at = model.find(what, at + text.size()))
                model.replace(at, what.size(), text);
            break;
        case 6:  // the lowest placeholder, the first of equal ones
            text = modelText(in, 4);
            s.replaceArg(build(text));
            for (size_t i = 0; i + 1 < model.size(); ++i)
                at = model[i] == U'%' && model[i + 1] >= U'0' && model[i + 1] <= U'9' &&
                     (at == NONE || model[i + 1] < model[at + 1]) ? i : at;
            if (at != NONE)
                model.replace(at, 2, text);
            break;
        case 7:  // truncate at a position
            s.truncate(position(in, s, other, index));
            model.resize(std::min(index, model.size()));
            break;
        case 8:  // truncate to a count
            s.truncate(n = in.byte() % 32);
            model.resize(std::min<size_t>(n, model.size()));
            break;
        case 9:  // trim the six white-space characters
            s.trim();
            lead = model.find_first_not_of(U" \t\n\v\f\r");
            model = lead == NONE ? Model() : model.substr(lead, model.find_last_not_of(U" \t\n\v\f\r") + 1 - lead);
            break;
        case 10:  // left and right pieces by count
            n = count(in, 32);
            checkAgainst(s.getLeft(n), model.substr(0, n));
            checkAgainst(s.getRight(n), model.substr(model.size() - std::min<size_t>(n, model.size())));
            break;
        case 11:  // pieces by position
            it = position(in, s, other, index);
            n = count(in, 8);
            text = model.substr(std::min(index, model.size()));
            checkAgainst(s.getLeft(it), index == NONE ? Model() : model.substr(0, index));
            checkAgainst(s.getRight(it), text);
            checkAgainst(s.getMid(it, n), text.substr(0, n));
            break;
        case 12:  // search either way; a match must lie wholly in the text
            it = position(in, s, other, index);
            what = modelText(in, 3);
            forward = in.byte() & 1;
            if (index != NONE && !what.empty())
                at = forward ? model.find(what, index) : model.rfind(what, index == model.size() ? index - 1 : index);
            FUZZ_CHECK(indexOf(s, s.findString(it, build(what), forward)) == at);
            break;
        default:  // start again from new text
            model = modelText(in, 24);
            s = build(model);
            break;
        }
        checkAgainst(s, model);
        checkAgainst(before, beforeModel);
    }
    return 0;
}
