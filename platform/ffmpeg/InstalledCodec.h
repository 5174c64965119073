#pragma once

#include "platform/PXCodec.h"

#include "foundation/PXError.h"

extern "C" {
#include <libavutil/error.h>
}

#include <QStringList>

#include <cstdint>
#include <vector>

namespace ffmpeg {

/// The codec of that code; else an error that names it, and what there is instead, or the encoder
/// that the installed library lacks. `kind` says what it is a codec for, "" or " for sound".
template <typename Codec>
PXExpected<Codec> findInstalledCodec(const std::vector<Codec> &codecs, std::uint32_t code,
                                     const QString &kind)
{
    using namespace Qt::StringLiterals;
    const auto fail = [](const QString &description) {
        return PXFail({u"FFmpeg"_s, AVERROR_ENCODER_NOT_FOUND, description, {}, {}});
    };
    const QString quoted = u"'%1'"_s;
    const QString wanted = quoted.arg(PXStringFromFourCharCode(code));
    QStringList names;
    for (const Codec &codec : codecs) {
        if (codec.code == code && codec.isInstalled)
            return codec;
        if (codec.code == code) {
            return fail(u"The installed FFmpeg library lacks the encoder \"%1\" for %2 (%3)"_s.arg(
                codec.encoderName, wanted, codec.name));
        }
        if (codec.isInstalled)
            names << quoted.arg(PXStringFromFourCharCode(codec.code));
    }
    return fail(u"There is no codec %1%2; there are %3"_s.arg(wanted, kind, names.join(u", "_s)));
}

} // namespace ffmpeg
