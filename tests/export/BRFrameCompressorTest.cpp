#include "export/BRFrameCompressor.h"

#include "foundation/PXMainThread.h"
#include "platform/ffmpeg/FFmpegMediaPlatform.h"
#include "tests/ffmpeg/MovieProbe.h"
#include "tests/framefile/RawCapture.h"
#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QEventLoop>
#include <QTemporaryDir>

#include <sys/stat.h>

#include <functional>
#include <optional>

using namespace Qt::StringLiterals;
using testing::ElementsAre;

namespace {

struct Change {
    double timestamp;
    std::vector<PXRect> rects; ///< y up; filled with noise.
};

/// Records what a compressor says, in order, and ends the wait at its end.
class Listener final : public BRFrameCompressorDelegate, public PXAlert {
public:
    void beep(const QString &message) override
    {
        PXMainThread::post(&_mainThread, [this, message] {
            events << u"beep "_s + message;
            if (!compressor->isCompressing())
                end(events.takeLast());
        });
    }
    void frameCompressorWillBeginCompression(BRFrameCompressor &, std::uint32_t total) override
    {
        events << u"begin %1"_s.arg(total);
        if (onBegin)
            onBegin();
    }
    void frameCompressorWillEncodeFrame(BRFrameCompressor &, const QImage &picture) override
    {
        if (!picture.isNull())
            pictures.push_back(picture);
        ++framesBegun;
    }
    void frameCompressorDidCompressFrame(BRFrameCompressor &, const PXEncodedFrame &,
                                         std::uint32_t remaining) override
    {
        ++framesDone;
        lastRemaining = remaining;
    }
    void frameCompressorDidFinishCompression(BRFrameCompressor &, const QString &path) override
    {
        end(u"finished "_s + path);
    }
    void frameCompressorDidCancelCompression(BRFrameCompressor &) override { end(u"cancelled"_s); }
    void frameCompressorCompressionFailed(BRFrameCompressor &, const PXError &error) override
    {
        end(u"failed "_s + PXErrorLine(error));
    }
    QString wait()
    {
        if (events.isEmpty() || !_hasEnded)
            _loop.exec();
        _hasEnded = false;
        return events.last();
    }

    BRFrameCompressor *compressor = nullptr; ///< For `beep`.
    QStringList events;
    std::vector<QImage> pictures;
    std::function<void()> onBegin;
    int framesBegun = 0;
    int framesDone = 0;
    std::uint32_t lastRemaining = 0;

private:
    void end(const QString &event)
    {
        events << event;
        _hasEnded = true;
        _loop.quit();
    }

    QObject _mainThread;
    QEventLoop _loop;
    bool _hasEnded = false;
};

class Export : public testing::Test {
protected:
    /// Writes a capture and keeps what it shows after each frame.
    void record(const std::vector<Change> &changes,
                BRRawCompression compression = BRRawCompression::LZO,
                std::optional<std::uint32_t> announced = {})
    {
        const auto streamer
            = BRFrameStreamer::withFilePathForWriting(
                  capture(), {static_cast<float>(kWidth), static_cast<float>(kHeight)}, compression,
                  0)
                  .value();
        RandomRecording recording(11, kWidth, kHeight);
        for (const Change &change : changes) {
            ASSERT_TRUE(recording.writeFrame(*streamer, change.timestamp, change.rects));
            shown.push_back(QImage(reinterpret_cast<const uchar *>(recording.picture.data()),
                                   kWidth, kHeight, QImage::Format_RGB32)
                                .copy());
        }
        const double duration = changes.empty() ? 0 : changes.back().timestamp;
        ASSERT_TRUE(streamer->setDuration(duration));
        ASSERT_TRUE(streamer->setTotalNumberOfFrames(
            announced.value_or(static_cast<std::uint32_t>(changes.size()))));
    }
    static std::vector<Change> manyFrames(int count)
    {
        std::vector<Change> changes{{0, {{0, 0, kWidth, kHeight}}}};
        for (int i = 1; i < count; ++i)
            changes.push_back({i / 30.0, {{static_cast<float>(i % 40), 3, 11, 7}}});
        return changes;
    }
    std::unique_ptr<BRFrameCompressor> compressor(const char (&codec)[5] = "raw ")
    {
        auto made = std::make_unique<BRFrameCompressor>(capture(), true, platform, defaults);
        made->compressionOptions().codec = PXFourCharCode(codec);
        made->setScreenSelectionSize({kWidth, kHeight});
        made->setMovieExportSize({kWidth, kHeight});
        made->setDelegate(&listener);
        made->setAlert(&listener);
        listener.compressor = made.get();
        return made;
    }
    [[nodiscard]] QString capture() const { return captures.filePath(u"Capture"_s); }
    [[nodiscard]] QString output() const { return folder.filePath(u"My movie.mov"_s); }
    /// Everything in the output's folder, hidden files too.
    [[nodiscard]] QStringList files() const { return everythingIn(folder.path()); }
    static constexpr int kWidth = 61;
    static constexpr int kHeight = 45;
    QTemporaryDir captures;
    QTemporaryDir folder;
    FFmpegMediaPlatform platform;
    PXDefaults defaults{captures.filePath(u"defaults.plist"_s)};
    Listener listener;
    std::vector<QImage> shown;
};

} // namespace

