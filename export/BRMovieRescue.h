#pragma once

#include "capture/framefile/BRFrameStreamer.h"
#include "foundation/PXError.h"
#include "platform/PXMediaPlatform.h"

#include <QString>
#include <QVariantMap>

#include <cstdint>
#include <stop_token>

/// What became of a captured movie's folder.
struct BRRescuedMovie {
    enum class Outcome {
        Untouched, ///< There was nothing to repair.
        BeingWritten, ///< It is being recorded, or repaired by another program.
        Rescued,
        Empty, ///< It holds no whole frame. Left as it is.
    };
    Outcome outcome = Outcome::Untouched;
    std::uint32_t frames = 0;
    double duration = 0; ///< Seconds.
    std::uint64_t bytesCut = 0; ///< Of the frame that was being written.
};

/// Makes recordings whose program died ordinary ones, in place. Everything but the frame that was
/// being written, and the last second of sound, is kept; a file that makes no sense is put beside
/// its replacement. A rescue that is itself interrupted can be begun again. Any thread, one a
/// folder.
namespace BRMovieRescue {

/// Whether the folder looks like it: frames without a count, an "Info.plist" that is missing or
/// cannot be read, a sound file that was not finished. Quick, and changes nothing. `info` and
/// `header` are what was read of "Info.plist" and of the frame file.
bool isNeeded(const QString &movieFolder, const PXExpected<QVariantMap> &info,
              const PXExpected<BRFrameFileHeader> &header);

/// Repairs the frame file, the sound and "Info.plist", in this order, and marks the movie there
/// with `kBRWasRescuedKey` where it was interrupted. Sound that cannot be read stays, aside. `stop`
/// ends it soon (ECANCELED).
PXExpected<BRRescuedMovie> rescue(const QString &movieFolder, PXMediaPlatform &media,
                                  const std::stop_token &stop = {});

} // namespace BRMovieRescue

/// In "Info.plist": true once the movie was rescued.
extern const QString kBRWasRescuedKey;
