#include "tests/support/TestConnection.h"

#include <poll.h>

#include <cstring>
#include <stdexcept>
#include <string>

TestConnection::TestConnection(const QString &displayName)
    : _connection(xcb_connect(displayName.toLocal8Bit().constData(), nullptr))
{
    if (xcb_connection_has_error(get()) != 0)
        throw std::runtime_error("no connection to display " + displayName.toStdString());
    _screen = xcb_setup_roots_iterator(xcb_get_setup(get())).data;
}

xcb_atom_t TestConnection::atom(const char *name) const
{
    const auto length = static_cast<std::uint16_t>(std::strlen(name));
    const TestReply<xcb_intern_atom_reply_t> reply(
        xcb_intern_atom_reply(get(), xcb_intern_atom(get(), 0, length, name), nullptr));
    if (!reply)
        throw std::runtime_error("xcb_intern_atom() failed");
    return reply->atom;
}

void TestConnection::sync() const
{
    const TestReply<xcb_get_input_focus_reply_t> reply(
        xcb_get_input_focus_reply(get(), xcb_get_input_focus(get()), nullptr));
    if (!reply)
        throw std::runtime_error("the display has gone");
}

void TestConnection::waitUntil(const std::function<bool()> &isTrue, const char *what) const
{
    constexpr int kBetweenLooksMs = 250;
    constexpr int kMostVainLooks = 240;
    for (int vainLooks = 0; !isTrue();) {
        // Asking may have read events already; they stand for a change since then.
        bool hasEvent = false;
        while (const TestReply<xcb_generic_event_t> event{xcb_poll_for_event(get())})
            hasEvent = true;
        if (hasEvent)
            continue;
        pollfd file = {xcb_get_file_descriptor(get()), POLLIN, 0};
        vainLooks += poll(&file, 1, kBetweenLooksMs) == 0 ? 1 : 0;
        if (vainLooks == kMostVainLooks || xcb_connection_has_error(get()) != 0)
            throw std::runtime_error(std::string("waited in vain for ") + what);
    }
}
