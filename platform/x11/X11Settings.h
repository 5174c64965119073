#pragma once

#include "platform/x11/X11Connection.h"

#include <QByteArrayView>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

/// The desktop's settings, which its settings program (XSETTINGS) keeps for all others.
namespace X11Settings {

/// As that program says now; none without it, or where it has no such number.
[[nodiscard]] std::optional<std::int32_t> integer(X11Connection &connection, QByteArrayView name);
/// Out of the bytes that it hands out. None for what is damaged before the name is found.
[[nodiscard]] std::optional<std::int32_t> integer(std::span<const std::byte> settings,
                                                  QByteArrayView name);

} // namespace X11Settings