TEST_F(Export, ShowsEachFrameOfTheCaptureAtItsTime)
{
    for (const BRRawCompression compression : {BRRawCompression::LZO, BRRawCompression::RLE}) {
        shown.clear();
        record({{0, {{0, 0, kWidth, kHeight}}},
                {0.1, {{5, 3, 20, 10}, {40, 30, 21, 15}}},
                {0.1501, {}},
                {2, {{60, 44, 1, 1}}},
                {2.5, {{0, 0, 7, 45}, {3, 2, 9, 9}}}},
               compression);
        const auto exporter = compressor();
        exporter->setSendsPictures(true);
        ASSERT_TRUE(exporter->startCompression(output()));
        EXPECT_EQ(listener.wait(), u"finished "_s + output());
        EXPECT_EQ(listener.lastRemaining, 0U);
        EXPECT_EQ(exporter->progress().framesDone, 5U);
        EXPECT_FALSE(exporter->firstWriteError());
        ASSERT_FALSE(listener.pictures.empty());
        EXPECT_EQ(listener.pictures.front(), shown.front());

        const MovieProbe movie = MovieProbe::of(output());
        EXPECT_THAT(movie.times, ElementsAre(0, 300, 450, 6000, 7500));
        EXPECT_THAT(movie.durations, ElementsAre(300, 150, 5550, 1500, 1500));
        EXPECT_EQ(MovieProbe::decode(output()), shown);
        EXPECT_THAT(files(), ElementsAre(u"My movie.mov"_s));
    }
    EXPECT_EQ(listener.framesBegun, 10);
    EXPECT_EQ(listener.framesDone, 10);
}

TEST_F(Export, FramesOnOneTickKeepTheLastPicture)
{
    record({{0, {{0, 0, kWidth, kHeight}}},
            {0.20001, {{1, 1, 9, 9}}},
            {0.20002, {{20, 1, 9, 9}}},
            {0.20003, {{30, 20, 9, 9}}},
            {0.3, {}}});
    const auto exporter = compressor();
    ASSERT_TRUE(exporter->startCompression(output()));
    listener.wait();
    EXPECT_THAT(MovieProbe::of(output()).durations, ElementsAre(600, 300, 300));
    EXPECT_THAT(MovieProbe::decode(output()), ElementsAre(shown[0], shown[3], shown[4]));
    EXPECT_EQ(listener.framesDone, 5);
    EXPECT_EQ(exporter->progress().framesDone, 5U);
}

TEST_F(Export, ASingleFrameLastsAFrameOfTheCaptureRate)
{
    record({{0, {{0, 0, kWidth, kHeight}}}});
    const auto exporter = compressor("avc1");
    exporter->setCaptureRate(15);
    ASSERT_TRUE(exporter->startCompression(output()));
    listener.wait();
    EXPECT_THAT(MovieProbe::of(output()).durations, ElementsAre(200));
}

TEST_F(Export, CancelledOrDestroyedLeavesEverythingAsItWas)
{
    record(manyFrames(200));
    writeFile(output(), "the movie of yesterday");
    auto exporter = compressor("png ");
    ASSERT_TRUE(exporter->startCompression(output()));
    exporter->cancelCompression();
    EXPECT_EQ(listener.wait(), u"cancelled"_s);
    EXPECT_EQ(contentsOf(output()), "the movie of yesterday");
    EXPECT_THAT(files(), ElementsAre(u"My movie.mov"_s));

    const int eventsBefore = static_cast<int>(listener.events.size());
    ASSERT_TRUE(exporter->startCompression(output()));
    EXPECT_THROW((void)exporter->startCompression(output()), std::logic_error);
    exporter.reset();
    EXPECT_EQ(listener.events.size(), eventsBefore);
    EXPECT_EQ(contentsOf(output()), "the movie of yesterday");
    EXPECT_THAT(files(), ElementsAre(u"My movie.mov"_s));
}

TEST_F(Export, KeepsClearOfOtherFiles)
{
    record(manyFrames(3));
    writeFile(folder.filePath(u"Tolvane Temp.mov"_s), "somebody else's");
    const auto exporter = compressor();
    ASSERT_TRUE(exporter->startCompression(output()));
    EXPECT_TRUE(QFile::exists(folder.filePath(u"Tolvane Temp 2.mov"_s)));
    // A folder where the movie should go: it goes beside it.
    ASSERT_TRUE(QDir(folder.path()).mkdir(u"My movie.mov"_s));
    EXPECT_EQ(listener.wait(), u"finished "_s + folder.filePath(u"My movie 2.mov"_s));
    EXPECT_EQ(contentsOf(folder.filePath(u"Tolvane Temp.mov"_s)), "somebody else's");
}

