#pragma once

#include "capture/BRScreenRecordingOptions.h"
#include "foundation/PXError.h"

#include <QDateTime>
#include <QString>
#include <QVariantMap>

class PXDefaults;

/// Between the settings and one recording. Main thread.
namespace BRSessionOptions {

/// Fills `options` from the settings. What the settings leave open (the rectangle outside camera
/// mode 0, the size in an unknown mode, the compression for an unknown "optimizeFor") keeps the
/// value of the recording before: the session hands in the same options each time.
void fill(BRScreenRecordingOptions &options, const PXDefaults &defaults);

/// What a movie's folder says about it from its first second on: "uuid", "captureRate", "scale"
/// (percent), "width", "height", "date", "hasVideo", "hasAudio", "isUpsideDown". Rate, scale and
/// sizes are whole numbers, cut toward zero.
QVariantMap movieInfo(const QString &uuid, const BRScreenRecordingOptions &options,
                      const PXDefaults &defaults, bool hasAudio, const QDateTime &date);

/// Writes it as "Info.plist" into the movie's folder, which must exist. Atomic; XML.
PXExpected<void> writeMovieInfo(const QVariantMap &info, const QString &movieFolder);

} // namespace BRSessionOptions
