#include "platform/x11/X11VerticalBlank.h"

#include "foundation/PXClock.h"

#include <xcb/present.h>

#include <algorithm>

namespace {

/// After so long the count of periods since the last blank is no longer exact.
constexpr std::uint64_t kLongestPrediction = 2'000'000'000;
constexpr std::uint64_t kLongestDelay = 1'000'000'000;

} // namespace

std::unique_ptr<X11VerticalBlank>
X11VerticalBlank::onConnection(std::unique_ptr<X11Connection> connection, const PXPixelRect &place)
{
    if (!connection->hasExtension(xcb_present_id))
        return nullptr;
    std::unique_ptr<X11VerticalBlank> result(new X11VerticalBlank(std::move(connection)));
    X11Connection &c = *result->_connection;
    if (!c.reply<xcb_present_query_version_reply>("xcb_present_query_version",
                                                  xcb_present_query_version(c.get(), 1, 0)))
        return nullptr;
    // A window that is never shown; its place tells the server whose blanks we mean.
    result->_window = X11Window(c.get());
    const std::uint32_t overrideRedirect = 1;
    xcb_create_window(c.get(), 0, result->_window.id(), c.root(),
                      static_cast<std::int16_t>(place.x), static_cast<std::int16_t>(place.y), 1, 1,
                      0, XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT,
                      XCB_CW_OVERRIDE_REDIRECT, &overrideRedirect);
    const auto selected
        = xcb_present_select_input_checked(c.get(), xcb_generate_id(c.get()), result->_window.id(),
                                           XCB_PRESENT_EVENT_MASK_COMPLETE_NOTIFY);
    if (!c.check("xcb_present_select_input", selected))
        return nullptr;
    return result;
}

int X11VerticalBlank::fileDescriptor() const
{
    return xcb_get_file_descriptor(_connection->get());
}

std::uint64_t X11VerticalBlank::request(std::uint64_t notBefore, std::uint64_t period)
{
    const std::uint64_t now = PXCurrentHostTime();
    // A count that has passed, with the divisor 1, means the next blank.
    std::uint64_t count = 0;
    std::uint64_t due = now + period;
    if (notBefore > now && _latestTime != 0 && notBefore < _latestTime + kLongestPrediction) {
        const std::uint64_t early = earlyBy(period);
        const std::uint64_t ahead = notBefore - std::min(_latestTime, notBefore);
        const std::uint64_t periods = ahead > early ? (ahead - early + period - 1) / period : 1;
        count = _latestCount + periods;
        due = _latestTime + periods * period;
    } else if (notBefore > now) {
        due = notBefore + period;
    }
    _isUnderWay = true;
    xcb_present_notify_msc(_connection->get(), _window.id(), ++_serial, count, 1, 0);
    xcb_flush(_connection->get());
    return due;
}

std::optional<std::uint64_t> X11VerticalBlank::takeLatest()
{
    std::optional<std::uint64_t> latest;
    while (const X11Event event{xcb_poll_for_event(_connection->get())}) {
        if ((event->response_type & 0x7F) != XCB_GE_GENERIC)
            continue;
        const auto &blank = reinterpret_cast<const xcb_present_complete_notify_event_t &>(*event);
        if (blank.event_type != XCB_PRESENT_COMPLETE_NOTIFY)
            continue;
        if (blank.serial == _serial)
            _isUnderWay = false;
        // Some drivers report no time, or that of a display that sleeps.
        const std::uint64_t now = PXCurrentHostTime();
        const std::uint64_t time = blank.ust * 1000;
        _latestTime = time + kLongestDelay > now && time < now + kLongestDelay ? time : now;
        _latestCount = blank.msc;
        latest = _latestTime;
    }
    return latest;
}
