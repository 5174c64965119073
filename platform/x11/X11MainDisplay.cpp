#include "platform/x11/X11MainDisplay.h"

#include <xcb/randr.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace {

constexpr double kUnknownRefreshRate = 0;
constexpr double kUsualRefreshRate = 60;

double refreshRateOf(const xcb_randr_mode_info_t &mode)
{
    double lines = mode.vtotal;
    if ((mode.mode_flags & XCB_RANDR_MODE_FLAG_DOUBLE_SCAN) != 0)
        lines *= 2;
    if ((mode.mode_flags & XCB_RANDR_MODE_FLAG_INTERLACE) != 0)
        lines /= 2;
    const double pixels = mode.htotal * lines;
    // Virtual displays have modes without a clock.
    return mode.dot_clock > 0 && pixels > 0 ? mode.dot_clock / pixels : kUnknownRefreshRate;
}

} // namespace

PXExpected<std::unique_ptr<X11MainDisplay>>
X11MainDisplay::onConnection(std::unique_ptr<X11Connection> connection)
{
    std::unique_ptr<X11MainDisplay> result(new X11MainDisplay(std::move(connection)));
    X11Connection &c = *result->_connection;
    if (result->_hasRandR) {
        auto version = c.reply<xcb_randr_query_version_reply>(
            "xcb_randr_query_version", xcb_randr_query_version(c.get(), 1, 3));
        if (!version)
            return PXFail(std::move(version).error());
        // Primary outputs came with 1.3; an older server is asked for its whole screen.
        result->_hasRandR = (*version)->major_version > 1 || (*version)->minor_version >= 3;
    }
    if (result->_hasRandR) {
        xcb_randr_select_input(c.get(), c.root(),
                               XCB_RANDR_NOTIFY_MASK_SCREEN_CHANGE
                                   | XCB_RANDR_NOTIFY_MASK_CRTC_CHANGE
                                   | XCB_RANDR_NOTIFY_MASK_OUTPUT_CHANGE);
    }
    auto state = result->_ask();
    if (!state)
        return PXFail(std::move(state).error());
    result->_remember(*std::move(state));
    result->_thread.emplace("tolvane-display", c, static_cast<X11EventThread::Delegate &>(*result));
    return result;
}

X11MainDisplay::X11MainDisplay(std::unique_ptr<X11Connection> connection)
    : _connection(std::move(connection)), _hasRandR(_connection->hasExtension(xcb_randr_id))
{
}

PXPixelRect X11MainDisplay::bounds() const
{
    const PXLock lock(_lock);
    return _state.bounds;
}

std::optional<PXPixelRect> X11MainDisplay::displayAt(int x, int y) const
{
    const PXLock lock(_lock);
    for (const PXPixelRect &display : _state.displays)
        if (x >= display.x && x < display.x + display.width && y >= display.y
            && y < display.y + display.height)
            return display;
    return std::nullopt;
}

double X11MainDisplay::refreshRate() const
{
    const PXLock lock(_lock);
    return _state.refreshRate > 0 ? _state.refreshRate : kUsualRefreshRate;
}

bool X11MainDisplay::hasRefreshes() const
{
    const PXLock lock(_lock);
    return _state.refreshRate > 0;
}

PXExpected<X11MainDisplay::State> X11MainDisplay::_ask()
{
    if (_hasRandR) {
        auto ofOutput = _askOutputs();
        if (!ofOutput)
            return PXFail(std::move(ofOutput).error());
        if (*ofOutput)
            return **ofOutput;
    }
    auto geometry = _connection->reply<xcb_get_geometry_reply>(
        "xcb_get_geometry", xcb_get_geometry(_connection->get(), _connection->root()));
    if (!geometry)
        return PXFail(std::move(geometry).error());
    const PXPixelRect whole = {0, 0, (*geometry)->width, (*geometry)->height};
    return State{whole, kUnknownRefreshRate, {whole}};
}

PXExpected<std::optional<X11MainDisplay::State>> X11MainDisplay::_askOutputs()
{
    xcb_connection_t *c = _connection->get();
    const auto primaryCookie = xcb_randr_get_output_primary(c, _connection->root());
    const auto resourcesCookie = xcb_randr_get_screen_resources_current(c, _connection->root());
    auto primary = _connection->reply<xcb_randr_get_output_primary_reply>(
        "xcb_randr_get_output_primary", primaryCookie);
    auto resources = _connection->reply<xcb_randr_get_screen_resources_current_reply>(
        "xcb_randr_get_screen_resources_current", resourcesCookie);
    if (!primary)
        return PXFail(std::move(primary).error());
    if (!resources)
        return PXFail(std::move(resources).error());

    const auto *first = xcb_randr_get_screen_resources_current_outputs(resources->get());
    std::vector<xcb_randr_output_t> outputs(
        first, first + xcb_randr_get_screen_resources_current_outputs_length(resources->get()));
    std::stable_partition(outputs.begin(), outputs.end(),
                          [&](auto output) { return output == (*primary)->output; });
    std::optional<State> state;
    for (const xcb_randr_output_t output : outputs) {
        const xcb_timestamp_t since = (*resources)->config_timestamp;
        // Either may be refused when the outputs change meanwhile; an event follows then.
        const X11Reply<xcb_randr_get_output_info_reply_t> info(xcb_randr_get_output_info_reply(
            c, xcb_randr_get_output_info(c, output, since), nullptr));
        if (!info || info->crtc == XCB_NONE)
            continue;
        const X11Reply<xcb_randr_get_crtc_info_reply_t> crtc(xcb_randr_get_crtc_info_reply(
            c, xcb_randr_get_crtc_info(c, info->crtc, since), nullptr));
        if (!crtc || crtc->width == 0 || crtc->height == 0)
            continue;
        const PXPixelRect place = {crtc->x, crtc->y, crtc->width, crtc->height};
        if (!state) {
            state = {place, kUnknownRefreshRate, {}};
            auto modes = xcb_randr_get_screen_resources_current_modes_iterator(resources->get());
            for (; modes.rem > 0; xcb_randr_mode_info_next(&modes))
                if (modes.data->id == crtc->mode)
                    state->refreshRate = refreshRateOf(*modes.data);
        }
        state->displays.push_back(place);
    }
    return state;
}

void X11MainDisplay::handleEvent(const xcb_generic_event_t &event)
{
    _mustAsk |= event.response_type != 0;
}

std::uint64_t X11MainDisplay::eventsWereHandled()
{
    if (std::exchange(_mustAsk, false))
        if (auto state = _ask(); state && _remember(*std::move(state)))
            _observers.tell();
    return X11EventThread::kNever;
}

bool X11MainDisplay::_remember(State state)
{
    const PXLock lock(_lock);
    const State before = std::exchange(_state, std::move(state));
    return before.bounds != _state.bounds || before.refreshRate != _state.refreshRate;
}
