#include "platform/x11/X11Settings.h"

#include <QtEndian>

#include <string>

namespace {

constexpr std::uint32_t kLongestSettings = 1 << 20; // In words of 32 bits.

/// Takes numbers and texts from the front of bytes that any program may have written.
class Reader final {
public:
    explicit Reader(std::span<const std::byte> bytes) : _rest(bytes) { }

    [[nodiscard]] bool isGood() const { return _isGood; }
    void setBigEndian(bool isBigEndian) { _isBigEndian = isBigEndian; }

    /// Rounded up to whole words where they are texts.
    std::span<const std::byte> take(std::size_t count)
    {
        _isGood = _isGood && count <= _rest.size();
        const auto taken = _rest.first(_isGood ? count : 0);
        _rest = _rest.subspan(taken.size());
        return taken;
    }
    std::span<const std::byte> takePadded(std::size_t count)
    {
        const auto taken = take(count);
        take((4 - count % 4) % 4);
        return taken;
    }
    template <typename Number> Number number()
    {
        const auto taken = take(sizeof(Number));
        if (!_isGood)
            return 0;
        return _isBigEndian ? qFromBigEndian<Number>(taken.data())
                            : qFromLittleEndian<Number>(taken.data());
    }

private:
    std::span<const std::byte> _rest;
    bool _isGood = true;
    bool _isBigEndian = false;
};

} // namespace

std::optional<std::int32_t> X11Settings::integer(std::span<const std::byte> settings,
                                                 QByteArrayView wanted)
{
    enum Type : std::uint8_t { Integer = 0, String = 1, Color = 2 };
    constexpr std::uint8_t mostSignificantFirst = 1;
    Reader reader(settings);
    reader.setBigEndian(reader.number<std::uint8_t>() == mostSignificantFirst);
    reader.take(3);
    (void)reader.number<std::uint32_t>(); // How often it has changed.
    const auto count = reader.number<std::uint32_t>();
    for (std::uint32_t i = 0; i < count && reader.isGood(); ++i) {
        const auto type = reader.number<std::uint8_t>();
        reader.take(1);
        const auto name = reader.takePadded(reader.number<std::uint16_t>());
        (void)reader.number<std::uint32_t>(); // When it last changed.
        const bool isWanted
            = QByteArrayView(name.data(), static_cast<qsizetype>(name.size())) == wanted;
        if (type == Integer) {
            const auto value = reader.number<std::int32_t>();
            if (isWanted && reader.isGood())
                return value;
        } else if (type == String) {
            reader.takePadded(reader.number<std::uint32_t>());
        } else if (type == Color) {
            reader.take(4 * sizeof(std::uint16_t));
        } else {
            return {}; // Nobody knows how long it is.
        }
    }
    return {};
}

std::optional<std::int32_t> X11Settings::integer(X11Connection &connection, QByteArrayView name)
{
    xcb_connection_t *c = connection.get();
    const std::string selection = "_XSETTINGS_S" + std::to_string(connection.screenNumber());
    const auto atom = [c](std::string_view text) {
        return xcb_intern_atom(c, 1, static_cast<std::uint16_t>(text.size()), text.data());
    };
    const auto selectionCookie = atom(selection);
    const auto propertyCookie = atom("_XSETTINGS_SETTINGS");
    const auto selectionAtom = connection.replyIfThere<xcb_intern_atom_reply>(selectionCookie);
    const auto propertyAtom = connection.replyIfThere<xcb_intern_atom_reply>(propertyCookie);
    if (!selectionAtom || !propertyAtom || selectionAtom->atom == XCB_NONE
        || propertyAtom->atom == XCB_NONE)
        return {}; // No such program has ever run here.
    const auto owner = connection.replyIfThere<xcb_get_selection_owner_reply>(
        xcb_get_selection_owner(c, selectionAtom->atom));
    if (!owner || owner->owner == XCB_NONE)
        return {};
    const auto property = connection.replyIfThere<xcb_get_property_reply>(xcb_get_property(
        c, 0, owner->owner, propertyAtom->atom, XCB_GET_PROPERTY_TYPE_ANY, 0, kLongestSettings));
    if (!property || property->format != 8)
        return {};
    const auto size = static_cast<std::size_t>(xcb_get_property_value_length(property.get()));
    return integer({static_cast<const std::byte *>(xcb_get_property_value(property.get())), size},
                   name);
}
