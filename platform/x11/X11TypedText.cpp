#include "platform/x11/X11TypedText.h"

#include <QByteArray>

#include <algorithm>
#include <array>

namespace {

QByteArray language()
{
    for (const char *name : {"LC_ALL", "LC_CTYPE", "LANG"})
        if (QByteArray value = qgetenv(name); !value.isEmpty())
            return value;
    return "C";
}

/// Any of xkbcommon's functions that write UTF-8 and tell its length.
template <typename Read> QString textOf(Read read)
{
    std::array<char, 64> buffer = {};
    const int size = read(buffer.data(), buffer.size());
    if (size <= 0)
        return {};
    // Room for the end that C puts there, which is none of the text.
    QByteArray text(size + 1, '\0');
    read(text.data(), static_cast<std::size_t>(text.size()));
    text.chop(1);
    const QString result = QString::fromUtf8(text);
    const bool isControl = result.size() == 1 && result[0].category() == QChar::Other_Control;
    return isControl ? QString() : result;
}

} // namespace

X11TypedText::X11TypedText() : _context(xkb_context_new(XKB_CONTEXT_NO_FLAGS))
{
    if (_context)
        _table.reset(xkb_compose_table_new_from_locale(_context.get(), language().constData(),
                                                       XKB_COMPOSE_COMPILE_NO_FLAGS));
    if (_table)
        _compose.reset(xkb_compose_state_new(_table.get(), XKB_COMPOSE_STATE_NO_FLAGS));
}

QString X11TypedText::keyWentDown(xkb_state &state, xkb_keycode_t key)
{
    const auto plain = [&] {
        return textOf([&](char *text, std::size_t size) {
            return xkb_state_key_get_utf8(&state, key, text, size);
        });
    };
    if (!_compose
        || xkb_compose_state_feed(_compose.get(), xkb_state_key_get_one_sym(&state, key))
            == XKB_COMPOSE_FEED_IGNORED)
        return plain();
    switch (xkb_compose_state_get_status(_compose.get())) {
    case XKB_COMPOSE_NOTHING:
        return plain();
    case XKB_COMPOSE_COMPOSING:
        return {};
    case XKB_COMPOSE_CANCELLED:
        xkb_compose_state_reset(_compose.get());
        return {};
    case XKB_COMPOSE_COMPOSED:
        break;
    }
    QString composed = textOf([&](char *text, std::size_t size) {
        return xkb_compose_state_get_utf8(_compose.get(), text, size);
    });
    xkb_compose_state_reset(_compose.get());
    return composed;
}
