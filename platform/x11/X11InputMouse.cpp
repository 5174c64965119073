#include "platform/x11/X11InputMouse.h"

#include "foundation/PXClock.h"

#include <xcb/xinput.h>

#include <algorithm>
#include <utility>

namespace {
/// Nanoseconds between two drags: nobody sees more than a display shows, and each costs a question.
constexpr std::uint64_t kPause = 16'000'000;
} // namespace

X11InputMouse::X11InputMouse(X11Connection &connection, PXInputMonitorDelegate &delegate)
    : _connection(connection), _delegate(delegate)
{
}

void X11InputMouse::watch()
{
    _select();
    readMapping(); // When that returns, the server reports.
}

/// What is selected for one connection and device replaces what was: keys are here, too.
void X11InputMouse::_select()
{
    constexpr std::uint32_t always = XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS
        | XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE | XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_PRESS
        | XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_RELEASE;
    const bool waitsForMotion = !_held.empty() && _pauseEnds == X11EventThread::kNever;
    const std::uint32_t motion = waitsForMotion ? XCB_INPUT_XI_EVENT_MASK_RAW_MOTION : 0;
    const struct {
        xcb_input_event_mask_t head;
        std::uint32_t events;
    } mask = {{XCB_INPUT_DEVICE_ALL_MASTER, 1}, always | motion};
    xcb_input_xi_select_events(_connection.get(), _connection.root(), 1, &mask.head);
}

void X11InputMouse::readMapping()
{
    const auto reply = _connection.reply<xcb_get_pointer_mapping_reply>(
        "xcb_get_pointer_mapping", xcb_get_pointer_mapping(_connection.get()));
    if (!reply)
        return;
    const std::uint8_t *first = xcb_get_pointer_mapping_map(reply->get());
    _mapping.assign(first, first + xcb_get_pointer_mapping_map_length(reply->get()));
}

std::optional<PXMouseButton> X11InputMouse::_meaningOf(std::uint32_t button) const
{
    if (button == 0 || button > _mapping.size())
        return {};
    switch (_mapping[button - 1]) {
    case XCB_BUTTON_INDEX_1:
        return PXMouseButton::Primary;
    case XCB_BUTTON_INDEX_3:
        return PXMouseButton::Secondary;
    default:
        return {};
    }
}

void X11InputMouse::buttonWentDown(std::uint32_t number, std::uint16_t source)
{
    const auto button = _meaningOf(number);
    const bool isKnown = std::any_of(_held.begin(), _held.end(), [&](const Held &held) {
        return held.number == number && held.source == source;
    });
    if (!button || isKnown) // What injects events may press a button twice.
        return;
    const bool isNews = !_isHeld(*button);
    _held.push_back({number, source, *button});
    if (_held.size() == 1)
        _select();
    if (isNews)
        _tell(PXMouseEventType::Down, *button, _place());
}

void X11InputMouse::buttonWentUp(std::uint32_t number, std::uint16_t source)
{
    // As it was arranged when it went down, and nothing for one that nobody saw go down.
    const auto found = std::find_if(_held.begin(), _held.end(), [&](const Held &held) {
        return held.number == number && held.source == source;
    });
    if (found == _held.end())
        return;
    const PXMouseButton button = found->button;
    _held.erase(found);
    if (_held.empty()) {
        _pauseEnds = X11EventThread::kNever;
        _select();
    }
    if (!_isHeld(button))
        _tell(PXMouseEventType::Up, button, _place());
}

std::uint64_t X11InputMouse::eventsWereHandled()
{
    const bool hasMoved = std::exchange(_hasMoved, false);
    if (_held.empty())
        return X11EventThread::kNever;
    const std::uint64_t now = PXCurrentHostTime();
    const bool isPause = _pauseEnds != X11EventThread::kNever;
    if (isPause && now < _pauseEnds)
        return _pauseEnds;
    if (isPause) {
        _pauseEnds = X11EventThread::kNever;
        _select(); // First, then look: what moves in between is reported.
    } else if (!hasMoved) {
        return X11EventThread::kNever;
    }
    const auto place = _place();
    if (!place || *place == _last)
        return X11EventThread::kNever;
    const PXMouseButton button
        = _isHeld(PXMouseButton::Primary) ? PXMouseButton::Primary : PXMouseButton::Secondary;
    _tell(PXMouseEventType::Dragged, button, *place);
    _pauseEnds = now + kPause;
    _select();
    return _pauseEnds;
}

bool X11InputMouse::_isHeld(PXMouseButton button) const
{
    return std::any_of(_held.begin(), _held.end(),
                       [button](const Held &held) { return held.button == button; });
}

/// Raw events say how far a device went, not where the pointer is.
std::optional<X11InputMouse::Place> X11InputMouse::_place()
{
    const auto reply = _connection.reply<xcb_query_pointer_reply>(
        "xcb_query_pointer", xcb_query_pointer(_connection.get(), _connection.root()));
    if (!reply)
        return {};
    return Place{(*reply)->root_x, (*reply)->root_y};
}

void X11InputMouse::_tell(PXMouseEventType type, PXMouseButton button, std::optional<Place> place)
{
    if (!place)
        return; // The server has gone.
    _last = *place;
    _delegate.inputMonitorMouseEvent({type, button, place->x, place->y});
}
