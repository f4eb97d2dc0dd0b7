// Hash tables: THashMap maps unsigned int keys to values, THashArray any key with a
// hash (strings included). Both own copies of what they hold and report running out
// of memory by a false (or null) result, never by an exception.

#include "core/HashArray.h"
#include "core/HashMap.h"
#include "core/String.h"

#include <cstdio>

namespace {

struct SAddUp {
    explicit SAddUp(unsigned int& total) : mTotal(total) {}
    void operator()(const PAL::CString&, const unsigned int& port) const { mTotal += port; }
    unsigned int& mTotal;
};

void hashMap()
{
    std::printf("-- THashMap: unsigned int keys --\n");
    PAL::THashMap<PAL::CString> errors;
    if (!errors.set(404, "not found") || !errors.set(500, "server error")) {
        std::printf("out of memory\n");
        return;
    }
    errors.set(404, "Not Found");  // a present key: the value is assigned

    // get() adds a default value for a missing key; find() never adds.
    if (PAL::CString* text = errors.get(418)) {
        *text = "I'm a teapot";
    }
    std::printf("%u keys; 503 present: %s\n", errors.size(), errors.contains(503) ? "yes" : "no");
    const unsigned int codes[] = {404, 418, 500, 503};
    for (unsigned int i = 0; i < 4; ++i) {
        const PAL::CString* text = errors.find(codes[i]);
        std::printf("%u: %s\n", codes[i], text != 0 ? text->getBuffer() : "(none)");
    }

    // Copies are deep: each map owns its own values.
    PAL::THashMap<PAL::CString> copy = errors;
    *copy.find(500) = "changed in the copy";
    std::printf("original 500: %s; copy 500: %s\n", errors.find(500)->getBuffer(), copy.find(500)->getBuffer());
}

void hashArray()
{
    std::printf("-- THashArray: string keys --\n");
    PAL::THashArray<PAL::CString, unsigned int> ports;
    ports.insert("http", 80);
    ports.insert("ssh", 22);
    ports.insert("smtp", 25);
    if (unsigned int* port = ports.find("http")) {
        *port = 8080;  // the address stays valid until "http" is removed
    }
    std::printf("%u services; http on %u\n", ports.size(), *ports.find("http"));
    const bool removed = ports.remove("ssh");
    const bool removedAgain = ports.remove("ssh");
    std::printf("remove ssh: %s; remove it again: %s\n", removed ? "done" : "absent", removedAgain ? "done" : "absent");

    unsigned int total = 0;
    ports.forEach(SAddUp(total));
    std::printf("ports added up over every entry: %u\n", total);
    ports.clear();
    std::printf("after clear: %u services\n", ports.size());
}

} // namespace

int main()
{
    std::printf("== Hash map ==\n");
    hashMap();
    hashArray();
    return 0;
}
