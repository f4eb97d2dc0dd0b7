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
    memory();
    return 0;
}
