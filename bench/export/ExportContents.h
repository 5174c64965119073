#pragma once

#include "foundation/PXGeometry.h"

#include <QImage>
#include <QString>

#include <span>

inline constexpr int kBenchWidth = 1920;
inline constexpr int kBenchHeight = 1080;

/// What is exported: pictures that are painted, not recorded, so that each run has the same.
struct ExportContent {
    const char *name;
    int frames;
    double secondsPerFrame;
    /// Paints a frame over the one before; answers what changed (y down).
    PXPixelRect (*paint)(QImage &canvas, int frame);

    static std::span<const ExportContent> all();
    /// The one that changes a part of the screen, as most recordings do.
    static const ExportContent &animation() { return all().front(); }

    /// Writes `lengths` times the content's frames as a capture and, if `raw` is a path, as raw
    /// pictures one after the other.
    void record(int lengths, const QString &capture, const QString &raw = {}) const;
};
