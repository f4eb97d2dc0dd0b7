// A sequence of CString edits chosen by the input, each checked against a model: the
// string's code points as a std::u32string. Positions come from the input, including
// ones outside the string (another string's, the sentinel before the text, a default
// iterator), which every edit must refuse. After each call the string must still be
// sound, and a copy taken before the call must be unchanged.

#include "FuzzSupport.h"

#include <vector>

using osal_kit_fuzz::Input;
using PAL::CString;

namespace {

typedef std::u32string Model;

// A small alphabet, so searches and placeholders hit: ASCII letters, digits, '%',
// white space, and one character of each longer length.
const char32_t sAlphabet[] = {U'a', U'b', U'%', U'1', U'2', U'0', U' ', U'\t', U'\n', 0xE9, 0x20AC, 0x1F600, 0x3FFFFFF, 0x7FFFFFFF, U'a', U'9'};

// Edits of a string by itself double it; past this length they stop.
const size_t sSelfLimit = 512;

Model modelText(Input& in, unsigned int maxChars)
{
    const unsigned int n = in.byte() % (maxChars + 1);
    Model out;
    for (unsigned int i = 0; i < n && !in.empty(); ++i) {
        out += sAlphabet[in.byte() % (sizeof(sAlphabet) / sizeof(sAlphabet[0]))];
    }
    return out;
}

CString build(const Model& model)
{
    CString s;
    const std::vector<unsigned int> values(model.begin(), model.end());
    s.fromUCS4Sequence(values.data(), static_cast<unsigned int>(values.size()));
    return s;
}

void checkAgainst(const CString& s, const Model& model)
{
    osal_kit_fuzz::checkString(s);
    FUZZ_CHECK(osal_kit_fuzz::bytesOf(s) == osal_kit_fuzz::encode(model));
    FUZZ_CHECK(s.getLength() == model.size());
}

// A position taken from the input: an index into the string (possibly past its end,
// which lands on end()), or one of the positions no edit may accept. `index` gets the
// model's index, or npos for the refused ones.
CString::const_iterator position(Input& in, const CString& s, const CString& other, size_t& index)
{
    const uint8_t choice = in.byte();
    switch (choice % 8) {
    case 0:
        index = Model::npos;
        return other.begin() + static_cast<int>(in.byte() % 4);
    case 1:
        index = Model::npos;
        return CString::const_iterator();
    case 2: {
        // One step back from the first character is the sentinel before the text.
        CString::const_iterator it = s.begin();
        --it;
        index = Model::npos;
        return it;
    }
    case 3:
        index = s.getLength();
        return s.end();
    default: {
        const unsigned int steps = in.byte();
        index = steps < s.getLength() ? steps : s.getLength();
        return s.begin() + static_cast<int>(steps);
    }
    }
}

size_t findForward(const Model& model, const Model& what, size_t from)
{
    if (what.empty() || from > model.size()) {
        return Model::npos;
    }
    return model.find(what, from);
}

size_t findBackward(const Model& model, const Model& what, size_t from)
{
    if (what.empty() || model.empty()) {
        return Model::npos;
    }
    size_t start = from >= model.size() ? model.size() - 1 : from;
    for (size_t i = start + 1; i-- > 0;) {
        if (model.compare(i, what.size(), what) == 0 && i + what.size() <= model.size()) {
            return i;
        }
    }
    return Model::npos;
}

void replaceAllModel(Model& model, const Model& what, const Model& with)
{
    if (what.empty()) {
        return;
    }
    size_t at = model.find(what);
    while (at != Model::npos) {
        model.replace(at, what.size(), with);
        at = model.find(what, at + with.size());
    }
}

void replaceArgModel(Model& model, const Model& arg)
{
    size_t chosen = Model::npos;
    char32_t lowest = U'9' + 1;
    for (size_t i = 0; i + 1 < model.size(); ++i) {
        if (model[i] == U'%' && model[i + 1] >= U'0' && model[i + 1] < lowest) {
            lowest = model[i + 1];
            chosen = i;
        }
    }
    if (chosen != Model::npos) {
        model.replace(chosen, 2, arg);
    }
}

bool isBlank(char32_t c)
{
    return c == U' ' || (c >= U'\t' && c <= U'\r');
}

void trimModel(Model& model)
{
    size_t lead = 0;
    while (lead < model.size() && isBlank(model[lead])) {
        ++lead;
    }
    size_t end = model.size();
    while (end > lead && isBlank(model[end - 1])) {
        --end;
    }
    model = model.substr(lead, end - lead);
}

size_t indexOf(const CString& s, const CString::const_iterator& it)
{
    return it == s.end() ? Model::npos : static_cast<size_t>(it - s.begin());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input in(data, size);
    Model model = modelText(in, 24);
    CString s = build(model);
    const CString other("zzz");
    checkAgainst(s, model);

    // Replacing all of a short text by a longer one grows the string fast: it stops
    // while the model is still cheap to compare.
    for (unsigned int round = 0; round < 64 && !in.empty() && model.size() < 4096; ++round) {
        const CString before(s);
        const Model beforeModel = model;
        const uint8_t op = in.byte();
        switch (op % 20) {
        case 0: { // append a string, or the string itself
            const Model text = modelText(in, 6);
            if ((in.byte() & 1) && model.size() < sSelfLimit) {
                s.append(s);
                model += Model(model);
            } else {
                s.append(build(text));
                model += text;
            }
            break;
        }
        case 1: { // append NUL-terminated text and counted bytes
            const Model text = modelText(in, 6);
            const std::string bytes = osal_kit_fuzz::encode(text);
            if (in.byte() & 1) {
                s.append(bytes.c_str());
            } else {
                s.append(bytes.data(), static_cast<unsigned int>(bytes.size()));
            }
            model += text;
            break;
        }
        case 2: { // insert, the string into itself too
            size_t index = 0;
            CString::const_iterator it = position(in, s, other, index);
            const bool self = (in.byte() & 1) && model.size() < sSelfLimit;
            const Model text = self ? model : modelText(in, 6);
            const CString::const_iterator original = it;
            if (self) {
                s.insert(it, s);
            } else {
                s.insert(it, build(text));
            }
            if (index == Model::npos || text.empty()) {
                FUZZ_CHECK(it == original);
            } else {
                model.insert(index, text);
                FUZZ_CHECK(it - s.begin() == static_cast<int>(index));
            }
            break;
        }
        case 3: { // remove
            size_t index = 0;
            CString::const_iterator it = position(in, s, other, index);
            const unsigned int count = in.byte() % 8 == 7 ? 0xFFFFFFFFu : in.byte() % 8;
            s.remove(it, count);
            if (index != Model::npos) {
                model.erase(index, count);
                FUZZ_CHECK(it - s.begin() == static_cast<int>(index));
            }
            break;
        }
        case 4: { // replace, with the string itself too
            size_t index = 0;
            CString::const_iterator it = position(in, s, other, index);
            const unsigned int count = in.byte() % 8 == 7 ? 0xFFFFFFFFu : in.byte() % 5;
            const bool self = (in.byte() & 1) && model.size() < sSelfLimit;
            const Model text = self ? model : modelText(in, 6);
            if (self) {
                s.replace(it, count, s);
            } else {
                s.replace(it, count, build(text));
            }
            if (index != Model::npos) {
                if (count == 0 || index < beforeModel.size()) {
                    model.replace(index, count, text);
                }
                FUZZ_CHECK(it - s.begin() == static_cast<int>(index));
            }
            break;
        }
        case 5: { // replace all
            const Model what = modelText(in, 3);
            const Model with = modelText(in, 4);
            s.replaceAll(build(what), build(with));
            replaceAllModel(model, what, with);
            break;
        }
        case 6: { // replace the lowest placeholder
            const Model arg = modelText(in, 4);
            s.replaceArg(build(arg));
            replaceArgModel(model, arg);
            break;
        }
        case 7: { // truncate at a position
            size_t index = 0;
            const CString::const_iterator it = position(in, s, other, index);
            s.truncate(it);
            if (index != Model::npos) {
                model.resize(index);
            }
            break;
        }
        case 8: { // truncate to a count
            const unsigned int count = in.byte() % 32;
            s.truncate(count);
            if (count < model.size()) {
                model.resize(count);
            }
            break;
        }
        case 9:
            s.trim();
            trimModel(model);
            break;
        case 10: { // left, middle and right pieces by count
            const unsigned int count = in.byte() % 8 == 7 ? 0xFFFFFFFFu : in.byte() % 32;
            const CString left = s.getLeft(count);
            checkAgainst(left, model.substr(0, count));
            const CString right = s.getRight(count);
            checkAgainst(right, count >= model.size() ? model : model.substr(model.size() - count));
            break;
        }
        case 11: { // pieces by position
            size_t index = 0;
            const CString::const_iterator it = position(in, s, other, index);
            const unsigned int count = in.byte() % 8 == 7 ? 0xFFFFFFFFu : in.byte() % 8;
            const CString left = s.getLeft(it);
            const CString right = s.getRight(it);
            const CString mid = s.getMid(it, count);
            if (index == Model::npos) {
                checkAgainst(left, Model());
                checkAgainst(right, Model());
                checkAgainst(mid, Model());
            } else {
                checkAgainst(left, model.substr(0, index));
                checkAgainst(right, model.substr(index));
                checkAgainst(mid, model.substr(index, count));
            }
            break;
        }
        case 12: { // search forward and backward
            size_t index = 0;
            const CString::const_iterator it = position(in, s, other, index);
            const Model what = modelText(in, 3);
            const bool forward = in.byte() & 1;
            const CString::const_iterator found = s.findString(it, build(what), forward);
            size_t expected = Model::npos;
            if (index != Model::npos) {
                expected = forward ? findForward(model, what, index) : findBackward(model, what, index);
            }
            FUZZ_CHECK(indexOf(s, found) == expected);
            if (index != Model::npos && index == 0) {
                FUZZ_CHECK(indexOf(s, s.find(build(what))) == findForward(model, what, 0));
            }
            break;
        }
        case 13: { // iterator moves and code points
            const int steps = static_cast<int>(in.byte() % 40) - 20;
            const CString::const_iterator start = s.begin() + static_cast<int>(in.byte() % 32);
            const size_t startIndex = static_cast<size_t>(start - s.begin());
            const CString::const_iterator moved = start + steps;
            long target = static_cast<long>(startIndex) + steps;
            // A move that ends one character before the first stops on the sentinel;
            // any longer move back ends on the first character.
            if (target == -1) {
                FUZZ_CHECK(*moved == 0u);
                FUZZ_CHECK(moved.getPosition() + 1 == s.getBuffer());
                break;
            }
            if (target < 0) {
                target = 0;
            }
            if (target > static_cast<long>(model.size())) {
                target = static_cast<long>(model.size());
            }
            FUZZ_CHECK(moved - s.begin() == target);
            FUZZ_CHECK(*moved == (static_cast<size_t>(target) < model.size() ? static_cast<unsigned int>(model[static_cast<size_t>(target)]) : 0u));
            FUZZ_CHECK(s[static_cast<unsigned int>(target)] == *moved);
            break;
        }
        case 14: { // + and += leave this string alone and join
            const Model text = modelText(in, 5);
            const CString joined = s + build(text);
            checkAgainst(joined, model + text);
            break;
        }
        case 15: { // assignment from text, swap with a shared string
            const Model text = modelText(in, 6);
            CString third = build(text);
            CString sharer(third);
            s.swap(third);
            checkAgainst(sharer, text);
            checkAgainst(third, model);
            model = text;
            break;
        }
        case 16: { // formatting replaces the content
            const Model text = modelText(in, 6);
            const std::string bytes = osal_kit_fuzz::encode(text);
            s.format("%s", bytes.c_str());
            model = text;
            break;
        }
        case 17: { // reserve keeps the content
            s.reserve(in.byte());
            break;
        }
        case 18: { // comparison agrees with the model
            const Model text = modelText(in, 3);
            const bool same = in.byte() & 1;
            const CString candidate = same ? build(model) : build(text);
            FUZZ_CHECK((s == candidate) == (same || text == model));
            FUZZ_CHECK(PAL::getHashValueForString(s) == PAL::getHashValueForString(build(model)));
            break;
        }
        default: { // start again from new text
            model = modelText(in, 24);
            s = build(model);
            break;
        }
        }
        checkAgainst(s, model);
        checkAgainst(before, beforeModel);
    }
    return 0;
}
