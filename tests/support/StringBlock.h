// Looking inside a CString's block from tests: where it lives, its bytes, and the
// invariants every string operation keeps.
#ifndef OSAL_KIT_TEST_STRING_INSPECT_H
#define OSAL_KIT_TEST_STRING_INSPECT_H

#include "core/String.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

namespace osal_kit_test {

inline const PAL::SStringData* blockOf(const PAL::CString& s)
{
    // Through void*: a char* to SStringData* cast is flagged for alignment on ARM.
    return static_cast<const PAL::SStringData*>(static_cast<const void*>(s.getBuffer() - offsetof(PAL::SStringData, mText)));
}

inline bool sharesNullData(const PAL::CString& s)
{
    return blockOf(s) == &PAL::CString::nullData;
}

/// The text bytes, NULs included.
inline std::string bytes(const PAL::CString& s)
{
    return std::string(s.getBuffer(), s.getSize());
}

/// A string holding exactly these bytes (validated as any 8-bit input is).
inline PAL::CString fromBytes(const std::string& text)
{
    return PAL::CString(text.data(), static_cast<unsigned int>(text.size()));
}

/// Checks the block invariants: the text fits, is terminated, splits into exactly
/// mNumChars whole sequences, and the sentinel is still 0.
inline void expectConsistent(const PAL::CString& s)
{
    const PAL::SStringData* block = blockOf(s);
    EXPECT_LE(block->mByteLength, block->mCapacity);
    EXPECT_EQ(0, block->mText[block->mByteLength]);
    EXPECT_EQ(0, block->mSentinel);
    unsigned int sequences = 0;
    unsigned int i = 0;
    while (i < block->mByteLength) {
        i += PAL::UTF8LookUpTable[static_cast<unsigned char>(block->mText[i])];
        ++sequences;
    }
    EXPECT_EQ(block->mByteLength, i) << "the last sequence runs past the text";
    EXPECT_EQ(sequences, block->mNumChars);
}

/// The shared empty block has never been written.
inline void expectNullDataUntouched()
{
    const PAL::SStringData& data = PAL::CString::nullData;
    EXPECT_EQ(0u, data.mCapacity);
    EXPECT_EQ(0u, data.mByteLength);
    EXPECT_EQ(0u, data.mNumChars);
    EXPECT_EQ(0, data.mSentinel);
    EXPECT_EQ(0, data.mText[0]);
}

} // namespace osal_kit_test

#endif
