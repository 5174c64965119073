#pragma once

#include <QString>

#include <xcb/xcb.h>

#include <cstdlib>
#include <functional>
#include <memory>

/// The tests' own connection to a display, apart from the code that they test. Whatever fails
/// throws std::runtime_error.
class TestConnection final {
public:
    explicit TestConnection(const QString &displayName);

    [[nodiscard]] xcb_connection_t *get() const { return _connection.get(); }
    [[nodiscard]] const xcb_screen_t &screen() const { return *_screen; }
    [[nodiscard]] xcb_window_t root() const { return _screen->root; }
    xcb_atom_t atom(const char *name) const;
    /// Returns when the server has done all that was sent.
    void sync() const;
    /// Looks at `isTrue` now, after each event that this connection gets, and four times a
    /// second; throws after a minute.
    void waitUntil(const std::function<bool()> &isTrue, const char *what) const;

private:
    struct Disconnect {
        void operator()(xcb_connection_t *connection) const { xcb_disconnect(connection); }
    };
    std::unique_ptr<xcb_connection_t, Disconnect> _connection;
    const xcb_screen_t *_screen = nullptr;
};

struct FreeReply {
    void operator()(void *reply) const { std::free(reply); }
};
template <typename T> using TestReply = std::unique_ptr<T, FreeReply>;
