#pragma once

#include "platform/PXInputMonitor.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11KeyRepeat.h"
#include "platform/x11/X11KeyboardState.h"
#include "platform/x11/X11TypedText.h"

#include <xcb/xcb.h>

#include <cstdint>
#include <optional>
#include <vector>

/// Makes key events of what keyboards report: the master keyboard's view, to which a key is down
/// while any keyboard holds it. One thread.
class X11InputKeys final {
public:
    /// Both outlive it.
    X11InputKeys(X11Connection &connection, PXInputMonitorDelegate &delegate);

    /// Of one keyboard, `source`.
    void keyWentDown(std::uint32_t key, std::uint16_t source, xcb_timestamp_t time);
    void keyWentUp(std::uint32_t key, std::uint16_t source, xcb_timestamp_t time);
    /// What keymap and modifiers do. Every event, those above before they are told.
    void handleEvent(const xcb_generic_event_t &event);
    /// As `X11EventThread::Delegate` has it.
    std::uint64_t eventsWereHandled();

private:
    struct Held {
        xcb_keycode_t key;
        std::uint16_t source;
        bool isModifier;
    };
    /// A modifier of which the server has not yet said what it changes.
    struct Pending {
        PXKeyEvent event;
        xcb_keycode_t key;
        std::uint8_t type; ///< XCB_KEY_PRESS or XCB_KEY_RELEASE.
        bool wasAwaited = false;
    };

    [[nodiscard]] const Held *_held(xcb_keycode_t key) const;
    [[nodiscard]] PXKeyEvent _event(PXKeyEventType type, xcb_keycode_t key, double timestamp) const;
    void _tellDown(xcb_keycode_t key, double timestamp, bool isARepeat);
    void _tellModifier();

    X11Connection &_connection;
    PXInputMonitorDelegate &_delegate;
    X11KeyboardState _keyboard;
    X11KeyRepeat _repeat;
    X11TypedText _text;
    std::vector<Held> _down;
    std::optional<Pending> _pending;
    double _serversLead = 0; ///< Of its clock over ours, at the last press; seconds.
};
