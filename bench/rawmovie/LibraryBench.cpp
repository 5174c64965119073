// How long a library of a thousand movies takes to load, from the files to what a list shows, with
// the system's cache warm and cold. Prints milliseconds.
//
//   tolvane_library_bench FOLDER   the first time it makes the movies there (1 GB)

#include "bench/rawmovie/Captures.h"
#include "capture/framefile/BRFrameStreamer.h"
#include "export/BRMovieLibrary.h"
#include "foundation/PXPropertyList.h"
#include "platform/ffmpeg/FFmpegMediaPlatform.h"

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QTemporaryDir>
#include <QUuid>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr int kMovies = 1000;
constexpr std::uint32_t kFrames = 10;
constexpr int kRuns = 5;
constexpr std::size_t kRowsOnScreen = 30;
constexpr std::chrono::milliseconds kSlice{10}; // Of loading, between which a window is drawn.

void makeMovies(const QString &folder)
{
    const QString capture = folder + u"/capture"_s;
    Captures::record(capture, kFrames);
    for (int i = 0; i < kMovies; ++i) {
        const QString uuid = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
        const QDir movie(folder + u"/Movies/"_s + uuid);
        const QString video = movie.filePath(kBRCaptureVideoDataName);
        const bool isMade = movie.mkpath(u"."_s) && QFile::copy(capture, video)
            && QFile::copy(capture + u".index"_s, video + u".index"_s)
            && PXPropertyList::write({{u"uuid"_s, uuid},
                                      {u"name"_s, u"Movie %1"_s.arg(i)},
                                      {u"date"_s,
                                       QDateTime::currentDateTimeUtc().addSecs(qint64{-60} * i)},
                                      {u"hasVideo"_s, true},
                                      {u"captureRate"_s, 30},
                                      {u"width"_s, 1920},
                                      {u"height"_s, 1080}},
                                     movie.filePath(kBRMovieInfoName), PXPropertyList::Format::XML);
        if (!isMade)
            throw std::runtime_error("no room for the movies");
    }
}

/// The files' contents; names and sizes stay in the system's cache.
void forgetMovies(const QDir &movies)
{
    for (const QString &movie : movies.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QDir folder(movies.filePath(movie));
        for (const QString &name : folder.entryList(QDir::Files)) {
            const int file = ::open(QFile::encodeName(folder.filePath(name)).constData(),
                                    O_RDONLY | O_CLOEXEC);
            ::fdatasync(file);
            ::posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED);
            ::close(file);
        }
    }
}

struct Times {
    double rows; ///< A screenful of rows is there,
    double picture; ///< and the picture of the first.
    double all; ///< Every movie is.
    double again; ///< Looking at the folder once more.
};

Times load(const QString &moviesFolder, PXMediaPlatform &media, PXDefaults &defaults)
{
    QElapsedTimer timer;
    timer.start();
    const auto elapsed = [&] { return static_cast<double>(timer.nsecsElapsed()) / 1e6; };
    BRMovieLibrary library(moviesFolder, media, defaults);
    if (!library.reload())
        throw std::runtime_error("the folder cannot be read");
    Times times = {};
    bool hasMore = true;
    while (hasMore && library.movies().size() < kRowsOnScreen)
        hasMore = library.loadSome(kSlice);
    times.rows = elapsed();
    if (library.movies().front()->firstFrame().isNull())
        throw std::runtime_error("no picture");
    times.picture = elapsed();
    while (library.loadSome(kSlice)) { }
    times.all = elapsed();
    if (!library.reload() || library.loadSome(kSlice) || library.movies().size() != kMovies)
        throw std::runtime_error("movies are missing");
    times.again = elapsed() - times.all;
    return times;
}

void print(const char *name, std::vector<Times> runs, double Times::*what)
{
    std::sort(runs.begin(), runs.end(),
              [&](const Times &one, const Times &other) { return one.*what < other.*what; });
    std::printf("| %-44s | %7.1f | %7.1f |\n", name, runs[runs.size() / 2].*what,
                runs.back().*what);
}

void measure(const QString &folder)
{
    const QString movies = folder + u"/Movies"_s;
    if (!QFile::exists(movies))
        makeMovies(folder);
    const QTemporaryDir settings;
    FFmpegMediaPlatform media;
    PXDefaults defaults(settings.filePath(u"defaults.plist"_s));
    std::puts("| 1000 movies, ms                              |  median |   worst |");
    std::puts("|---|---:|---:|");
    for (const bool isCold : {false, true}) {
        std::vector<Times> runs;
        for (int i = 0; i < kRuns; ++i) {
            if (isCold)
                forgetMovies(movies);
            runs.push_back(load(movies, media, defaults));
        }
        print(isCold ? "30 rows, files not in memory" : "30 rows", runs, &Times::rows);
        print("and the first one's picture", runs, &Times::picture);
        print("all", runs, &Times::all);
        print("reloading", runs, &Times::again);
    }
}

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QGuiApplication application(argc, argv);
    if (argc != 2) {
        (void)std::fputs("tolvane_library_bench FOLDER\n", stderr);
        return 2;
    }
    try {
        measure(QString::fromLocal8Bit(argv[1]));
    } catch (const std::exception &error) {
        std::fprintf(stderr, "tolvane_library_bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
