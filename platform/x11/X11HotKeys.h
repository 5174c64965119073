#pragma once

#include "platform/PXKeyboard.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Modifiers.h"

#include "foundation/PXMutex.h"
#include "foundation/PXObservation.h"

#include <xcb/xcb.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

/// Key combinations that one connection takes from everybody else. The server compares the whole
/// state of the modifiers, so that each is taken once for every state of the locks.
class X11HotKeys final {
public:
    /// The connection outlives it; its events go through `handleEvent()` on one thread. A held key
    /// is told by presses alone from now on.
    X11HotKeys(X11Connection &connection, const X11Modifiers &modifiers);

    /// See `PXKeyboard::registerHotKey()`. Any thread.
    PXExpected<std::unique_ptr<PXHotKey>> add(std::uint16_t keyCode, std::uint32_t flags,
                                              std::function<void(double timestamp)> pressed);

    /// Takes all combinations again if the modifiers are other ones now.
    void setModifiers(const X11Modifiers &modifiers);
    void handleEvent(const xcb_generic_event_t &event);

private:
    struct Entry {
        xcb_keycode_t key;
        std::uint32_t flags;
        std::function<void(double timestamp)> pressed;
        PXObservationGate gate;
        std::vector<std::uint16_t> states; ///< In which the key is ours. Guarded by `_lock`.
    };
    class HotKey;

    [[nodiscard]] std::vector<std::uint16_t> _statesFor(std::uint32_t flags) const
        PX_REQUIRES(_lock);
    PXExpected<void> _grab(Entry &entry) PX_REQUIRES(_lock);
    void _giveBack(xcb_keycode_t key, std::span<const std::uint16_t> states);
    void _remove(const std::shared_ptr<Entry> &entry);
    void _keyWentDown(const xcb_key_press_event_t &press);
    void _keyWentUp(xcb_keycode_t key);
    [[nodiscard]] std::shared_ptr<Entry> _entryFor(xcb_keycode_t key, std::uint16_t state) const
        PX_REQUIRES(_lock);

    X11Connection &_connection;
    PXMutex _lock;
    X11Modifiers _modifiers PX_GUARDED_BY(_lock);
    // Shared with a call that is under way.
    std::vector<std::shared_ptr<Entry>> _entries PX_GUARDED_BY(_lock);
    // The event thread's. While the first of these keys is held the server sends us all others.
    std::vector<xcb_keycode_t> _down;
};
