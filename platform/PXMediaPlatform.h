#pragma once

#include "platform/PXCodec.h"
#include "platform/PXCompressionSession.h"
#include "platform/PXMovieWriter.h"

#include "foundation/PXError.h"

#include <QString>

#include <memory>
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
};
