#include "export/BRCapturedMovie.h"

#include "tests/export/LibraryFolder.h"
#include "tests/ffmpeg/SoundProbe.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QThread>

#include <cerrno>
#include <functional>

using testing::ElementsAre;

namespace {

/// A capture of a second and a half, exported into a folder of its own.
class MovieWithSound : public testing::Test,
                       protected LibraryFolder,
                       private BRCapturedMovieDelegate {
protected:
    MovieWithSound()
    {
        qputenv("TMPDIR", QFile::encodeName(temporary.path()));
        record(u"A"_s, End::Stopped, 3);
    }
    ~MovieWithSound() override { qunsetenv("TMPDIR"); }

    [[nodiscard]] QString video() const { return fileOf(u"A"_s, kBRCaptureVideoDataName); }
    [[nodiscard]] QString sound() const { return fileOf(u"A"_s, kBRCaptureAudioDataName); }
    [[nodiscard]] QString output() const { return folder.filePath(u"Movie.mov"_s); }

    std::unique_ptr<BRCapturedMovie> open(bool hasAudio = true)
    {
        const QVariantMap info{{u"hasAudio"_s, hasAudio}, {u"width"_s, 40}, {u"height"_s, 30}};
        auto movie = std::make_unique<BRCapturedMovie>(video(), info, media, defaults);
        movie->frameCompressor().compressionOptions().codec = PXFourCharCode("raw ");
        return movie;
    }
    void choose(const char *codec)
    {
        BRAudioCompressionSettings settings;
        settings.codec = PXFourCharCodeFromString(QString::fromLatin1(codec));
        ASSERT_TRUE(
            defaults.setValue(u"AudioCompressionDialogSettings"_s, settings.atomContainer()));
    }
    /// To its end.
    void exportMovie(BRCapturedMovie &movie)
    {
        events.clear();
        ASSERT_TRUE(movie.startCompression(output(), this));
        EXPECT_TRUE(movie.isCompressing());
        EXPECT_TRUE(events.isEmpty()) << "told from inside the call";
        loop.exec();
        QCoreApplication::processEvents();
        EXPECT_FALSE(movie.isCompressing());
        EXPECT_FALSE(movie.isMerging());
        EXPECT_EQ(everythingIn(temporary.path()), QStringList()) << "the sound on its way";
    }

    QTemporaryDir folder;
    QTemporaryDir temporary;
    QStringList events;
    std::function<void(BRCapturedMovie &)> onVideo; ///< When the pictures begin,
    std::function<void(BRCapturedMovie &)> onSound; ///< and the sound.

private:
    void tell(const QString &event)
    {
        EXPECT_EQ(QThread::currentThread(), QCoreApplication::instance()->thread());
        events << event;
    }
    void capturedMovieWillBeginVideoCompression(BRCapturedMovie &movie,
                                                std::uint32_t total) override
    {
        EXPECT_EQ(movie.totalNumberOfFrames(), total);
        tell(u"%1 frames"_s.arg(total));
        if (onVideo)
            onVideo(movie);
    }
    void capturedMovieVideoFramesRemaining(BRCapturedMovie &, std::uint32_t) override
    {
        tell(u"frame"_s);
    }
    void capturedMovieWillBeginAudioCompression(BRCapturedMovie &movie) override
    {
        tell(u"sound"_s);
        EXPECT_EQ(SoundProbe::tracks(output()).size(), 1U) << "the picture is whole";
        if (onSound)
            onSound(movie);
    }
    void capturedMovieIsDoneCompressing(BRCapturedMovie &, const QString &path) override
    {
        EXPECT_EQ(path, output());
        end(u"done"_s);
    }
    void capturedMovieCompressionWasCancelled(BRCapturedMovie &) override { end(u"cancelled"_s); }
    void capturedMovieCompressionFailed(BRCapturedMovie &, const PXError &error) override
    {
        end(error.description);
    }
    void end(const QString &event)
    {
        tell(event);
        loop.quit();
    }

    QEventLoop loop;
};

} // namespace

