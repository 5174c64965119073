#pragma once

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11KeyboardLayout.h"
#include "platform/x11/X11Modifiers.h"
#include "platform/x11/X11Xkb.h"

#include "foundation/PXMutex.h"

#include <cstdint>
#include <memory>
#include <optional>

/// The keyboard as one connection sees it: keymap, modifiers, active group. It follows the server
/// by that connection's events, so each event is seen with the state that was before it.
/// The thread that handles the events; what says so, any.
class X11KeyboardState final {
public:
    /// How much of the state has to be right, at the price of being woken up.
    enum class Wants {
        Layout, ///< The group and the locks: hardly ever.
        EveryModifier, ///< With each Shift.
    };
    /// Before the connection's events are handled. It outlives this.
    X11KeyboardState(X11Connection &connection, Wants wants);

    /// Any thread. Null without a keymap.
    [[nodiscard]] std::shared_ptr<const PXKeyboardLayout> layout() const;
    /// Any thread.
    [[nodiscard]] X11Modifiers modifiers() const;

    /// Takes note of what has changed. Of every event, whatever it is about, before anything else.
    void handleEvent(const xcb_generic_event_t &event);
    /// Reads again what has changed with another keymap. To be called before anything below is
    /// used, and after the last of the events that were there. Whether there was something to read.
    bool refresh();
    /// After `refresh()` once all events that were there are handled. Whether it has to be called
    /// again as soon as those are handled that came in the meantime.
    bool settle();

    /// Null without a keymap.
    [[nodiscard]] xkb_state *state() const { return _state.get(); }
    /// `PXModifierFlags`.
    [[nodiscard]] std::uint32_t modifierFlags() const;
    /// The key's symbol on its first level, `XKB_KEY_NoSymbol` for none.
    [[nodiscard]] xkb_keysym_t firstSymbol(xkb_keycode_t key) const;
    /// The event of XKB that this is, such as `XCB_XKB_STATE_NOTIFY`; -1 for any other.
    [[nodiscard]] int typeOf(const xcb_generic_event_t &event) const;

private:
    struct Components {
        std::uint8_t baseMods = 0, latchedMods = 0, lockedMods = 0;
        std::int16_t baseGroup = 0, latchedGroup = 0;
        std::uint8_t lockedGroup = 0;
    };

    /// Read from the server, which may have been further than our events are.
    struct Ahead {
        Components components;
        unsigned sequence; ///< Events of this number and later ones come after it.
        bool wasAwaited = false;
    };

    void _select(Wants wants);
    void _read();
    std::optional<Ahead> _readComponents();
    void _apply(const Components &components);
    void _update();

    X11Connection &_connection;
    XkbContext _context;
    std::uint8_t _firstEvent = 0; ///< 0 where the server has no XKB: no event has that number.
    XkbKeymap _keymap;
    XkbState _state;
    Components _components;
    std::optional<Ahead> _ahead;
    bool _isStale = false;
    // What the layout was made from.
    bool _layoutIsStale = true;
    xkb_layout_index_t _layoutGroup = 0;
    xkb_mod_mask_t _layoutNumLock = 0;
    mutable PXMutex _lock;
    // Shared with key events that are kept longer than the keymap.
    std::shared_ptr<const X11KeyboardLayout> _layout PX_GUARDED_BY(_lock);
    X11Modifiers _modifiers PX_GUARDED_BY(_lock);
};
