#pragma once

#include "foundation/PXGeometry.h"

#include <QColor>
#include <QFont>

#include <optional>

/// How keystrokes look: what the settings say, made fit for the screen. All lengths are pixels.
struct KPKeystrokeStyle {
    enum class Blending {
        Translucent,
        Opaque, ///< For a desktop that cannot blend.
    };

    /// As the settings are now. "keyboardEventTextSize" counts from 12 to 200; a line that is still
    /// higher than `room`, what there is for all lines, gets a smaller text. A text that would be
    /// lost on its background, or on what shines through, is opaque, and gets an outline where that
    /// is not enough.
    static KPKeystrokeStyle currentStyle(const PXSize &room, Blending blending);

    int textSize = 0; ///< Of an em.
    int maximumWidth = 0; ///< Of a line.
    QColor textColor;
    std::optional<QColor> outlineColor;
    QColor backgroundColor;

    [[nodiscard]] QFont font() const;
    /// On both sides of a line's text.
    [[nodiscard]] int padding() const { return textSize / 4; }
    /// On each side of a stroke.
    [[nodiscard]] double outlineWidth() const;
    [[nodiscard]] int cornerRadius() const;
    /// Of the thin line that sets the bezel off against a desktop of its own colour.
    [[nodiscard]] QColor borderColor() const;

    friend bool operator==(const KPKeystrokeStyle &, const KPKeystrokeStyle &) = default;
};
