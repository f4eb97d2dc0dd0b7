#ifndef OSAL_KIT_OS_PRIVATE_PAL_RELEASE_H
#define OSAL_KIT_OS_PRIVATE_PAL_RELEASE_H

// Destroying a PAL core object. A destruction the PAL core refuses leaves the object
// alive, and nothing would ever destroy it later: the library asks again a few times
// before it gives the object up. Each destroy function clears the handle on success.
//
//     if (Morvex_PAL_SemaDeInit(&handle) != SEMA_OK)
//         PalRelease::retry(&Morvex_PAL_SemaDeInit, handle);

namespace PAL {
namespace PalRelease {

// Calls in all, the first one included.
const unsigned int ATTEMPTS = 3;

// After a first call of `release(&handle)` failed: the remaining attempts, quietly,
// while the handle is still set.
template <typename Result, typename Handle>
void retry(Result (*release)(Handle*), Handle& handle)
{
    for (unsigned int attempt = 1; attempt < ATTEMPTS && handle != 0; ++attempt) {
        if (release(&handle) == 0) {
            return;
        }
    }
}

} // namespace PalRelease
} // namespace PAL

#endif
