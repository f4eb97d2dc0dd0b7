// Strings: UTF-8 text counted in characters, copies that share one block until one
// of them writes, editing and formatting, and what happens to input that is not
// valid UTF-8.

#include "core/String.h"

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

} // namespace

int main()
{
    std::printf("== Strings and case mapping ==\n");
    encodings();
    sharing();
    editing();
    formatting();
    return 0;
}
