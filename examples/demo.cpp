// A tour of osal_kit: what each subsystem gives a component, section by section.

#include "osal_kit.h"

#include "morvex_pal_memory.h"

#include <cstdio>

namespace {

void heading(const char* title)
{
    std::printf("\n== %s ==\n", title);
}

void showCodePoints(const PAL::CString& text)
{
    std::printf("\"%s\": %u characters, %u bytes, code points", text.getBuffer(), text.getLength(), text.getSize());
    for (PAL::CString::const_iterator it = text.begin(); it != text.end(); ++it) {
        std::printf(" U+%04X", *it);
    }
    std::printf("\n");
}

void strings()
{
    heading("Strings: UTF-8 text from every encoding");
    const PAL::CString greeting("Grüße aus Köln");
    showCodePoints(greeting);

    const unsigned short ucs2[] = {0x041C, 0x0438, 0x0440};
    PAL::CString fromUcs2;
    fromUcs2.fromUCS2Sequence(ucs2, 3);
    showCodePoints(fromUcs2);

    const unsigned int ucs4[] = {0x1F600, 0x20, 0x263A};
    PAL::CString fromUcs4;
    fromUcs4.fromUCS4Sequence(ucs4, 3);
    showCodePoints(fromUcs4);

    const char broken[] = {'o', 'k', '\xC3'};
    showCodePoints(PAL::CString(broken, 3));
    std::printf("invalid input keeps its longest valid prefix\n");

    heading("Strings: copies share one block");
    PAL::CString copy = greeting;
    std::printf("copy shares the text: %s\n", copy.getBuffer() == greeting.getBuffer() ? "yes" : "no");
    copy.reserve(64);
    std::printf("after a write the copy has its own: %s\n", copy.getBuffer() != greeting.getBuffer() ? "yes" : "no");
    std::printf("hash of \"abc\": %u\n", PAL::getHashValueForString(PAL::CString("abc")));
}

void editing()
{
    heading("Strings: editing and formatting");
    PAL::CString message("  Task %1 of %2 finished  ");
    message.trim();
    message.replaceArg(PAL::CString("3")).replaceArg(PAL::CString("7"));
    std::printf("%s\n", message.getBuffer());

    PAL::CString line;
    line.format("%s has %u characters", "Köln", PAL::CString("Köln").getLength());
    std::printf("%s\n", line.getBuffer());

    PAL::CString path("core/private/String.cpp");
    PAL::CString::const_iterator slash = path.findString(path.end(), PAL::CString("/"), false);
    std::printf("file name: %s\n", path.getRight(slash + 1).getBuffer());
}

void dates()
{
    namespace Dates = PAL::DateAndTimeUtilities;
    heading("Dates: calendar arithmetic and ISO 8601 text");
    PAL::CDateAndTime when;
    Dates::STimeZoneOffset zone;
    if (Dates::FromString(when, PAL::CString("2024-01-31T10:20:30.25+02:00"), Dates::eFormatISO8601, &zone)) {
        std::printf("read:             %s\n",
                    Dates::ToString(when, Dates::eFormatISO8601, Dates::eWithFraction, zone).getBuffer());
        Dates::AddMonths(when, 1, Dates::eKeep);
        std::printf("one month later:  %s (the day is clamped to the month's end)\n",
                    Dates::ToString(when, Dates::eFormatISO8601, 0, zone).getBuffer());
        std::printf("ISO week number:  %u\n", Dates::GetWeekNumber(when, 0, 4));
        Dates::AddDays(when, 1, Dates::eSetToStart);
        std::printf("next day's start: %s\n",
                    Dates::ToString(when, Dates::eFormatSpaceSeparated, 0, zone).getBuffer());
    }
    PAL::CDateAndTime refused;
    std::printf("2023-02-29 is %s\n",
                Dates::FromString(refused, PAL::CString("2023-02-29T00:00:00Z"), Dates::eFormatISO8601, 0)
                    ? "accepted"
                    : "refused");
}

struct PrintPort {
    void operator()(const PAL::CString& service, unsigned int& port) const
    {
        std::printf("  %s -> %u\n", service.getBuffer(), port);
    }
};

void tables()
{
    heading("Hash tables: typed over the untyped engines");
    PAL::THashArray<PAL::CString, unsigned int> ports;
    ports.insert(PAL::CString("http"), 80);
    ports.insert(PAL::CString("ssh"), 22);
    if (unsigned int* port = ports.find(PAL::CString("http"))) {
        *port = 8080;
    }
    std::printf("%u services:\n", ports.size());
    ports.forEach(PrintPort());
}

void memory()
{
    heading("Memory: every allocation attributed to \"osal_kit\"");
    sMorvex_PAL_AllocStats before;
    Morvex_PAL_AllocGetStats("osal_kit", "Memory::alloc", &before);
    void* block = PAL::Memory::alloc(128);
    sMorvex_PAL_AllocInfo info;
    if (Morvex_PAL_AllocLookup(block, &info) == 0) {
        std::printf("128 bytes from %s, label \"%s\", %s:%d\n", info.component, info.label, info.sourcePath, info.line);
    }
    sMorvex_PAL_AllocStats during;
    Morvex_PAL_AllocGetStats("osal_kit", "Memory::alloc", &during);
    std::printf("live \"Memory::alloc\" blocks: %u, then after release: ", during.liveBlocks);
    PAL::Memory::release(block, 128);
    sMorvex_PAL_AllocStats after;
    Morvex_PAL_AllocGetStats("osal_kit", "Memory::alloc", &after);
    std::printf("%u\n", after.liveBlocks);

    unsigned int references = 1;
    PAL::Atomic::increment(references);
    const bool stillReferenced = PAL::Atomic::testDecrement(references);
    std::printf("reference count 2 -> %u, still referenced: %s\n", references, stillReferenced ? "yes" : "no");
}

} // namespace

int main()
{
    std::printf("osal_kit demo\n");
    strings();
    editing();
    dates();
    tables();
    memory();
    return 0;
}
