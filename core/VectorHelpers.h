#ifndef OSAL_KIT_CORE_VECTOR_HELPERS_H
#define OSAL_KIT_CORE_VECTOR_HELPERS_H

#include <cstring>
#include <functional>
#include <new>
#include <type_traits>

namespace PAL {

/// How `TVector` moves scalar and pointer elements: bytes only, one `memmove` per call,
/// never per-element code. Source and destination may overlap.
class CVectorHelperSimple {
public:
    /// Fills the raw slots `dst[0 .. n)` with the bytes of `src[0 .. n)`.
    template <typename T>
    static void construct(T* dst, const T* src, int n)
    {
        std::memmove(dst, src, static_cast<std::size_t>(n) * sizeof(T));
    }
    /// Fills the raw slots `dst[0 .. n)` with `value`.
    template <typename T>
    static void construct(T* dst, const T& value, int n)
    {
        for (int i = 0; i < n; ++i) {
            dst[i] = value;
        }
    }
    /// Scalars need no destruction.
    template <typename T>
    static void destruct(T*, int) {}
};

/// How `PAL::copy` assigns scalar and pointer elements: one `memmove`.
class CCopyHelperSimple {
public:
    /// Assigns `src[0 .. n)` to `dst[0 .. n)`; the ranges may overlap.
    template <typename T>
    static void copy(T* dst, const T* src, int n)
    {
        std::memmove(dst, src, static_cast<std::size_t>(n) * sizeof(T));
    }
};

/// How `TVector` moves class-type elements: copy construction into raw slots, one
/// destructor call per element (virtual where `T` declares it so). Overlapping ranges
/// are walked forwards when the destination lies below the source and backwards when
/// above, so every element is read before it is overwritten.
class CVectorHelperComplex {
public:
    /// Copy-constructs `src[0 .. n)` into the raw slots `dst[0 .. n)`.
    template <typename T>
    static void construct(T* dst, const T* src, int n)
    {
        if (std::less<const T*>()(dst, src)) {
            for (int i = 0; i < n; ++i) {
                ::new (static_cast<void*>(dst + i)) T(src[i]);
            }
        } else if (std::less<const T*>()(src, dst)) {
            for (int i = n - 1; i >= 0; --i) {
                ::new (static_cast<void*>(dst + i)) T(src[i]);
            }
        }
    }
    /// Copy-constructs `value` into each of the raw slots `dst[0 .. n)`.
    template <typename T>
    static void construct(T* dst, const T& value, int n)
    {
        for (int i = 0; i < n; ++i) {
            ::new (static_cast<void*>(dst + i)) T(value);
        }
    }
    /// Destroys `p[0 .. n)`, first to last; the slots are raw afterwards.
    template <typename T>
    static void destruct(T* p, int n)
    {
        for (int i = 0; i < n; ++i) {
            p[i].~T();
        }
    }
};

/// How `PAL::copy` assigns class-type elements: `operator=` per element, in the
/// direction that is safe for overlapping ranges.
class CCopyHelperComplex {
public:
    /// Assigns `src[0 .. n)` to `dst[0 .. n)`; the ranges may overlap.
    template <typename T>
    static void copy(T* dst, const T* src, int n)
    {
        if (std::less<const T*>()(dst, src)) {
            for (int i = 0; i < n; ++i) {
                dst[i] = src[i];
            }
        } else if (std::less<const T*>()(src, dst)) {
            for (int i = n - 1; i >= 0; --i) {
                dst[i] = src[i];
            }
        }
    }
};

/// The helper family of an element type, chosen at compile time: scalars (numbers,
/// enumerations, pointers) move as bytes, everything else as objects. The helpers keep
/// no state; they own nothing and lock nothing, so callers keep the ranges they touch
/// to one thread.
template <typename T>
struct TVectorHelpers {
    /// Construction and destruction in raw slots: `CVectorHelperSimple` or `CVectorHelperComplex`.
    typedef typename std::conditional<std::is_scalar<T>::value, CVectorHelperSimple, CVectorHelperComplex>::type Vector;
    /// Assignment over live elements: `CCopyHelperSimple` or `CCopyHelperComplex`.
    typedef typename std::conditional<std::is_scalar<T>::value, CCopyHelperSimple, CCopyHelperComplex>::type Copy;
};

/// Assigns `src[0 .. count)` over the live elements `dst[0 .. count)`, as bytes for
/// scalars and with `operator=` for class types; the ranges may overlap. Does nothing
/// when either pointer is null or `count` is negative.
template <typename T>
void copy(T* dst, const T* src, int count)
{
    if (dst == nullptr || src == nullptr || count < 0) {
        return;
    }
    TVectorHelpers<T>::Copy::copy(dst, src, count);
}

} // namespace PAL

#endif
