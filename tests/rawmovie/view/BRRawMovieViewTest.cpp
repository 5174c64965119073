#include "rawmovie/view/BRRawMovieView.h"

#include "foundation/PXClock.h"
#include "tests/rawmovie/view/PaintedMovie.h"

#include <QPaintEvent>
#include <QPixmap>
#include <QScreen>

#include <algorithm>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

/// A view that remembers what it was asked to paint.
class WatchedView final : public BRRawMovieView {
public:
    using BRRawMovieView::BRRawMovieView;

    /// So that its pixels on the screen are that many.
    void showWithPixels(const QSize &size)
    {
        setGeometry(QRect(QPoint(), size / devicePixelRatioF()));
        show();
    }
    [[nodiscard]] QImage onScreen() const
    {
        return screen()->grabWindow(winId()).toImage().convertToFormat(QImage::Format_RGB32);
    }
    [[nodiscard]] QImage paintedAnew()
    {
        QImage image = grab().toImage().convertToFormat(QImage::Format_RGB32);
        image.setDevicePixelRatio(1);
        return image;
    }

    QRegion painted;
    std::vector<std::uint32_t> frames; ///< Those that were painted.

protected:
    void paintEvent(QPaintEvent *event) override
    {
        BRRawMovieView::paintEvent(event);
        painted += event->region();
        if (movie())
            frames.push_back(movie()->currentFrameIndex());
    }
};

class BRRawMovieViewTest : public PaintedMovieTest {
protected:
    [[nodiscard]] bool waitUntilScreenShows(const QImage &picture)
    {
        return waitUntil([&] { return view.onScreen() == picture; });
    }

    WatchedView view{makeDisplayLink()};
};

bool isBlack(QRgb pixel)
{
    return (pixel & 0xFFFFFFU) == 0;
}

/// How far the two are apart where they differ most, of 255.
int difference(const QImage &one, const QImage &other)
{
    if (one.size() != other.size())
        return 256;
    int most = 0;
    for (int y = 0; y < one.height(); ++y) {
        for (int x = 0; x < one.width(); ++x) {
            const QRgb a = one.pixel(x, y);
            const QRgb b = other.pixel(x, y);
            most = std::max({most, std::abs(qRed(a) - qRed(b)), std::abs(qGreen(a) - qGreen(b)),
                             std::abs(qBlue(a) - qBlue(b))});
        }
    }
    return most;
}

TEST_F(BRRawMovieViewTest, KeepsTheProportionsOnBlackAndTheSharpness)
{
    const struct {
        const char *name;
        QSize view; // In pixels of the screen.
        QRect picture;
    } rows[] = {
        {"itsOwnSize", {200, 150}, {0, 0, 200, 150}},
        {"wider", {500, 150}, {150, 0, 200, 150}},
        {"higher", {200, 502}, {0, 176, 200, 150}},
        {"twice", {402, 304}, {0, 1, 402, 301}},
        {"exactlyTwice", {400, 320}, {0, 10, 400, 300}},
        {"threeTimes", {610, 450}, {5, 0, 600, 450}},
        {"smaller", {120, 60}, {20, 0, 80, 60}},
        {"tiny", {40, 18}, {8, 0, 24, 18}},
    };
    view.setMovie(movie(1, 1));
    for (const auto &row : rows) {
        view.resize(row.view / view.devicePixelRatioF());
        const QImage shown = view.paintedAnew();
        ASSERT_EQ(shown.size(), row.view) << row.name;
        const int factor = row.picture.width() / kWidth;
        const bool isWhole = row.picture.size() == QSize(kWidth, kHeight) * factor;
        for (int y = 0; y < shown.height(); ++y) {
            for (int x = 0; x < shown.width(); ++x) {
                const QRgb pixel = shown.pixel(x, y);
                ASSERT_NE(isBlack(pixel), row.picture.contains(x, y))
                    << row.name << ' ' << x << ' ' << y;
                if (isWhole && !isBlack(pixel)) {
                    ASSERT_EQ(pixel,
                              pictures[0].pixel((x - row.picture.x()) / factor,
                                                (y - row.picture.y()) / factor))
                        << row.name << ' ' << x << ' ' << y;
                }
            }
        }
    }
    EXPECT_EQ(view.sizeHint() * view.devicePixelRatioF(), QSize(kWidth, kHeight));
}

TEST_F(BRRawMovieViewTest, RepaintsWhatChangedAndNothingElse)
{
    const auto movie = this->movie(40, 1);
    view.setMovie(movie);
    for (const QSize &size : {QSize(200, 150), QSize(480, 320), QSize(130, 110), QSize(722, 540)}) {
        view.setCurrentTime(0);
        view.showWithPixels(size);
        ASSERT_TRUE(waitUntil([&] { return view.onScreen() == view.paintedAnew(); }));
        const double scale
            = std::min(size.width() / double(kWidth), size.height() / double(kHeight))
            / view.devicePixelRatioF();
        const QPointF corner((view.width() - kWidth * scale) / 2,
                             (view.height() - kHeight * scale) / 2);
        for (std::size_t frame = 1; frame < pictures.size(); ++frame) {
            QRegion allowed;
            for (const QRect &rect : changed[frame]) {
                const double reach = scale + 2;
                allowed
                    += QRectF(corner + QPointF(rect.topLeft()) * scale, QSizeF(rect.size()) * scale)
                           .adjusted(-reach, -reach, reach, reach)
                           .toAlignedRect();
            }
            view.painted = {};
            view.setCurrentTime(static_cast<double>(frame));
            ASSERT_TRUE(waitUntil([&] { return !view.painted.isEmpty(); }));
            ASSERT_TRUE(view.painted.subtracted(allowed).isEmpty())
                << size.width() << " wide, frame " << frame;
            // Where smoothing begins at another pixel it rounds a little differently.
            ASSERT_LE(difference(view.onScreen(), view.paintedAnew()), 12)
                << size.width() << " wide, frame " << frame;
        }
        view.hide();
    }
}

