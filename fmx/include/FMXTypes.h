// Scalar types of the plug-in interface, and the error slot that every C entry point reports through.
#pragma once

#include <exception>
#include <new>
#include <type_traits>
#include <utility>

#define FMX_API __attribute__((visibility("default")))

namespace fmx {

using uchar = unsigned char;
using int16 = short;
using uint16 = unsigned short;
using int32 = int;
using uint32 = unsigned int;
#if defined(__LP64__)
using int64 = long;
using uint64 = unsigned long;
#else
using int64 = long long;
using uint64 = unsigned long long;
#endif

using ptrtype = uint64;
using unusedid = int32;
using errcode = short;
using unichar16 = uint16; // one UTF-16 code unit

// An entry point never throws: it fills this slot, and the inline methods turn it into an exception.
struct _fmxcpt {
    int32 m_vers = 1;
    int32 m_code = 0; // 0 success, 1 an allocation failed, 2 any other failure

    void Check() const
    {
        if (m_code == 1) {
            throw std::bad_alloc();
        }
        if (m_code != 0) {
            throw std::exception();
        }
    }
};

// Calls an entry point with a slot of its own; throws what the slot reports, else returns what the entry point returns.
template <typename Entry, typename... Arguments>
inline auto _fmxcall(Entry entry, Arguments&&... arguments)
{
    _fmxcpt x;
    if constexpr (std::is_void_v<decltype(entry(std::forward<Arguments>(arguments)..., x))>) {
        entry(std::forward<Arguments>(arguments)..., x);
        x.Check();
    } else {
        const auto returned = entry(std::forward<Arguments>(arguments)..., x);
        x.Check();
        return returned;
    }
}

} // namespace fmx

using FMX_PtrType = fmx::ptrtype;
using FMX_ErrorCode = fmx::errcode;
