#pragma once

#include <memory>

/// Calls a C library's own release function.
template <auto release> struct PXReleaser {
    template <typename T> void operator()(T *handle) const noexcept { release(handle); }
};

/// Owns a handle of a C library: `using XConnection = PXHandle<xcb_connection_t, xcb_disconnect>;`
template <typename T, auto release> using PXHandle = std::unique_ptr<T, PXReleaser<release>>;