TEST_F(MovieWithSound, HasItsSoundCutToThePictures)
{
    const struct {
        SoundFile source;
        const char *codec; ///< That it becomes.
        double seconds; ///< Of sound.
    } cases[] = {
        {{"sowt", 44100, 1}, "sowt", 3}, {{"sowt", 44100, 1}, "aac ", 3},
        {{"aac ", 48000, 2}, "aac ", 3}, {{"aac ", 48000, 6}, "alac", 3},
        {{"alac", 44100, 2}, "ima4", 3}, {{"sowt", 48000, 2}, "aac ", 0.5},
    };
    const auto movie = open();
    for (const auto &row : cases) {
        const auto &[codec, rate, channels, kind] = row.source;
        SCOPED_TRACE(std::string(codec) + " to " + row.codec);
        makeSoundFile(sound(), row.source,
                      chirp(rate, channels, static_cast<int>(row.seconds * rate), 0.4));
        choose(row.codec);
        exportMovie(*movie);
        EXPECT_FALSE(movie->audioError());
        EXPECT_THAT(
            events,
            ElementsAre(u"3 frames"_s, u"frame"_s, u"frame"_s, u"frame"_s, u"sound"_s, u"done"_s));
        const auto tracks = SoundProbe::tracks(output());
        ASSERT_EQ(tracks.size(), 2U);
        EXPECT_EQ(tracks[1].sampleRate, rate);
        EXPECT_NEAR(static_cast<double>(tracks[1].duration) / tracks[1].timeScale,
                    std::min(1.5, row.seconds), 64.0 / rate);
        EXPECT_EQ(tracks[1].channels, channels);
        const auto heard = channelOf<float>(SoundProbe::decode(output()), channels, 0);
        EXPECT_GT(lagOf(heard, chirp(rate, 1, rate, 0.4), 2000).likeness, 0.98);
        EXPECT_EQ(everythingIn(folder.path()), QStringList(u"Movie.mov"_s));
    }
}

TEST_F(MovieWithSound, EndsWithoutSoundWhereThereIsNone)
{
    const auto leaveOut = [](BRCapturedMovie &movie) { movie.setIncludeAudio(false); };
    const auto cancel = [](BRCapturedMovie &movie) { movie.cancelCompression(); };
    const struct {
        const char *name;
        std::optional<QByteArray> sound; ///< What is in its file; none is no file.
        bool hasAudio; ///< According to what was recorded,
        bool hasAudioThen; ///< and after the export.
        bool fails;
        std::function<void(BRCapturedMovie &)> onVideo;
        QString end;
    } cases[] = {
        {"without", {}, false, false, false, {}, u"done"_s},
        {"not told of", "anything", false, false, false, {}, u"done"_s},
        {"missing", {}, true, false, false, {}, u"done"_s},
        {"damaged", "no movie", true, true, true, {}, u"done"_s},
        {"left out", "no movie", true, true, false, leaveOut, u"done"_s},
        {"cancelled", "no movie", true, true, false, cancel, u"cancelled"_s},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.name);
        QFile::remove(sound());
        QFile::remove(output());
        if (row.sound)
            writeFile(sound(), *row.sound);
        if (row.end == u"cancelled"_s)
            record(u"A"_s, End::Stopped, 20'000); // It must not be over before it is cancelled.
        const auto movie = open(row.hasAudio);
        EXPECT_EQ(movie->hasAudio(), row.hasAudio);
        EXPECT_EQ(movie->includeAudio(), row.hasAudio);
        onVideo = row.onVideo;
        exportMovie(*movie);
        EXPECT_EQ(events.last(), row.end);
        EXPECT_EQ(events.contains(u"sound"_s), row.fails);
        EXPECT_EQ(movie->hasAudio(), row.hasAudioThen);
        EXPECT_EQ(movie->audioError().has_value(), row.fails);
        if (row.end == u"done"_s) {
            EXPECT_EQ(SoundProbe::tracks(output()).size(), 1U);
        } else {
            EXPECT_EQ(everythingIn(folder.path()), QStringList());
        }
    }
    // Nothing is heard of an export that did not begin.
    const auto movie = open();
    events.clear();
    EXPECT_FALSE(movie->startCompression(u"/nonexistent/Movie.mov"_s, nullptr));
    EXPECT_FALSE(movie->isCompressing());
    movie->audioCompressor();
    EXPECT_TRUE(movie->hasAudio()) << "its file is there";
}

TEST_F(MovieWithSound, KeepsThePicturesWhenTheMergingIsCancelled)
{
    makeSoundFile(sound(), {"sowt"}, chirp(48000, 2, 96000));
    const auto movie = open();
    onSound = [](BRCapturedMovie &of) { of.cancelMerging(); };
    exportMovie(*movie);
    EXPECT_EQ(events.last(), u"done"_s);
    ASSERT_TRUE(movie->audioError());
    EXPECT_EQ(movie->audioError()->code, ECANCELED);
    EXPECT_EQ(SoundProbe::tracks(output()).size(), 1U);
    EXPECT_EQ(everythingIn(folder.path()), QStringList(u"Movie.mov"_s));

    onSound = {};
    exportMovie(*movie);
    EXPECT_FALSE(movie->audioError());
    EXPECT_EQ(SoundProbe::tracks(output()).size(), 2U);
}
