#pragma once

#include <memory>

namespace platform {

/// Gives back what a C library made, by the library's function; where that takes the pointer's place, by this.
template <auto Free>
struct FreeWith {
    template <typename T>
    void operator()(T* handle) const
    {
        if constexpr (requires { Free(handle); })
            Free(handle);
        else
            Free(&handle);
    }
};

/// A C library's object, owned.
template <typename T, auto Free>
using Handle = std::unique_ptr<T, FreeWith<Free>>;

} // namespace platform
