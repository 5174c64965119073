#pragma once

#include "capture/framefile/BRFrameStreamer.h"
#include "foundation/PXError.h"

#include <QString>

#include <memory>

/// Where a raw capture lies and what its folder says about it. A damaged "Info.plist" is warned of
/// in the log, and counts as none.
struct BRCapturePath {
    QString videoDataPath;
    QVariantMap info; ///< The folder's "Info.plist"; empty where there is none.

    /// `text` is a captured-movie folder or a raw frame file, or a movie of the library as
    /// `movieFolder` has it.
    [[nodiscard]] static PXExpected<BRCapturePath> withPath(const QString &text);
    /// The folder of a movie: a path, or, of a movie in the library, its UUID, the beginning of
    /// that, or its name. Fails where there is none, and where several are meant.
    [[nodiscard]] static PXExpected<QString> movieFolder(const QString &text);

    [[nodiscard]] PXExpected<std::unique_ptr<BRFrameStreamer>> open() const;
};

/// Whether the header counts more frames than there are whole ones, or bytes of an incomplete one
/// follow. Moves the streamer's position.
bool BRIsCutShort(BRFrameStreamer &streamer);
/// "tolvane: warning: "path" was cut short: consequence", in place of what the log says of it.
void BRWarnOfCutShort(const QString &path, const QString &consequence);
