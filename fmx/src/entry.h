// The shape that every C entry point shares: nothing is thrown, failures go into the error slot.
#pragma once

#include <FMXTypes.h>

#include <functional>
#include <new>

namespace fmxkit {

// Counts a call of the current thread; the code that the test has ordered for it, else 0 (see failure.h).
fmx::int32 injectedFailure() noexcept;

// Runs `work` and returns what it returns, or a zero of that type when it fails.
template <typename Work>
auto entry(fmx::_fmxcpt& x, Work&& work) noexcept -> decltype(work())
{
    using Result = decltype(work());
    x.m_code = injectedFailure();
    if (x.m_code == 0) {
        try {
            return work();
        } catch (const std::bad_alloc&) {
            x.m_code = 1;
        } catch (...) {
            x.m_code = 2;
        }
    }
    return Result();
}

// The interface's classes have no members that a plug-in can see. Behind each stands a class of this library:
//   using Inside = TextValue;   for fmx::Text
template <typename Opaque>
struct Behind;

template <typename Opaque>
using Inside = typename Behind<Opaque>::Type;

template <typename Opaque>
Inside<Opaque>& inside(Opaque* value)
{
    return *reinterpret_cast<Inside<Opaque>*>(value);
}

template <typename Opaque>
const Inside<Opaque>& inside(const Opaque* value)
{
    return *reinterpret_cast<const Inside<Opaque>*>(value);
}

template <typename Opaque>
Opaque* outside(Inside<Opaque>* value)
{
    return reinterpret_cast<Opaque*>(value);
}

template <typename Opaque>
const Opaque* outside(const Inside<Opaque>* value)
{
    return reinterpret_cast<const Opaque*>(value);
}

// Makes a value that the caller owns.
template <typename Opaque, typename... Arguments>
Opaque* create(fmx::_fmxcpt& x, const Arguments&... arguments)
{
    return entry(x, [&] { return outside<Opaque>(new Inside<Opaque>(arguments...)); });
}

// Deleting can't fail, so it doesn't count as a call that can: an ordered failure must not leak what it was meant for.
template <typename Opaque>
void destroy(Opaque* value, fmx::_fmxcpt& x) noexcept
{
    x.m_code = 0;
    delete reinterpret_cast<Inside<Opaque>*>(value);
}

} // namespace fmxkit

// The six entry points by which the values of a type compare. order(a, b) returns what is below, at or above 0 as a is
// below, equal to or above b.
#define FMXKIT_COMPARISON(Type, name, comparison, order)                                                               \
    bool FM_##Type##_operator##name(const Type* self, const Type& that, _fmxcpt& x)                                    \
    {                                                                                                                  \
        return fmxkit::entry(x, [&] { return (comparison)((order)(self, &that), 0); });                                \
    }
#define FMXKIT_COMPARISONS(Type, order)                                                                                \
    FMXKIT_COMPARISON(Type, EQ, std::equal_to<>{}, order)                                                              \
    FMXKIT_COMPARISON(Type, NE, std::not_equal_to<>{}, order)                                                          \
    FMXKIT_COMPARISON(Type, LT, std::less<>{}, order)                                                                  \
    FMXKIT_COMPARISON(Type, LE, std::less_equal<>{}, order)                                                            \
    FMXKIT_COMPARISON(Type, GT, std::greater<>{}, order)                                                               \
    FMXKIT_COMPARISON(Type, GE, std::greater_equal<>{}, order)
