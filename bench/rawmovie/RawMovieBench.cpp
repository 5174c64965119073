// From opening a capture to its first picture, and seeking in it, beside ffmpeg's libraries that
// seek in the H.264 export of the same frames. Prints milliseconds and ratios.
//
//   tolvane_rawmovie_bench FOLDER                 all; the first time it makes 10 GB of captures
//                                                 and the movie there, which takes a while
//   tolvane_rawmovie_bench FOLDER --make MINUTES  makes a capture and its movie, prints their paths

#include "bench/rawmovie/Captures.h"
#include "bench/rawmovie/DeskWork.h"
#include "bench/rawmovie/FFmpegSeeker.h"
#include "rawmovie/BRRawMovie.h"
#include "rawmovie/view/BRRawMovieView.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QPixmap>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr int kMinutes = 10;
constexpr int kLongMinutes = 120;
constexpr int kOpenings = 21;
constexpr int kSeeks = 1000;
constexpr int kFFmpegSeeks = 200; // Each takes so much longer.

using Times = std::vector<double>; ///< Milliseconds.

template <typename Work> double millisecondsFor(Work work)
{
    QElapsedTimer timer;
    timer.start();
    work();
    return static_cast<double>(timer.nsecsElapsed()) / 1e6;
}

double portion(Times times, double fraction)
{
    std::sort(times.begin(), times.end());
    return times[static_cast<std::size_t>(
        std::ceil(fraction * static_cast<double>(times.size() - 1)))];
}

void print(const char *name, const Times &times)
{
    std::printf("| %-36s | %8.2f | %8.2f | %8.2f |\n", name, portion(times, 0.5),
                portion(times, 0.99), portion(times, 1));
    (void)std::fflush(stdout);
}

std::shared_ptr<BRRawMovie> open(const QString &path)
{
    auto movie = BRRawMovie::withFilePath(path);
    if (!movie)
        throw std::runtime_error(movie.error().description.toStdString());
    return *std::move(movie);
}

/// The system shall read it from the disk again.
void forget(const QString &path)
{
    for (const QString &name : {path, path + u".index"_s}) {
        const int file = ::open(QFile::encodeName(name).constData(), O_RDONLY | O_CLOEXEC);
        ::fdatasync(file);
        ::posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED);
        ::close(file);
    }
}

enum class Cache { Warm, Cold };

/// Up to the pixels of a view of the movie's own size.
Times timesToFirstPicture(const QString &path, Cache cache)
{
    Times times;
    for (int i = 0; i < kOpenings; ++i) {
        BRRawMovieView view({});
        view.resize(DeskWork::kWidth, DeskWork::kHeight);
        if (cache == Cache::Cold)
            forget(path);
        QPixmap shown;
        times.push_back(millisecondsFor([&] {
            view.setMovie(open(path));
            shown = view.grab();
        }));
        if (shown.size() != view.size())
            throw std::runtime_error("nothing is shown");
    }
    return times;
}

struct Seek {
    double from, to;
};

/// Random places; the same in each run.
std::vector<Seek> randomSeeks(int minutes)
{
    std::mt19937 random(17);
    std::uniform_real_distribution<double> place(0, minutes * 60);
    std::vector<Seek> seeks;
    seeks.reserve(kSeeks);
    for (int i = 0; i < kSeeks; ++i)
        seeks.push_back({place(random), place(random)});
    return seeks;
}

Times timesOfSeeks(BRRawMovie &movie, const std::vector<Seek> &seeks)
{
    Times times;
    for (const Seek &seek : seeks) {
        movie.setCurrentTime(seek.from);
        times.push_back(millisecondsFor([&] { movie.setCurrentTime(seek.to); }));
    }
    return times;
}

/// Answers the times of the mixed ones.
Times measureSeeks(const char *name, const QString &path, int minutes)
{
    const auto movie = open(path);
    const std::vector<Seek> seeks = randomSeeks(minutes);
    const auto measure = [&](const char *direction, const auto &mustTurn) {
        std::vector<Seek> turned = seeks;
        for (Seek &seek : turned) {
            if (mustTurn(seek))
                std::swap(seek.from, seek.to);
        }
        Times times = timesOfSeeks(*movie, turned);
        print(qPrintable(u"%1, %2"_s.arg(QLatin1String(name), QLatin1String(direction))), times);
        return times;
    };
    forget(path);
    measure("mixed, from disk", [](const Seek &) { return false; });
    measure("forwards", [](const Seek &seek) { return seek.to < seek.from; });
    measure("backwards", [](const Seek &seek) { return seek.from < seek.to; });
    return measure("mixed", [](const Seek &) { return false; });
}

/// The first of the same seeks; each must end at the picture at which ours does.
Times timesOfFFmpegSeeks(const QString &moviePath, const QString &capturePath)
{
    FFmpegSeeker seeker(moviePath);
    const auto movie = open(capturePath);
    std::vector<Seek> seeks = randomSeeks(kMinutes);
    seeks.resize(kFFmpegSeeks);
    Times times;
    for (const Seek &seek : seeks) {
        double shown = 0;
        times.push_back(millisecondsFor([&] { shown = seeker.seek(seek.to); }));
        movie->setCurrentTime(seek.to);
        const double wanted
            = static_cast<double>(movie->currentFrameIndex()) / DeskWork::kFramesPerSecond;
        if (std::abs(shown - wanted) > 0.5 / DeskWork::kFramesPerSecond)
            throw std::runtime_error("the two show different pictures");
    }
    return times;
}

void measure(const Captures &captures)
{
    const QString capture = captures.capture(kMinutes);
    const QString longCapture = captures.capture(kLongMinutes);
    const QString movie = captures.movie(kMinutes);
    std::printf("| ms                                   |   median |     99 %% |    worst |\n"
                "|---|---:|---:|---:|\n");
    print("first picture, 10 min", timesToFirstPicture(capture, Cache::Warm));
    print("first picture, 10 min, from disk", timesToFirstPicture(capture, Cache::Cold));
    print("first picture, 2 h", timesToFirstPicture(longCapture, Cache::Warm));
    print("first picture, 2 h, from disk", timesToFirstPicture(longCapture, Cache::Cold));
    measureSeeks("2 h", longCapture, kLongMinutes);
    const Times ours = measureSeeks("10 min", capture, kMinutes);
    const Times theirs = timesOfFFmpegSeeks(movie, capture);
    print("10 min of H.264, ffmpeg, mixed", theirs);
    std::printf("\nffmpeg takes %.1f times as long at the median, %.1f times at 99 %%\n",
                portion(theirs, 0.5) / portion(ours, 0.5),
                portion(theirs, 0.99) / portion(ours, 0.99));
}

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    try {
        if (arguments.size() == 2) {
            measure(Captures(arguments[1]));
            return 0;
        }
        if (arguments.size() == 4 && arguments[2] == u"--make"_s && arguments[3].toInt() > 0) {
            const Captures captures(arguments[1]);
            std::printf("%s\n%s\n", qPrintable(captures.capture(arguments[3].toInt())),
                        qPrintable(captures.movie(arguments[3].toInt())));
            return 0;
        }
        (void)std::fprintf(stderr, "usage: tolvane_rawmovie_bench FOLDER [--make MINUTES]\n");
    } catch (const std::exception &failed) {
        (void)std::fprintf(stderr, "tolvane_rawmovie_bench: %s\n", failed.what());
    }
    return 1;
}
