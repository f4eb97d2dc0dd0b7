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
    CString s;
    s.fromUCS4Sequence(values.data(), static_cast<unsigned int>(values.size()));
    return s;
}

void checkAgainst(const CString& s, const Model& model)
{
    osal_kit_fuzz::checkString(s);
    FUZZ_CHECK(osal_kit_fuzz::bytesOf(s) == osal_kit_fuzz::encode(model));
}

// A position: an index (past the end it lands on end()), or one that every edit refuses,
// for which `index` gets NONE.
Iterator position(Input& in, const CString& s, const CString& other, size_t& index)
{
    const uint8_t choice = in.byte() % 8;
    index = choice < 3 ? NONE : s.getLength();
    if (choice == 0)
        return other.begin() + in.byte() % 4;
    if (choice == 1 || choice == 2)
        return choice == 1 ? Iterator() : --s.begin();
    const unsigned int steps = choice == 3 ? index : in.byte();
    index = std::min<size_t>(steps, index);
    return s.begin() + static_cast<int>(steps);
}

unsigned int count(Input& in, unsigned int below)
{
    return in.byte() % 8 == 7 ? 0xFFFFFFFFu : in.byte() % below;
}

bool isBlank(char32_t c) { return c == U' ' || (c >= U'\t' && c <= U'\r'); }

size_t indexOf(const CString& s, const Iterator& it) { return it == s.end() ? NONE : static_cast<size_t>(it - s.begin()); }

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input in(data, size);
    Model model = modelText(in, 24);
    CString s = build(model);
    const CString other("zzz");
    // Replacing all of a short text by a longer one grows the string fast: stop while the
    // model is still cheap to compare. Edits of the string by itself double it.
    for (unsigned int round = 0; round < 64 && !in.empty() && model.size() < 4096; ++round) {
        const CString before(s);
        const Model beforeModel = model;
        const bool self = model.size() < 512;
        const uint8_t op = in.byte() % 20;
        size_t index = NONE, at = NONE;
        switch (op) {
        case 0: {  // append a string, or the string itself
            const Model text = modelText(in, 6);
            const CString built = build(text);
            const bool itself = (in.byte() & 1) && self;
            s.append(itself ? s : built);
            model += itself ? beforeModel : text;
            break;
        }
        case 1: {  // append NUL-terminated text or counted bytes
            const Model text = modelText(in, 6);
            const std::string bytes = osal_kit_fuzz::encode(text);
            if (in.byte() & 1)
                s.append(bytes.c_str());
            else
                s.append(bytes.data(), static_cast<unsigned int>(bytes.size()));
            model += text;
            break;
        }
        case 2:    // insert, the string into itself too
        case 4: {  // replace (a count of 0 inserts), with the string itself too
            Iterator it = position(in, s, other, index);
            const Iterator original = it;
            const unsigned int n = op == 4 ? count(in, 5) : 0;
            const bool itself = (in.byte() & 1) && self;
            const Model text = itself ? model : modelText(in, 6);
            const CString built = build(text);
            if (op == 2)
                s.insert(it, itself ? s : built);
            else
                s.replace(it, n, itself ? s : built);
            if (index != NONE && (op == 4 ? n == 0 || index < beforeModel.size() : !text.empty()))
                model.replace(index, n, text);
            FUZZ_CHECK(index == NONE || (op == 2 && text.empty()) ? it == original : it - s.begin() == static_cast<int>(index));
            break;
        }
        case 3: {  // remove
            Iterator it = position(in, s, other, index);
            const unsigned int n = count(in, 8);
            s.remove(it, n);
            if (index != NONE) {
                model.erase(index, n);
                FUZZ_CHECK(it - s.begin() == static_cast<int>(index));
            }
            break;
        }
        case 5: {  // replace all
            const Model what = modelText(in, 3), with = modelText(in, 4);
            s.replaceAll(build(what), build(with));
            for (at = what.empty() ? NONE : model.find(what); at != NONE; at = model.find(what, at + with.size()))
                model.replace(at, what.size(), with);
            break;
        }
        case 6: {  // the lowest placeholder, the first of equal ones
            const Model arg = modelText(in, 4);
            s.replaceArg(build(arg));
            for (size_t i = 0; i + 1 < model.size(); ++i) {
                const char32_t digit = model[i + 1];
                if (model[i] == U'%' && digit >= U'0' && digit <= U'9' && (at == NONE || digit < model[at + 1]))
                    at = i;
            }
            if (at != NONE)
                model.replace(at, 2, arg);
            break;
        }
        case 7: {  // truncate at a position
            const Iterator it = position(in, s, other, index);
            s.truncate(it);
            model.resize(std::min(index, model.size()));
            break;
        }
        case 8: {  // truncate to a count
            const unsigned int n = in.byte() % 32;
            s.truncate(n);
            model.resize(std::min<size_t>(n, model.size()));
            break;
        }
        case 9: {
            s.trim();
            size_t lead = 0, end = model.size();
            while (lead < end && isBlank(model[lead]))
                ++lead;
            while (end > lead && isBlank(model[end - 1]))
                --end;
            model = model.substr(lead, end - lead);
            break;
        }
        case 10: {  // left and right pieces by count
            const unsigned int n = count(in, 32);
            checkAgainst(s.getLeft(n), model.substr(0, n));
            checkAgainst(s.getRight(n), model.substr(model.size() - std::min<size_t>(n, model.size())));
            break;
        }
        case 11: {  // pieces by position
            const Iterator it = position(in, s, other, index);
            const unsigned int n = count(in, 8);
            const Model left = index == NONE ? Model() : model.substr(0, index);
            const Model right = index == NONE ? Model() : model.substr(index);
            checkAgainst(s.getLeft(it), left);
            checkAgainst(s.getRight(it), right);
            checkAgainst(s.getMid(it, n), right.substr(0, n));
            break;
        }
        case 12: {  // search forward and backward; a match must lie wholly in the text
            const Iterator it = position(in, s, other, index);
            const Model what = modelText(in, 3);
            const bool forward = in.byte() & 1;
            if (index != NONE && !what.empty() && forward) {
                at = model.find(what, index);
            } else if (index != NONE && !what.empty() && !model.empty()) {
                at = model.rfind(what, index == model.size() ? index - 1 : index);
            }
            FUZZ_CHECK(indexOf(s, s.findString(it, build(what), forward)) == at);
            break;
        }
        case 17:  // reserve keeps the content
            s.reserve(in.byte());
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
