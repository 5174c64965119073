#pragma once

#include <QString>
#include <QStringView>

#include <cstdint>

/// Four characters as one number, the first in the top byte: how movies name their codecs.
constexpr std::uint32_t PXFourCharCode(const char (&text)[5])
{
    std::uint32_t code = 0;
    for (int i = 0; i < 4; ++i)
        code = code << 8 | static_cast<unsigned char>(text[i]);
    return code;
}

/// The number of `text`, 0 when it has not four Latin-1 characters. "raw" reads as "raw ".
inline std::uint32_t PXFourCharCodeFromString(QStringView text)
{
    if (text.isEmpty() || text.size() > 4)
        return 0;
    std::uint32_t code = 0;
    for (qsizetype i = 0; i < 4; ++i) {
        const char16_t c = i < text.size() ? text[i].unicode() : u' ';
        if (c < 0x20 || c > 0xFF)
            return 0;
        code = code << 8 | c;
    }
    return code;
}

/// The four characters, with their trailing blanks; '?' for those that nobody can read.
inline QString PXStringFromFourCharCode(std::uint32_t code)
{
    QString text(4, u' ');
    for (int i = 0; i < 4; ++i)
        text[i] = QLatin1Char(static_cast<char>(code >> (24 - 8 * i)));
    for (QChar &character : text) {
        if (!character.isPrint())
            character = u'?';
    }
    return text;
}

/// One way to encode pictures.
struct PXCodec {
    std::uint32_t code = 0; ///< As it stands in the movie, 'avc1'.
    QString name; ///< For people, "H.264".
    QString encoderName; ///< The installed library's encoder that does it, "libx264".
    bool isInstalled = false; ///< Whether the library has that encoder.
    bool isLossless = false;
    bool hasQuality = false; ///< Whether the quality is obeyed.
    bool hasBitRate = false; ///< Whether a bit rate is obeyed.
    bool hasKeyFrames = false; ///< Whether pictures may depend on the ones before.
    bool hasFullChroma = false; ///< Whether 4:4:4 can be asked for.
};
