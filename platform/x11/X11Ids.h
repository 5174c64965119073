#pragma once

#include <xcb/damage.h>
#include <xcb/shm.h>
#include <xcb/xcb.h>
#include <xcb/xfixes.h>

#include <cstdint>
#include <utility>

/// Owns something that the server keeps for us under an id. The request that makes it is the
/// owner's business; `free` tells the server when we are done. The connection must outlive it.
template <auto free> class X11Id final {
public:
    X11Id() = default;
    /// Draws an id; nothing is sent.
    explicit X11Id(xcb_connection_t *connection)
        : _connection(connection), _id(xcb_generate_id(connection))
    {
    }
    ~X11Id() { reset(); }
    X11Id(X11Id &&other) noexcept : _connection(other._connection), _id(std::exchange(other._id, 0))
    {
    }
    X11Id &operator=(X11Id &&other) noexcept
    {
        std::swap(_connection, other._connection);
        std::swap(_id, other._id);
        return *this;
    }

    [[nodiscard]] std::uint32_t id() const { return _id; }
    explicit operator bool() const { return _id != 0; }

    void reset()
    {
        if (_id != 0)
            free(_connection, std::exchange(_id, 0));
    }
    /// For what the server has freed already: a damage goes with its window.
    void forget() { _id = 0; }

private:
    xcb_connection_t *_connection = nullptr;
    std::uint32_t _id = 0;
};

using X11Damage = X11Id<xcb_damage_destroy>;
using X11GraphicsContext = X11Id<xcb_free_gc>;
using X11Pixmap = X11Id<xcb_free_pixmap>;
using X11Region = X11Id<xcb_xfixes_destroy_region>;
using X11Segment = X11Id<xcb_shm_detach>;
using X11Window = X11Id<xcb_destroy_window>;
