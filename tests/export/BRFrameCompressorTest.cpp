#include "export/BRFrameCompressor.h"

#include "capture/framefile/BRFrameStreamer.h"
#include "foundation/PXMainThread.h"
#include "platform/ffmpeg/FFmpegMediaPlatform.h"
#include "tests/ffmpeg/MovieProbe.h"
#include "tests/support/FileSizeLimit.h"
#include "tests/support/Sanitizers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QTemporaryDir>

#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <optional>
#include <random>
#include <stdexcept>

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

/// No more memory than `bytes` beyond what is in use, for as long as this lives.
class ShortMemory final {
public:
    explicit ShortMemory(rlim_t bytes)
    {
        getrlimit(RLIMIT_AS, &_before);
        QFile sizes(u"/proc/self/statm"_s);
        if (!sizes.open(QIODevice::ReadOnly))
            throw std::runtime_error("no /proc/self/statm");
        const auto pages = sizes.readAll().split(' ').first().toULongLong();
        const rlimit limit{pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + bytes,
                           _before.rlim_max};
        setrlimit(RLIMIT_AS, &limit);
    }
    ~ShortMemory() { setrlimit(RLIMIT_AS, &_before); }
    ShortMemory(const ShortMemory &) = delete;
    ShortMemory &operator=(const ShortMemory &) = delete;

private:
    rlimit _before = {};
};

class Export : public testing::Test {
protected:
    /// Writes a capture and keeps what it shows after each frame.
    void record(const std::vector<Change> &changes,
                BRRawCompression compression = BRRawCompression::LZO,
                std::optional<std::uint32_t> announced = {})
    {
        auto streamer = BRFrameStreamer::withFilePathForWriting(
                            capture(), {static_cast<float>(kWidth), static_cast<float>(kHeight)},
                            compression, 0)
                            .value();
        std::mt19937 random(11);
        QImage canvas(kWidth, kHeight, QImage::Format_RGB32);
        canvas.fill(Qt::black);
        for (const Change &change : changes) {
            ASSERT_TRUE(streamer->writeFrameWithDirtyRects(change.rects, change.timestamp));
            for (const PXRect &rect : change.rects) {
                const auto left = static_cast<int>(rect.x);
                const int top = kHeight - static_cast<int>(rect.maxY());
                for (int y = top; y < top + static_cast<int>(rect.height); ++y) {
                    for (int x = left; x < static_cast<int>(rect.maxX()); ++x)
                        canvas.setPixel(x, y, 0xFF000000U | (random() & 0xFFFFFFU));
                }
                PXPixelView view;
                view.lowestRow = reinterpret_cast<std::byte *>(canvas.scanLine(kHeight - 1));
                view.bytesPerRow = -canvas.bytesPerLine();
                view.width = kWidth;
                view.height = kHeight;
                ASSERT_TRUE(streamer->writeDirtyRect(rect, rect, view));
            }
            shown.push_back(canvas.copy());
        }
        const double duration = changes.empty() ? 0 : changes.back().timestamp;
        ASSERT_TRUE(streamer->setDuration(duration));
        ASSERT_TRUE(streamer->setTotalNumberOfFrames(
            announced.value_or(static_cast<std::uint32_t>(changes.size()))));
    }
    /// One whose picture does not fit into `kLittleMemory` beside the buffer that it is read with.
    void recordLargeCapture()
    {
        auto streamer = BRFrameStreamer::withFilePathForWriting(capture(), {12500, 12500},
                                                                BRRawCompression::LZO, 0)
                            .value();
        ASSERT_TRUE(streamer->writeFrameWithDirtyRects({}, 0));
        ASSERT_TRUE(streamer->setTotalNumberOfFrames(1));
        streamer.reset();
        // A file that short would not be believed to hold such pictures.
        QFile file(capture());
        ASSERT_TRUE(file.resize(qint64{16} << 20));
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
    [[nodiscard]] QStringList files() const
    {
        return QDir(folder.path())
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
    }
    static void write(const QString &path, const QByteArray &text)
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text);
    }
    static QByteArray read(const QString &path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("unreadable");
    }

    static constexpr rlim_t kLittleMemory = rlim_t{900} << 20;
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

