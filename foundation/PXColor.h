#pragma once

#include <QByteArray>

#include <array>
#include <optional>

/// The numbers are those of the stored form.
enum class PXColorSpace : quint8 {
    CalibratedRGB = 1,
    DeviceRGB = 2,
    CalibratedWhite = 3,
    DeviceWhite = 4,
};

/// A colour of the settings. Components are 0…1, alpha is not multiplied in. Nothing here tells
/// calibrated from device colours when painting; a stored colour keeps its space.
struct PXColor {
    PXColorSpace space = PXColorSpace::CalibratedWhite;
    /// Red, green, blue, alpha; or white, alpha, 0, 0.
    std::array<float, 4> components = {1, 1, 0, 0};

    static PXColor calibratedWhite(float white, float alpha)
    {
        return {PXColorSpace::CalibratedWhite, {white, alpha, 0, 0}};
    }
    static PXColor calibratedRGB(float red, float green, float blue, float alpha)
    {
        return {PXColorSpace::CalibratedRGB, {red, green, blue, alpha}};
    }

    [[nodiscard]] bool isWhite() const
    {
        return space == PXColorSpace::CalibratedWhite || space == PXColorSpace::DeviceWhite;
    }
    [[nodiscard]] float red() const { return components[0]; }
    [[nodiscard]] float green() const { return components[isWhite() ? 0 : 1]; }
    [[nodiscard]] float blue() const { return components[isWhite() ? 0 : 2]; }
    [[nodiscard]] float alpha() const { return components[isWhite() ? 1 : 3]; }

    /// The bytes that the settings hold: a "streamtyped" archive, little-endian, of one object of
    /// class NSColor (version 0, from NSObject, version 0) with its space and its components.
    /// A whole number from -110 to 127 is one byte, any other 0x83 and an IEEE single.
    [[nodiscard]] QByteArray archivedData() const;

    /// None for bytes that are anything else. Integers may also be 0x81 and 16 bits or 0x82 and 32
    /// bits; components outside 0…1 are moved to its ends.
    static std::optional<PXColor> fromArchivedData(const QByteArray &data);

    friend bool operator==(const PXColor &, const PXColor &) = default;
};
