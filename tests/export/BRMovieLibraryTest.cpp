#include "export/BRMovieLibrary.h"

#include "tests/export/LibraryFolder.h"

#include <gmock/gmock.h>

#include <QEventLoop>

namespace {

class MovieLibrary : public testing::Test, protected LibraryFolder {
protected:
    void add(const QString &uuid, const QString &name, int minutes)
    {
        record(uuid, End::Stopped);
        writeInfo(uuid, {{u"name"_s, name}, {u"date"_s, kDate.addSecs(qint64{60} * minutes)}});
    }
    static QStringList namesIn(const BRMovieLibrary &library)
    {
        QStringList names;
        for (const BRMovieLibrary::Movie &movie : library.movies())
            names << movie->name();
        return names;
    }

    BRMovieLibrary library{movies.path(), media, defaults};
};

TEST_F(MovieLibrary, AMovieIsTheFolderThatItWasFoundIn)
{
    add(u"A1"_s, u"one"_s, 2);
    add(u"A2"_s, u"other"_s, 1);
    writeInfo(u"A2"_s, {{u"uuid"_s, u"A1"_s}, {u"name"_s, u"other"_s}});
    add(u"A3"_s, u"bad"_s, 0);
    writeInfo(u"A3"_s,
              {{u"uuid"_s, u"../../etc"_s},
               {u"name"_s, 7},
               {u"date"_s, u"today"_s},
               {u"width"_s, u"x"_s}});
    ASSERT_TRUE(library.loadAll());
    ASSERT_EQ(library.movies().size(), 3U);
    for (const auto &movie : library.movies()) {
        EXPECT_EQ(movie->movieFolderPath(), folderOf(movie->identifier()));
        EXPECT_EQ(movie->capturedVideoSize(), (PXSize{40, 30})) << "the raw file knows";
    }
}

TEST_F(MovieLibrary, LooksAgainWhileSomethingIsRescued)
{
    record(u"A1"_s, End::Killed);
    writeInfo(u"A1"_s);
    ASSERT_TRUE(library.reload());
    EXPECT_FALSE(library.loadSome(std::chrono::hours(1)));
    EXPECT_TRUE(library.movies().empty()) << "its rescue is under way";
    ASSERT_TRUE(library.loadAll());
    ASSERT_TRUE(library.loadAll());
    EXPECT_EQ(library.movies().size(), 1U);
}

/// Ends the loop when the export does.
struct ExportListener final : BRCapturedMovieDelegate {
    void capturedMovieIsDoneCompressing(BRCapturedMovie &, const QString &) override { end(); }
    void capturedMovieCompressionWasCancelled(BRCapturedMovie &) override { end(); }
    void capturedMovieCompressionFailed(BRCapturedMovie &, const PXError &) override { end(); }
    void capturedMovieTemporaryFrameImageAvailable(BRCapturedMovie &, const QImage &image) override
    {
        EXPECT_EQ(image.size(), QSize(40, 30));
        if (images++ == 0)
            onFirstImage();
    }
    void end()
    {
        ++ends;
        loop.quit();
    }

    QEventLoop loop;
    std::function<void()> onFirstImage;
    int ends = 0;
    int images = 0;
};

TEST_F(MovieLibrary, AMovieThatIsExportedStaysUntilItHearsOfTheEnd)
{
    record(u"A1"_s, End::Stopped, 2000);
    writeInfo(u"A1"_s);
    ASSERT_TRUE(library.loadAll());
    ExportListener listener;
    const QTemporaryDir folder;
    {
        const auto movie = library.movies().front();
        movie->setSendsTemporaryFrameImages(true);
        ASSERT_TRUE(movie->startCompression(folder.filePath(u"out.mov"_s), &listener));
        const auto other = BRCapturedMovie::withMovieInfoFilePath(fileOf(u"A1"_s, kBRMovieInfoName),
                                                                  media, defaults)
                               .value();
        const auto second = other->startCompression(folder.filePath(u"out.mov"_s), &listener);
        ASSERT_FALSE(second) << "one of the two movies would be gone";
        EXPECT_EQ(second.error().code, EBUSY);
    }
    const auto shown = library.movies().front()->rawMovie().value();
    listener.onFirstImage = [&] {
        QDir(folderOf(u"A1"_s)).removeRecursively();
        shown->setCurrentTime(900);
        EXPECT_EQ(shown->currentFrameIndex(), 1800U) << "its preview goes on";
        EXPECT_TRUE(library.reload());
        EXPECT_EQ(library.movies().size(), 1U);
    };
    listener.loop.exec();
    EXPECT_EQ(listener.ends, 1);
    EXPECT_GT(listener.images, 0);
    EXPECT_LE(listener.images, 500) << "one of four";
    EXPECT_EQ(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden), QStringList(u"out.mov"_s));
    ASSERT_TRUE(library.loadAll());
    EXPECT_TRUE(library.movies().empty());
}

TEST_F(MovieLibrary, TellsOfAFolderWhoseCaptureIsGone)
{
    add(u"A1"_s, u"one"_s, 1);
    QFile::remove(fileOf(u"A1"_s, kBRCaptureVideoDataName));
    ASSERT_TRUE(library.loadAll());
    EXPECT_TRUE(library.movies().empty());
    ASSERT_EQ(library.failures().size(), 1U);
    EXPECT_THAT(library.failures().front().second.description.toStdString(),
                testing::HasSubstr("does not have a video data file!"));
}

TEST_F(MovieLibrary, AFolderThatVanishesAndComesBack)
{
    add(u"A1"_s, u"one"_s, 1);
    ASSERT_TRUE(library.loadAll());
    const QString away = movies.path() + u".away"_s;
    ASSERT_TRUE(QDir().rename(movies.path(), away));
    EXPECT_FALSE(library.reload());
    EXPECT_EQ(namesIn(library), QStringList(u"one"_s));
    ASSERT_TRUE(QDir().rename(away, movies.path()));
    EXPECT_TRUE(library.loadAll());
    EXPECT_EQ(namesIn(library), QStringList(u"one"_s));
}

} // namespace
