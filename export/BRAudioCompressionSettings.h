#pragma once

#include "export/BRSettingsAtoms.h"
#include "foundation/PXError.h"
#include "platform/PXCodec.h"
#include "platform/PXSoundFile.h"

#include <QByteArray>

#include <cstdint>

/// The user's choice of sound compression. Its stored form is the atom 'audi': the fields in this
/// order, 32 bits each.
struct BRAudioCompressionSettings {
    std::uint32_t codec = PXFourCharCode("aac "); ///< Four-character code.
    std::uint32_t sampleRate = 0; ///< Frames a second; 0 is the recording's.
    std::uint32_t channels = 0; ///< 0 is the recording's.
    std::uint32_t bitRate = 0; ///< Bits a second; 0 lets the quality decide.
    std::uint32_t quality = 768; ///< 0 to 1024.

    /// Fails (EINVAL) for bytes that are no list of atoms, and where ours is too short.
    [[nodiscard]] static PXExpected<BRAudioCompressionSettings>
    fromAtomContainer(const QByteArray &container);
    [[nodiscard]] QByteArray atomContainer() const;

    /// What a writer is to be told. Values that no sound has count as none.
    [[nodiscard]] PXSoundEncoding encoding() const;

    BRSettingsAtoms atoms; ///< As they were read.
};