TEST_F(Export, AnEmptyCaptureHasAnEmptyTrack)
{
    record({});
    const auto exporter = compressor("avc1");
    ASSERT_TRUE(exporter->startCompression(output()));
    EXPECT_EQ(listener.wait(), u"finished "_s + output());
    EXPECT_EQ(listener.events.first(), u"begin 0"_s);
    const MovieProbe movie = MovieProbe::of(output());
    EXPECT_EQ(movie.tracks, 1);
    EXPECT_TRUE(movie.times.empty());
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

TEST_F(Export, ACaptureCutShortGivesItsWholeFrames)
{
    record(manyFrames(20));
    QFile file(capture());
    ASSERT_TRUE(file.resize(file.size() - 5));
    const auto exporter = compressor();
    ASSERT_TRUE(exporter->startCompression(output()));
    EXPECT_EQ(listener.wait(), u"finished "_s + output());
    shown.pop_back();
    EXPECT_EQ(MovieProbe::decode(output()), shown);
}

TEST_F(Export, ReplacesAnExistingFileOnlyWhenItSucceeds)
{
    record(manyFrames(30));
    write(output(), "the movie of yesterday");
    const auto exporter = compressor("avc1");
    ASSERT_TRUE(exporter->startCompression(output()));
    EXPECT_FALSE(QFile::exists(output())) << "out of the way from the start";
    EXPECT_EQ(listener.wait(), u"finished "_s + output());
    EXPECT_EQ(MovieProbe::of(output()).times.size(), 30U);
    EXPECT_THAT(files(), ElementsAre(u"My movie.mov"_s));
}

TEST_F(Export, CancelledOrDestroyedLeavesEverythingAsItWas)
{
    record(manyFrames(200));
    write(output(), "the movie of yesterday");
    auto exporter = compressor("png ");
    ASSERT_TRUE(exporter->startCompression(output()));
    exporter->cancelCompression();
    EXPECT_EQ(listener.wait(), u"cancelled"_s);
    EXPECT_EQ(read(output()), "the movie of yesterday");
    EXPECT_THAT(files(), ElementsAre(u"My movie.mov"_s));

    const int eventsBefore = static_cast<int>(listener.events.size());
    ASSERT_TRUE(exporter->startCompression(output()));
    EXPECT_THROW((void)exporter->startCompression(output()), std::logic_error);
    exporter.reset();
    EXPECT_EQ(listener.events.size(), eventsBefore);
    EXPECT_EQ(read(output()), "the movie of yesterday");
    EXPECT_THAT(files(), ElementsAre(u"My movie.mov"_s));
}

TEST_F(Export, KeepsClearOfOtherFiles)
{
    record(manyFrames(3));
    write(folder.filePath(u"Tolvane Temp.mov"_s), "somebody else's");
    const auto exporter = compressor();
    ASSERT_TRUE(exporter->startCompression(output()));
    EXPECT_TRUE(QFile::exists(folder.filePath(u"Tolvane Temp 2.mov"_s)));
    // A folder where the movie should go: it goes beside it.
    ASSERT_TRUE(QDir(folder.path()).mkdir(u"My movie.mov"_s));
    EXPECT_EQ(listener.wait(), u"finished "_s + folder.filePath(u"My movie 2.mov"_s));
    EXPECT_EQ(read(folder.filePath(u"Tolvane Temp.mov"_s)), "somebody else's");
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

TEST_F(Export, AFullDiskFailsAndTheOldFileComesBack)
{
    record(manyFrames(60));
    write(output(), "the movie of yesterday");
    const auto exporter = compressor();
    std::optional<FileSizeLimit> limit(100'000);
    const auto started = exporter->startCompression(output());
    const QString end = started ? listener.wait() : u"not started"_s;
    limit.reset();
    EXPECT_TRUE(end.startsWith(u"failed "_s)) << end.toStdString();
    EXPECT_TRUE(exporter->firstWriteError());
    EXPECT_EQ(read(output()), "the movie of yesterday");
    EXPECT_THAT(files(), ElementsAre(u"My movie.mov"_s));
}

// How an export ends that is not done, and what is beside the old file while nobody has been told.
TEST_F(Export, EndsOnceWhateverFails)
{
    struct Case {
        const char *name;
        std::function<void()> prepare;
        PXSize movieSize;
        bool isShortOfMemory;
        QStringList events;
        QStringList files; ///< Once it has ended, before the compressor goes.
    };
    const QStringList oldFile{u"My movie.mov"_s};
    const QStringList twoRefused(2,
                                 u"beep ICMCompressionSessionEncodeFrame() failed with error 22"_s);
    const Case cases[] = {
        {"no memory for a picture",
         [this] { recordLargeCapture(); },
         {61, 45},
         true,
         {u"begin 1"_s, u"beep Could not allocate buffer from pool."_s},
         {u".My movie.mov.replaced"_s, u"Tolvane Temp.mov"_s}},
        {"no memory for the encoder's pictures",
         [this] { record(manyFrames(3)); },
         {16000, 16000},
         true,
         {u"begin 3"_s,
          u"failed Could not make the movie: Cannot allocate memory. Close other programs, or export a smaller picture."_s},
         oldFile},
        {"every frame refused",
         [this] {
             record({{1e9, {}}, {2e9, {}}}); // Later than any sample can be.
         },
         {61, 45},
         false,
         QStringList{u"begin 2"_s} + twoRefused
             + QStringList{u"failed Tolvane could not compress the movie. None of its 2 frames could be encoded."_s},
         oldFile},
        {"aborted",
         [this] {
             record(manyFrames(500));
             listener.onBegin = [this] { listener.compressor->cancelCompression(); };
         },
         {1600, 1200},
         false,
         {u"begin 500"_s, u"cancelled"_s},
         oldFile},
    };
    for (const Case &row : cases) {
        if (row.isShortOfMemory && kIsSanitized)
            continue; // The sanitizers need more addresses than any limit leaves.
        SCOPED_TRACE(row.name);
        write(output(), "the movie of yesterday");
        row.prepare();
        auto exporter = compressor();
        exporter->setMovieExportSize(row.movieSize);
        auto limit = row.isShortOfMemory ? std::make_unique<ShortMemory>(kLittleMemory) : nullptr;
        ASSERT_TRUE(exporter->startCompression(output()));
        listener.wait();
        EXPECT_EQ(listener.events, row.events);
        EXPECT_EQ(files(), row.files);
        EXPECT_FALSE(exporter->isCompressing());
        limit.reset();
        if (row.files != oldFile) {
            // It ended without a word, and can be tried again.
            exporter->setMovieExportSize({61, 45});
            ASSERT_TRUE(exporter->startCompression(output()));
            exporter->cancelCompression();
            listener.wait();
        }
        EXPECT_EQ(exporter->missingFrames(), row.events.contains(twoRefused.front()) ? 2U : 0U);
        exporter.reset();
        EXPECT_EQ(read(output()), "the movie of yesterday");
        EXPECT_EQ(files(), oldFile);
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

TEST_F(Export, StartFailuresSayWhatIsWrongAndLeaveTheOldFile)
{
    record(manyFrames(3));
    struct Case {
        const char *name;
        std::function<void(BRFrameCompressor &)> prepare;
        QString path;
        QString message;
    };
    const Case cases[] = {
        {"no size",
         [](BRFrameCompressor &c) {
             c.setMovieExportSize({0.9F, 40});
         },
         output(),
         u"createCompressionSessionWithCodec parameter error. w=0 h=40 c=1918990112 o=1"_s},
        {"no codec", [](BRFrameCompressor &c) { c.compressionOptions().codec = 0; }, output(),
         u"createCompressionSessionWithCodec parameter error. w=61 h=45 c=0 o=1"_s},
        {"unknown codec",
         [](BRFrameCompressor &c) { c.compressionOptions().codec = PXFourCharCode("zzzz"); },
         output(), u"createCompressionSessionWithCodec ICMCompressionSessionCreate error "_s},
        {"no folder", [](BRFrameCompressor &) {}, folder.filePath(u"none/My movie.mov"_s),
         u"CreateMovieStorage() failed with error 2"_s},
        {"a folder in the way", [](BRFrameCompressor &) {}, folder.path(),
         u"because the existing file cannot be overwritten. (For example, it may be locked.)"_s},
    };
    write(output(), "the movie of yesterday");
    for (const Case &row : cases) {
        const auto exporter = compressor();
        row.prepare(*exporter);
        const auto started = exporter->startCompression(row.path);
        ASSERT_FALSE(started) << row.name;
        EXPECT_TRUE(PXErrorLine(started.error()).contains(row.message))
            << row.name << ": " << PXErrorLine(started.error()).toStdString();
        EXPECT_EQ(read(output()), "the movie of yesterday") << row.name;
        EXPECT_THAT(files(), ElementsAre(u"My movie.mov"_s)) << row.name;
    }
    EXPECT_TRUE(listener.events.isEmpty());
}

TEST_F(Export, AFileThatIsNoCaptureFails)
{
    write(capture(), "");
    write(output(), "the movie of yesterday");
    const auto exporter = compressor();
    ASSERT_TRUE(exporter->startCompression(output()));
    EXPECT_TRUE(listener.wait().startsWith(u"failed "_s));
    EXPECT_TRUE(listener.events.last().contains(capture()));
    EXPECT_EQ(read(output()), "the movie of yesterday");
    EXPECT_THAT(files(), ElementsAre(u"My movie.mov"_s));
}

TEST_F(Export, SettingsAreSharedThroughTheDefaults)
{
    const auto one = compressor();
    EXPECT_EQ(BRFrameCompressor(capture(), true, platform, defaults).compressionOptions().codec,
              PXFourCharCode("avc1"));
    BRCompressionSettings settings;
    settings.spatial.codecType = PXFourCharCode("apch");
    settings.spatial.spatialQuality = 100;
    ASSERT_TRUE(one->saveCompressionSettings(settings));
    BRFrameCompressor other(capture(), true, platform, defaults);
    EXPECT_EQ(other.compressionOptions().codec, PXFourCharCode("apch"));
    EXPECT_EQ(other.compressionOptions().options->quality, 100);

    ASSERT_TRUE(defaults.setValue(u"CompressionDialogSettings"_s, QByteArray("garbage")));
    other.adoptUserCompressionOptions();
    EXPECT_EQ(other.compressionOptions().codec, PXFourCharCode("avc1"));
}
