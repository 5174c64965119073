#pragma once

#include "platform/x11/X11Xkb.h"

#include <QString>

/// What keys type, one after the other, with dead keys and compose sequences as the user's
/// language has them. Texts of input methods are not seen here. One thread.
class X11TypedText final {
public:
    /// The language is that of LC_ALL, LC_CTYPE or LANG, the first that is set.
    X11TypedText();

    /// What the key types; empty while a sequence is under way and when it leads nowhere, and for
    /// control characters. `state` is the keyboard's before the key.
    QString keyWentDown(xkb_state &state, xkb_keycode_t key);

private:
    XkbContext _context;
    XkbComposeTable _table;
    XkbComposeState _compose; ///< Null where the language has no sequences.
};
