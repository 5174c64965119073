#include "rawmovie/view/BRRawMoviePlayer.h"

#include "tests/rawmovie/view/PaintedMovie.h"

#include <QKeyEvent>
#include <QLabel>
#include <QSlider>
#include <QToolButton>

using namespace Qt::StringLiterals;

namespace {

class BRRawMoviePlayerTest : public PaintedMovieTest {
protected:
    void press(int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QKeyEvent event(QEvent::KeyPress, key, modifiers);
        QCoreApplication::sendEvent(&player, &event);
    }
    [[nodiscard]] QString time() const { return player.findChild<QLabel *>()->text(); }
    [[nodiscard]] QString buttonName() const { return button->accessibleName(); }

    BRRawMoviePlayer player{makeDisplayLink()};
    QSlider *const slider = player.findChild<QSlider *>();
    QToolButton *const button = player.findChild<QToolButton *>();
};

TEST_F(BRRawMoviePlayerTest, KeysAndSliderGoToATime)
{
    player.setMovie(movie(100, 0.25));
    EXPECT_EQ(time(), u"00:00.0 / 00:25.0"_s);
    const struct {
        const char *name;
        double from;
        int key;
        Qt::KeyboardModifier modifier;
        double to;
        QString shown;
    } rows[] = {
        {"aSecondOn", 3.5, Qt::Key_Right, Qt::NoModifier, 4.5, u"00:04.5 / 00:25.0"_s},
        {"aSecondBack", 3.5, Qt::Key_Left, Qt::NoModifier, 2.5, u"00:02.5 / 00:25.0"_s},
        {"notBeforeTheBeginning", 0.5, Qt::Key_Left, Qt::NoModifier, 0, u"00:00.0 / 00:25.0"_s},
        {"notBehindTheEnd", 24.5, Qt::Key_Right, Qt::NoModifier, 25, u"00:25.0 / 00:25.0"_s},
        {"aFrameOn", 3.6, Qt::Key_Right, Qt::ShiftModifier, 3.75, u"00:03.7 / 00:25.0"_s},
        {"aFrameBack", 3.6, Qt::Key_Left, Qt::ShiftModifier, 3.25, u"00:03.2 / 00:25.0"_s},
        {"noFrameBeforeTheFirst", 0, Qt::Key_Left, Qt::ShiftModifier, 0, u"00:00.0 / 00:25.0"_s},
        {"beginning", 7, Qt::Key_Home, Qt::NoModifier, 0, u"00:00.0 / 00:25.0"_s},
        {"end", 7, Qt::Key_End, Qt::NoModifier, 25, u"00:25.0 / 00:25.0"_s},
    };
    for (const auto &row : rows) {
        slider->setValue(static_cast<int>(row.from * 1000));
        EXPECT_EQ(player.view().currentTime(), row.from) << row.name;
        press(row.key, row.modifier);
        EXPECT_EQ(player.view().currentTime(), row.to) << row.name;
        EXPECT_EQ(slider->value(), row.to * 1000) << row.name;
        EXPECT_EQ(time(), row.shown) << row.name;
    }
}

TEST_F(BRRawMoviePlayerTest, ButtonAndSpacePlayAndPause)
{
    press(Qt::Key_Space);
    EXPECT_FALSE(player.view().isPlaying()) << "without a movie";
    player.setMovie(movie(100, 0.05));
    EXPECT_EQ(buttonName(), u"Play"_s);
    press(Qt::Key_Space);
    EXPECT_TRUE(player.view().isPlaying());
    EXPECT_EQ(buttonName(), u"Pause"_s);
    EXPECT_TRUE(waitUntil([&] { return slider->value() > 100; })) << "the slider follows";
    button->click();
    EXPECT_FALSE(player.view().isPlaying());
    EXPECT_EQ(buttonName(), u"Play"_s);
    EXPECT_GT(player.view().currentTime(), 0.1);

    press(Qt::Key_Space);
    press(Qt::Key_End);
    EXPECT_TRUE(waitUntil([&] { return !player.view().isPlaying(); }));
    EXPECT_EQ(buttonName(), u"Play"_s);
    EXPECT_EQ(slider->value(), 0);
}

TEST_F(BRRawMoviePlayerTest, ADisplayThatCannotPaceIsTold)
{
    BRRawMoviePlayer unpaced([] {
        return PXFail(PXError{u"test"_s, 1, u"no refreshes"_s, {}, {}});
    });
    QString told;
    unpaced.setDidFail([&](const PXError &error) { told = error.description; });
    unpaced.setMovie(movie(3, 1));
    unpaced.togglePlaying();
    EXPECT_EQ(told, u"no refreshes"_s);
    EXPECT_FALSE(unpaced.view().isPlaying());
}

} // namespace