TEST_F(Export, TheTempMovieIsNeverTheOutput)
{
    record(manyFrames(3));
    const QString path = folder.filePath(u"Tolvane Temp.mov"_s);
    for (const char *name : {"free", "replaced"}) {
        const auto exporter = compressor();
        ASSERT_TRUE(exporter->startCompression(path)) << name;
        EXPECT_FALSE(QFile::exists(path)) << name;
        EXPECT_EQ(listener.wait(), u"finished "_s + path) << name;
        EXPECT_EQ(MovieProbe::decode(path), shown) << name;
        EXPECT_THAT(files(), ElementsAre(u"Tolvane Temp.mov"_s)) << name;
    }
}

TEST_F(Export, EndsOnceWhateverFails)
{
    const QString refused = u"beep ICMCompressionSessionEncodeFrame() failed with error 22"_s;
    const struct {
        const char *name;
        std::vector<Change> changes;
        bool isAborted;
        QStringList events;
        std::uint32_t missing;
    } cases[] = {
        {"every frame refused: later than any sample can be",
         {{1e9, {}}, {2e9, {}}},
         false,
         {u"begin 2"_s, refused, refused,
          u"failed Tolvane could not compress the movie. None of its 2 frames could be encoded."_s},
         2},
        {"aborted", manyFrames(500), true, {u"begin 500"_s, u"cancelled"_s}, 0},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.name);
        writeFile(output(), "the movie of yesterday");
        record(row.changes);
        if (row.isAborted)
            listener.onBegin = [this] { listener.compressor->cancelCompression(); };
        const auto exporter = compressor();
        exporter->setMovieExportSize({1600, 1200});
        ASSERT_TRUE(exporter->startCompression(output()));
        listener.wait();
        EXPECT_EQ(listener.events, row.events);
        EXPECT_FALSE(exporter->isCompressing());
        EXPECT_EQ(exporter->missingFrames(), row.missing);
        EXPECT_EQ(contentsOf(output()), "the movie of yesterday");
        EXPECT_THAT(files(), ElementsAre(u"My movie.mov"_s));
        listener.events.clear();
    }
}

TEST_F(Export, AHeaderThatClaimsTooMuchReservesNothing)
{
    record(manyFrames(3), BRRawCompression::LZO, 0xFFFFFFFF);
    const auto exporter = compressor();
    ASSERT_TRUE(exporter->startCompression(output()));
    EXPECT_EQ(listener.wait(), u"finished "_s + output());
    EXPECT_LT(QFileInfo(output()).size(), 1'000'000);
    EXPECT_EQ(MovieProbe::decode(output()), shown);
}

TEST_F(Export, APipeInTheWayIsLeftAlone)
{
    record(manyFrames(3));
    ASSERT_EQ(mkfifo(QFile::encodeName(output()).constData(), 0600), 0);
    EXPECT_FALSE(compressor()->startCompression(output()));
    struct stat status = {};
    ASSERT_EQ(lstat(QFile::encodeName(output()).constData(), &status), 0);
    EXPECT_TRUE(S_ISFIFO(status.st_mode));
}

TEST_F(Export, AMoveThatFailsLosesTheMovieAndSaysSo)
{
    record(manyFrames(3));
    const auto exporter = compressor();
    ASSERT_TRUE(exporter->startCompression(output()));
    listener.onBegin = [&] { QDir(folder.path()).removeRecursively(); };
    EXPECT_EQ(
        listener.wait(),
        u"failed Tolvane could not save \"My movie.mov\". The movie could not be saved into the \"%1\" folder because Tolvane does not have permission."_s
            .arg(QFileInfo(folder.path()).fileName()));
}

TEST_F(Export, SettingsAreSharedThroughTheDefaults)
{
    BRCompressionSettings settings;
    settings.spatial.codecType = PXFourCharCode("apch");
    settings.spatial.spatialQuality = 100;
    ASSERT_TRUE(compressor()->saveCompressionSettings(settings));
    BRFrameCompressor other(capture(), true, platform, defaults);
    EXPECT_EQ(other.compressionOptions().codec, PXFourCharCode("apch"));
    EXPECT_EQ(other.compressionOptions().options->quality, 100);
    ASSERT_TRUE(defaults.setValue(u"CompressionDialogSettings"_s, QByteArray("garbage")));
    other.adoptUserCompressionOptions();
    EXPECT_EQ(other.compressionOptions().codec, PXFourCharCode("avc1"));
}