TEST_F(BRRawMovieViewTest, PlaysToTheEndAndGoesBack)
{
    view.setMovie(movie(8, 0.05));
    view.showWithPixels({kWidth, kHeight});
    ASSERT_TRUE(waitUntilScreenShows(pictures[0]));
    for (int round = 0; round < 2; ++round) {
        bool hasStopped = false;
        std::vector<std::uint32_t> frames;
        view.frames.clear();
        view.setDidStop([&] {
            hasStopped = true;
            frames = view.frames;
        });
        const double began = PXTimeIntervalSinceReferenceDate();
        ASSERT_TRUE(view.play());
        EXPECT_TRUE(view.isPlaying());
        ASSERT_TRUE(waitUntil([&] { return hasStopped; }));
        EXPECT_GE(PXTimeIntervalSinceReferenceDate() - began, 0.4 - 1e-6);
        EXPECT_TRUE(std::is_sorted(frames.begin(), frames.end()));
        EXPECT_FALSE(view.isPlaying());
        EXPECT_EQ(view.currentTime(), 0);
        EXPECT_TRUE(waitUntilScreenShows(pictures[0]));
    }
    // From its end it plays again from its beginning.
    view.setCurrentTime(1);
    EXPECT_TRUE(waitUntilScreenShows(pictures.back()));
    ASSERT_TRUE(view.play());
    EXPECT_LT(view.movie()->currentFrameIndex(), pictures.size() - 1);
}

TEST_F(BRRawMovieViewTest, KeepsTimeWhileNothingMoves)
{
    view.setMovie(movieWithFrames({0, 1000}, 2000));
    const auto now = PXTimeIntervalSinceReferenceDate;
    const double beforePlaying = now();
    ASSERT_TRUE(view.play());
    const double afterPlaying = now();
    ASSERT_TRUE(waitUntil([&] { return now() > afterPlaying + 0.3; }));
    EXPECT_GE(view.currentTime(), 0.3);

    // The rest before a seek is not counted behind it.
    const double seek = now();
    view.setCurrentTime(500);
    ASSERT_TRUE(waitUntil([&] { return view.movie()->currentTime() > 500; }));
    EXPECT_LE(view.movie()->currentTime(), 500 + now() - seek);

    view.setCurrentTime(0);
    const double afterSeek = now();
    ASSERT_TRUE(waitUntil([&] { return now() > afterSeek + 0.2; }));
    view.pause();
    EXPECT_GE(view.movie()->currentTime(), 0.2);
    EXPECT_LE(view.movie()->currentTime(), now() - beforePlaying);
    EXPECT_EQ(view.currentTime(), view.movie()->currentTime());
}

TEST_F(BRRawMovieViewTest, GoesToTheEndBySeeksWhilePlaying)
{
    view.setMovie(movie(1000, 0.02));
    bool hasStopped = false;
    view.setDidStop([&] { hasStopped = true; });
    ASSERT_TRUE(view.play());
    for (int i = 0; i < 200; ++i) {
        view.setCurrentTime(random() % 10);
        QCoreApplication::processEvents();
    }
    EXPECT_FALSE(hasStopped);
    EXPECT_TRUE(view.isPlaying());
    view.setCurrentTime(1e6);
    ASSERT_TRUE(waitUntil([&] { return hasStopped; }));
    EXPECT_EQ(view.currentTime(), 0);
}

TEST_F(BRRawMovieViewTest, AnotherMovieAndNoneTakeItsPlace)
{
    const auto first = movie(1000, 0.02);
    view.setMovie(first);
    view.showWithPixels({kWidth, kHeight});
    ASSERT_TRUE(view.play());
    ASSERT_TRUE(waitUntil([&] { return first->currentFrameIndex() > 2; }));
    path += u"2"_s;
    view.setMovie(movie(3, 1));
    EXPECT_FALSE(view.isPlaying());
    EXPECT_EQ(first->currentTime(), 0);
    EXPECT_TRUE(waitUntilScreenShows(pictures[0]));
    view.setMovie(nullptr);
    EXPECT_TRUE(view.play());
    EXPECT_FALSE(view.isPlaying());
    QImage black(kWidth, kHeight, QImage::Format_RGB32);
    black.fill(Qt::black);
    EXPECT_TRUE(waitUntilScreenShows(black));
}

TEST_F(BRRawMovieViewTest, MayGoWhileItPlays)
{
    const auto movie = this->movie(1000, 0.004);
    for (std::uint32_t round = 0; round < 20; ++round) {
        movie->setCurrentTime(0);
        auto shown = std::make_unique<BRRawMovieView>(makeDisplayLink());
        shown->setMovie(movie);
        shown->show();
        ASSERT_TRUE(shown->play());
        ASSERT_TRUE(waitUntil([&] { return movie->currentFrameIndex() >= round % 4; }));
        shown.reset();
        QCoreApplication::processEvents();
    }
    // Also when it tells that it has stopped.
    auto shown = std::make_unique<BRRawMovieView>(makeDisplayLink());
    shown->setMovie(movie);
    shown->setDidStop([&, kept = std::make_shared<int>(1)] {
        shown.reset();
        EXPECT_EQ(*kept, 1);
    });
    shown->setCurrentTime(3.9);
    ASSERT_TRUE(shown->play());
    EXPECT_TRUE(waitUntil([&] { return !shown; }));
}

} // namespace
