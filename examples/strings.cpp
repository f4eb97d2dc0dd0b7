// Strings: UTF-8 text counted in characters, copies that share one block until one
// of them writes, editing and formatting, what happens to input that is not valid
// UTF-8, Unicode case mapping, strict number conversions and token-separated lists.

#include "core/String.h"
#include "core/StringUtilities.h"
#include "core/TokenSeparatedList.h"
#include "core/Vector.h"

#include <cstdio>

namespace {

void showCodePoints(const PAL::CString& text)
{
    std::printf("\"%s\": %u characters, %u bytes:", text.getBuffer(), text.getLength(), text.getSize());
    for (PAL::CString::const_iterator it = text.begin(); it != text.end(); ++it) {
        std::printf(" U+%04X", *it);
    }
    std::printf("\n");
}

void encodings()
{
    std::printf("-- text from every encoding --\n");
    showCodePoints(PAL::CString("Grüße"));

    const unsigned short ucs2[] = {0x041C, 0x0438, 0x0440};
    PAL::CString fromUcs2;
    fromUcs2.fromUCS2Sequence(ucs2, 3);
    showCodePoints(fromUcs2);

    const unsigned int ucs4[] = {0x1F600, 0x20, 0x263A};
    PAL::CString fromUcs4;
    fromUcs4.fromUCS4Sequence(ucs4, 3);
    showCodePoints(fromUcs4);

    // A cut-off sequence at the end: the string keeps the valid prefix, silently.
    const char broken[] = {'o', 'k', '\xC3'};
    showCodePoints(PAL::CString(broken, 3));
}

void sharing()
{
    std::printf("-- copies share one block --\n");
    const PAL::CString original("Köln");
    PAL::CString copy = original;
    std::printf("the copy shares the text: %s\n", copy.getBuffer() == original.getBuffer() ? "yes" : "no");
    copy += " Hbf";
    std::printf("after a write the copy has its own: %s (\"%s\" / \"%s\")\n",
                copy.getBuffer() != original.getBuffer() ? "yes" : "no", original.getBuffer(), copy.getBuffer());
}

void editing()
{
    std::printf("-- editing and searching --\n");
    PAL::CString message("  Task %1 of %2 finished  ");
    message.trim();
    message.replaceArg("3").replaceArg("7");
    std::printf("%s\n", message.getBuffer());

    PAL::CString path("core/private/String.cpp");
    path.replaceAll("/", " > ");
    std::printf("%s\n", path.getBuffer());

    const PAL::CString file("core/private/String.cpp");
    PAL::CString::const_iterator slash = file.findString(file.end(), "/", false);
    std::printf("file name: %s, folder: %s\n", file.getRight(slash + 1).getBuffer(), file.getLeft(slash).getBuffer());

    PAL::CString greeting("Hello world");
    PAL::CString::const_iterator at = greeting.find("world");
    greeting.replace(at, 5, "Zürich");
    std::printf("%s (%u characters)\n", greeting.getBuffer(), greeting.getLength());
    // Positions count characters: "ü" is one, though it takes two bytes.
    std::printf("characters 6 to 8: %s\n", greeting.getMid(greeting.begin() + 6, 3).getBuffer());
}

void formatting()
{
    std::printf("-- formatting --\n");
    PAL::CString line;
    line.format("%s has %u characters", "Grüße", PAL::CString("Grüße").getLength());
    std::printf("%s\n", line.getBuffer());

    // The output is made in a buffer of 257 bytes: longer output is cut there (at a
    // whole character) and reported by a false result.
    PAL::CString longLine;
    const bool complete = longLine.format("%300s", "end");
    std::printf("300 characters asked for: complete %s, kept %u\n", complete ? "yes" : "no", longLine.getLength());
}

void caseMapping()
{
    std::printf("-- case mapping --\n");
    // Code point by code point, without locale: one character may become several.
    const char* const words[] = {"straße", "ΣΟΦΊΑ", "ǅemal", "İstanbul"};
    for (int i = 0; i < 4; ++i) {
        PAL::CString upper(words[i]);
        PAL::StringUtilities::toUpper(upper);
        PAL::CString lower(words[i]);
        PAL::StringUtilities::toLower(lower);
        std::printf("%s: upper \"%s\" (%u characters), lower \"%s\" (%u characters)\n", words[i],
                    upper.getBuffer(), upper.getLength(), lower.getBuffer(), lower.getLength());
    }
    // A string shared with others is copied before it is mapped.
    const PAL::CString original("Köln");
    PAL::CString shouted = original;
    PAL::StringUtilities::toUpper(shouted);
    std::printf("%s stays as it was beside %s\n", original.getBuffer(), shouted.getBuffer());
}

void numbers()
{
    std::printf("-- number conversions --\n");
    // The whole text must be the number (white space around it aside); a refusal
    // leaves the value as it was.
    const char* const texts[] = {" -42 ", "12a", "2147483648", ""};
    for (int i = 0; i < 4; ++i) {
        int value = 7;
        const bool read = PAL::StringUtilities::toInt32(texts[i], value);
        std::printf("toInt32(\"%s\"): %s, value %d\n", texts[i], read ? "read" : "refused", value);
    }
    unsigned short port = 0;
    const bool portRead = PAL::StringUtilities::toUInt16("0x1F90", port, true, true);
    std::printf("toUInt16(\"0x1F90\", hex): %s, %u\n", portRead ? "read" : "refused", port);
    unsigned char level = 9;
    const bool levelRead = PAL::StringUtilities::toUInt8("256", level, false, false);
    std::printf("toUInt8(\"256\"): %s, value %u\n", levelRead ? "read" : "refused", level);

    PAL::CString text;
    PAL::StringUtilities::fromUInt32(text, 48879, true);
    std::printf("48879 in hex: %s\n", text.getBuffer());

    PAL::CString line("a line that is far too long");
    PAL::StringUtilities::truncateInByteUnits(line, 12, "...");
    std::printf("cut to 12 bytes: \"%s\"\n", line.getBuffer());
}

void tokenLists()
{
    std::printf("-- token-separated lists --\n");
    PAL::CTokenSeparatedList colours(";", PAL::CString());
    colours.Add("red");
    colours.Add("green");
    colours.Add(42);
    const bool added = colours.Add("a;b");
    std::printf("list \"%s\"; \"a;b\" %s; green at %d, blue at %d\n", colours.Get().getBuffer(),
                added ? "added" : "refused (contains the separator)", colours.Find("green"), colours.Find("blue"));

    // No token at all and one empty token are different lists.
    const PAL::CTokenSeparatedList none(",", PAL::CString());
    const PAL::CTokenSeparatedList oneEmpty(",", PAL::CString(""));
    std::printf("from the shared empty string: %s; from \"\": %s\n", none.IsEmpty() ? "no token" : "tokens",
                oneEmpty.IsEmpty() ? "no token" : "one empty token");

    PAL::CTokenSeparatedList numbers(",", "3,1,4");
    PAL::TVector<int> values;
    if (numbers.ToVector(values)) {
        int sum = 0;
        for (int i = 0; i < values.size(); ++i) {
            sum += *values.get(i);
        }
        std::printf("\"%s\" as numbers: %d values adding up to %d\n", numbers.Get().getBuffer(), values.size(), sum);
    }
    numbers.Set("3,x");
    std::printf("\"3,x\" as numbers: %s\n", numbers.ToVector(values) ? "read" : "refused");
}

} // namespace

int main()
{
    std::printf("== Strings and case mapping ==\n");
    encodings();
    sharing();
    editing();
    formatting();
    caseMapping();
    numbers();
    tokenLists();
    return 0;
}
