#pragma once

#include "audio/BRAudioRecorder.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXPropertyList.h"
#include "platform/ffmpeg/FFmpegMediaPlatform.h"
#include "tests/ffmpeg/SoundMaker.h"
#include "tests/framefile/RawCapture.h"
#include "tests/support/Files.h"

#include <QDateTime>
#include <QDir>
#include <QTemporaryDir>
#include <QVariantMap>

#include <algorithm>
#include <vector>

using namespace Qt::StringLiterals;

/// A movies folder with recordings in it that came to their end, or did not.
class LibraryFolder {
public:
    static constexpr int kFrames = 5;

    /// A temporary one, or one that goes with the test's own folder.
    explicit LibraryFolder(const QString &path = {}) : movies(path.isEmpty() ? _own.path() : path)
    {
    }

    enum class End { Stopped, Killed };

    [[nodiscard]] QString folderOf(const QString &uuid) const { return movies.filePath(uuid); }
    [[nodiscard]] QString fileOf(const QString &uuid, const QString &name) const
    {
        return QDir(folderOf(uuid)).filePath(name);
    }
    /// Frames at 0, 0.5, … seconds; of one that was killed half a frame follows.
    void record(const QString &uuid, End end, int frames = kFrames) const
    {
        std::vector<double> times(static_cast<std::size_t>(frames));
        std::generate(times.begin(), times.end(), [i = 0]() mutable { return i++ / 2.0; });
        recordAt(uuid, end, times);
    }
    void recordAt(const QString &uuid, End end, const std::vector<double> &times) const
    {
        QDir().mkpath(folderOf(uuid));
        const QString path = fileOf(uuid, kBRCaptureVideoDataName);
        auto streamer
            = BRFrameStreamer::withFilePathForWriting(path, {40, 30}, BRRawCompression::LZO, 0)
                  .value();
        RandomRecording recording(3, 40, 30);
        for (const double time : times)
            ASSERT_TRUE(recording.writeFrame(*streamer, time));
        if (end == End::Stopped) {
            ASSERT_TRUE(streamer->setDuration(times.back()));
            ASSERT_TRUE(streamer->setTotalNumberOfFrames(static_cast<std::uint32_t>(times.size())));
        }
        streamer.reset();
        if (end == End::Killed) {
            QFile file(path);
            ASSERT_TRUE(file.open(QIODevice::Append));
            file.write("\1\0\0\0half a frame", 16);
        }
    }
    void writeInfo(const QString &uuid, const QVariantMap &more = {}) const
    {
        QVariantMap info{
            {u"uuid"_s, uuid},         {u"captureRate"_s, 30}, {u"width"_s, 40},
            {u"height"_s, 30},         {u"hasVideo"_s, true},  {u"hasAudio"_s, false},
            {u"isUpsideDown"_s, true}, {u"date"_s, kDate},
        };
        info.insert(more);
        ASSERT_TRUE(PXPropertyList::write(info, fileOf(uuid, kBRMovieInfoName),
                                          PXPropertyList::Format::XML));
    }
    [[nodiscard]] QVariantMap infoOf(const QString &uuid) const
    {
        return PXPropertyList::read(fileOf(uuid, kBRMovieInfoName)).value_or(QVariantMap());
    }
    /// Two seconds of sound in fragments, as a recorder leaves it that was killed.
    void recordSound(const QString &uuid, const QString &name) const
    {
        constexpr PXSoundFormat kFormat{48000, 1, 4, PXSampleType::Float32};
        auto writer = media
                          .makeSoundWriter(fileOf(uuid, name), PXSoundFileKind::Fragmented, kFormat,
                                           {.codec = PXFourCharCode("sowt")})
                          .value();
        const auto samples = chirp(48000, 1, 96000);
        ASSERT_TRUE(writer->write(std::as_bytes(std::span(samples))));
    }
    [[nodiscard]] QStringList filesOf(const QString &uuid) const
    {
        return everythingIn(folderOf(uuid));
    }

    const QDateTime kDate = QDateTime::fromString(u"2026-11-21T12:00:00Z"_s, Qt::ISODate);

private:
    QTemporaryDir _own;

public:
    const QDir movies;
    mutable FFmpegMediaPlatform media;
    PXDefaults defaults{_own.filePath(u"defaults.plist"_s)};
};
