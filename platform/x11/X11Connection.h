#pragma once

#include "platform/x11/X11FileDescriptor.h"

#include "foundation/PXError.h"
#include "foundation/PXHandle.h"

#include <xcb/xcb.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <thread>
#include <type_traits>

/// Replies, events and errors of xcb come from malloc.
template <typename T> using X11Reply = PXHandle<T, std::free>;
using X11Event = X11Reply<xcb_generic_event_t>;

/// One connection to an X server. xcb locks it: any thread may send and wait for replies, but
/// only one may read its events. A failing request is logged here, a lost server once.
class X11Connection final {
public:
    /// An empty name takes DISPLAY. Connections to one display are lost together: those that share
    /// `lossIsLogged` write one line about it. Shared, since any of them may be the last to go.
    static PXExpected<std::unique_ptr<X11Connection>>
    open(const QString &displayName,
         std::shared_ptr<std::atomic<bool>> lossIsLogged
         = std::make_shared<std::atomic<bool>>(false));

    [[nodiscard]] xcb_connection_t *get() const { return _connection.get(); }
    [[nodiscard]] const xcb_screen_t &screen() const { return *_screen; }
    [[nodiscard]] int screenNumber() const { return _screenNumber; }
    [[nodiscard]] xcb_window_t root() const { return _screen->root; }
    /// Through a socket of this machine, which can carry file descriptors.
    [[nodiscard]] bool isLocal() const;
    [[nodiscard]] bool isLost() const { return xcb_connection_has_error(get()) != 0; }
    [[nodiscard]] bool hasExtension(xcb_extension_t &extension) const;
    /// The number of the first event of an extension that the server has; an error when the
    /// connection is lost.
    PXExpected<std::uint8_t> firstEventOf(xcb_extension_t &extension);
    /// Whether `id` was made by the server itself: the root, a compositor's overlay window.
    [[nodiscard]] bool isServersOwn(std::uint32_t id) const;

    /// Waits for the reply of `request`, whose name is for the log:
    /// `reply<xcb_get_geometry_reply>("xcb_get_geometry", xcb_get_geometry(…))`.
    template <auto replyFunction, typename Cookie> auto reply(const char *request, Cookie cookie)
    {
        xcb_generic_error_t *error = nullptr;
        using Reply = std::remove_pointer_t<decltype(replyFunction(get(), cookie, &error))>;
        X11Reply<Reply> reply(replyFunction(get(), cookie, &error));
        _wakeReader();
        const X11Reply<xcb_generic_error_t> owner(error);
        if (!reply)
            return PXExpected<X11Reply<Reply>>(PXFail(failure(request, error)));
        return PXExpected<X11Reply<Reply>>(std::move(reply));
    }

    /// The same about a window that may have gone, which is no failure: nothing then, and no line
    /// in the log.
    template <auto replyFunction, typename Cookie> auto replyIfThere(Cookie cookie)
    {
        using Reply = std::remove_pointer_t<decltype(replyFunction(get(), cookie, nullptr))>;
        X11Reply<Reply> reply(replyFunction(get(), cookie, nullptr));
        _wakeReader();
        return reply;
    }

    /// Waits until the server has done all that was sent before.
    void sync();

    /// Waits until the server has done a checked request.
    PXExpected<void> check(const char *request, xcb_void_cookie_t cookie)
    {
        return check(request, std::span(&cookie, 1));
    }
    /// The same for several that are one to us: the first failure stands for all of them.
    PXExpected<void> check(const char *request, std::span<const xcb_void_cookie_t> cookies);

    /// What a request failed with, logged; without an error of the server the connection is lost.
    PXError failure(const char *request, const xcb_generic_error_t *error);
    PXError lostError();

    /// Says who reads the events, from that thread: `wake` is signalled when another one has waited
    /// for a reply. Events come along with it into xcb's queue, of which the socket tells nobody
    /// any more. Null before `wake` goes; nobody may wait for a reply just then.
    void setReader(const X11FileDescriptor *wake);

private:
    X11Connection() = default;
    void _wakeReader() const;

    QString _displayName;
    PXHandle<xcb_connection_t, xcb_disconnect> _connection;
    int _screenNumber = 0;
    const xcb_screen_t *_screen = nullptr; // The connection's.
    std::shared_ptr<std::atomic<bool>> _lossIsLogged;
    std::atomic<const X11FileDescriptor *> _reader = nullptr;
    std::atomic<std::thread::id> _readingThread;
};
