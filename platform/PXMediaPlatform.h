#pragma once

#include "platform/PXCodec.h"
#include "platform/PXCompressionSession.h"
#include "platform/PXMovieWriter.h"
#include "platform/PXSoundFile.h"

#include "foundation/PXError.h"

#include <QString>

#include <memory>
#include <stop_token>
#include <vector>

/// One door to everything that an export asks of the installed media library. Any thread.
class PXMediaPlatform {
public:
    virtual ~PXMediaPlatform() = default;

    /// All that we know, in the order in which a list shows them; the first is the usual choice.
    [[nodiscard]] virtual const std::vector<PXCodec> &codecs() const = 0;

    /// The codec of that code; else an error that names it, and what there is instead, or the
    /// encoder that the installed library lacks.
    [[nodiscard]] virtual PXExpected<PXCodec> installedCodec(std::uint32_t code) const = 0;

    [[nodiscard]] virtual PXExpected<std::unique_ptr<PXCompressionSession>>
    makeCompressionSession(const PXCompressionSessionOptions &options,
                           PXCompressionSession::Output output)
        = 0;

    /// Creates or empties the file at `path`.
    [[nodiscard]] virtual PXExpected<std::unique_ptr<PXMovieWriter>>
    makeMovieWriter(const QString &path) = 0;

    /// The codecs for sound that we know, as `codecs()` lists those for pictures.
    [[nodiscard]] virtual const std::vector<PXSoundCodec> &soundCodecs() const = 0;
    [[nodiscard]] virtual PXExpected<PXSoundCodec>
    installedSoundCodec(std::uint32_t code) const = 0;

    /// Creates or empties the file at `path`.
    [[nodiscard]] virtual PXExpected<std::unique_ptr<PXSoundWriter>>
    makeSoundWriter(const QString &path, PXSoundFileKind kind, const PXSoundFormat &format,
                    const PXSoundEncoding &encoding)
        = 0;
    /// Fails where the file cannot be read or has no sound track.
    [[nodiscard]] virtual PXExpected<std::unique_ptr<PXSoundExtraction>>
    makeSoundExtraction(const QString &path) = 0;
    /// For 32-bit floats.
    [[nodiscard]] virtual PXExpected<std::unique_ptr<PXSoundStretcher>>
    makeSoundStretcher(const PXSoundFormat &format) = 0;

    [[nodiscard]] virtual PXExpected<int> numberOfSoundTracks(const QString &path) = 0;
    /// Makes the first sound track of the movie `source` one more track of `target`, from its
    /// start, cut to the length of `target`'s video track where it has one; nothing is encoded
    /// again. A track without sound is not inserted. The new file, whose index comes first,
    /// replaces `target` in one step; until then it lies beside it under a hidden name, and a
    /// failure leaves `target` as it was. So does a stop, which fails with ECANCELED: it comes too
    /// late once everything is copied.
    [[nodiscard]] virtual PXExpected<void>
    insertSoundTrack(const QString &source, const QString &target, const std::stop_token &stop = {})
        = 0;
    /// Rewrites the movie as an ordinary one whose index comes first, as `insertSoundTrack` does:
    /// a movie in fragments, too, up to its last whole fragment. Nothing to do where it is so.
    [[nodiscard]] virtual PXExpected<void> flattenMovie(const QString &path,
                                                        const std::stop_token &stop = {})
        = 0;
};
