#include "platform/x11/X11PointerWatch.h"

#include "foundation/BRLog.h"

#include <xcb/xfixes.h>
#include <xcb/xinput.h>

PXExpected<std::unique_ptr<X11PointerWatch>>
X11PointerWatch::onConnection(std::unique_ptr<X11Connection> connection)
{
    std::unique_ptr<X11PointerWatch> result(new X11PointerWatch(std::move(connection)));
    X11Connection &c = *result->_connection;
    if (auto version = c.reply<xcb_xfixes_query_version_reply>(
            "xcb_xfixes_query_version", xcb_xfixes_query_version(c.get(), 5, 0));
        !version)
        return PXFail(std::move(version).error());
    if (c.hasExtension(xcb_input_id)) {
        // A client that announces less than 2.1 gets no raw events while another one grabs the
        // pointer: with an open menu the cursor would stand still.
        auto version = c.reply<xcb_input_xi_query_version_reply>(
            "xcb_input_xi_query_version", xcb_input_xi_query_version(c.get(), 2, 2));
        // A server that has only the extension's first version refuses the question.
        if (!version && PXIsDisplayLost(version.error()))
            return PXFail(std::move(version).error());
        result->_hasRawMotion = version
            && ((*version)->major_version > 2
                || ((*version)->major_version == 2 && (*version)->minor_version >= 1));
    }
    if (!result->_hasRawMotion)
        BRLog(BRLogWarning, "The X server reports no raw motion; the cursor moves in steps.");
    result->_thread.emplace("tolvane-pointer", c, static_cast<X11EventThread::Delegate &>(*result));
    return result;
}

X11PointerWatch::X11PointerWatch(std::unique_ptr<X11Connection> connection)
    : _connection(std::move(connection))
{
}

void X11PointerWatch::callOnce(std::function<void()> moved)
{
    const bool isWanted = static_cast<bool>(moved);
    // The handler is in its place before the first event can come, and no lock of ours is held
    // while this waits for a call that is under way.
    _moved.set(std::move(moved));
    const PXLock lock(_lock);
    if (isWanted != _isArmed)
        _select(isWanted);
}

void X11PointerWatch::_select(bool wanted)
{
    _isArmed = wanted;
    xcb_connection_t *c = _connection->get();
    const auto cookie = xcb_xfixes_select_cursor_input(
        c, _connection->root(), wanted ? XCB_XFIXES_CURSOR_NOTIFY_MASK_DISPLAY_CURSOR : 0);
    if (wanted)
        _armedSince = cookie.sequence;
    if (_hasRawMotion) {
        const struct {
            xcb_input_event_mask_t head;
            std::uint32_t events;
        } mask = {{XCB_INPUT_DEVICE_ALL_MASTER, 1},
                  wanted ? std::uint32_t{XCB_INPUT_XI_EVENT_MASK_RAW_MOTION} : 0};
        xcb_input_xi_select_events(c, _connection->root(), 1, &mask.head);
    }
    xcb_flush(c);
}

void X11PointerWatch::handleEvent(const xcb_generic_event_t &event)
{
    if (event.response_type == 0)
        return;
    {
        const PXLock lock(_lock);
        // Sequence numbers wrap around.
        const bool isOld = static_cast<int>(event.full_sequence - _armedSince) < 0;
        if (!_isArmed || isOld)
            return;
        _select(false);
    }
    _moved.callOnce();
}
