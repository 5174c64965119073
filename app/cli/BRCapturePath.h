#pragma once

#include "capture/framefile/BRFrameStreamer.h"
#include "foundation/PXError.h"

#include <QString>

#include <memory>

/// Where a raw capture lies and what its folder says about it.
struct BRCapturePath {
    QString videoDataPath;
    QVariantMap info; ///< The folder's "Info.plist"; empty where there is none.

    /// `path` is a captured-movie folder or a raw frame file.
    [[nodiscard]] static PXExpected<BRCapturePath> withPath(const QString &path);

    [[nodiscard]] PXExpected<std::unique_ptr<BRFrameStreamer>> open() const;
};
