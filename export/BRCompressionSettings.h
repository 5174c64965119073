#pragma once

#include "export/BRSettingsAtoms.h"
#include "foundation/PXError.h"
#include "platform/PXCodec.h"
#include "platform/PXCompressionSession.h"

#include <QByteArray>

#include <cstdint>

/// How one picture is compressed.
struct SCSpatialSettings {
    std::uint32_t codecType = PXFourCharCode("avc1");
    std::uint32_t codec = 0; ///< One of several that know the type; 0 is any.
    std::int16_t depth = 24; ///< Bits a pixel.
    std::uint32_t spatialQuality = 768; ///< 0 to 1024.
};

/// How pictures follow each other.
struct SCTemporalSettings {
    std::uint32_t temporalQuality = 768; ///< 0 to 1024.
    std::int32_t frameRate = 60 << 16; ///< Frames a second, 16.16 fixed point.
    std::int32_t keyFrameRate = 0; ///< Frames from key frame to key frame at most; 0 is automatic.
};

/// The user's choice of video compression. Its stored form: 'sptl' and 'tprl' are the two structs
/// above, 'drat' begins with the bytes a second, 'tvlv' has a byte for 4:4:4 and one for the fast
/// preset.
struct BRCompressionSettings {
    SCSpatialSettings spatial;
    SCTemporalSettings temporal;
    std::int32_t dataRate = 0; ///< Bytes a second; 0 lets the quality decide.
    bool fullChroma = false;
    PXEncoderSpeed speed = PXEncoderSpeed::Medium;

    /// Fails (EINVAL) for bytes that are no list of atoms, and where an atom of ours is too
    /// short.
    [[nodiscard]] static PXExpected<BRCompressionSettings>
    fromAtomContainer(const QByteArray &container);
    [[nodiscard]] QByteArray atomContainer() const;

    /// What a session is to be told; codec and size are told apart from these.
    [[nodiscard]] PXCompressionSessionOptions sessionOptions() const;

    BRSettingsAtoms atoms; ///< As they were read.
};
