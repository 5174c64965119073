#include "tests/app/cli/CommandLine.h"
#include "tests/support/Hand.h"
#include "tests/support/PaintedWindow.h"
#include "tests/support/TestConnection.h"

#include <QDir>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace {

constexpr QRgb kPaper = 0xFFC0D0E0;

/// What the command line shows on the screen: on a white one, with a remembered selection.
class OverlaysTest : public CommandLineTest {
protected:
    void SetUp() override
    {
        const Outcome written = run(
            {u"defaults"_s, u"write"_s, u"screenSelectionRect"_s, u"{{10, 20}, {100, 50}}"_s});
        ASSERT_EQ(written.status, 0) << written.errors.toStdString();
    }
    /// The screen's corner, where nothing but the dimming comes.
    static QRgb corner() { return display().screenshot().pixel(0, 0); }
    static void waitUntilFrozen()
    {
        waitUntil([] { return qRed(corner()) * 2 <= qRed(kPaper) + 2; }, "the frozen screen");
    }

    const Hand hand{display().name()};
    const PaintedWindow paper{display(), {0, 0, 320, 240}, kPaper & 0xFFFFFF};
};

TEST_F(OverlaysTest, SelectPrintsWhatWasChosen)
{
    const struct {
        const char *name;
        QStringList arguments;
        std::function<void(const QProcess &)> end;
        int status;
        QString output;
    } rows[] = {
        {"return",
         {u"select"_s},
         [&](auto &) { hand.type(Hand::Return); },
         0,
         u"100x50+11+170\n"_s},
        {"escape", {u"select"_s}, [&](auto &) { hand.type(Hand::Escape); }, 1, {}},
        {"terminate", {u"select"_s}, [&](auto &process) { send(process, SIGTERM); }, 1, {}},
        {"hangUp", {u"select"_s}, [&](auto &process) { send(process, SIGHUP); }, 1, {}},
        {"json",
         {u"select"_s, u"--json"_s},
         [&](auto &) { hand.type(Hand::KeypadEnter); },
         0,
         u"{\"geometry\":\"100x50+11+170\",\"height\":50,\"screenSelectionRect\":"
         "\"{{11, 20}, {100, 50}}\",\"width\":100,\"x\":11,\"y\":170}\n"_s},
    };
    for (const auto &row : rows) {
        SetUp();
        QProcess process;
        start(process, row.arguments);
        waitUntilFrozen();
        hand.type(Hand::Right);
        // A signal may overtake a key: not before the frame has come to what was inside.
        waitUntil([] { return display().screenshot().pixel(10, 180) == 0xFF000000; }, "the key");
        row.end(process);
        const Outcome outcome = outcomeOf(process);
        EXPECT_EQ(outcome.status, row.status) << row.name;
        EXPECT_EQ(outcome.output, row.output) << row.name;
        EXPECT_EQ(outcome.errors, QString()) << row.name;
        EXPECT_EQ(run({u"defaults"_s, u"read"_s, u"screenSelectionRect"_s}).output.trimmed(),
                  u"{{11, 20}, {100, 50}}"_s)
            << row.name;
    }
}

TEST_F(OverlaysTest, RecordsWhatWasSelectedAndNothingOfItsOwn)
{
    QProcess process;
    start(process,
          {u"record"_s, u"--select"_s, u"--countdown"_s, u"--hide-desktop"_s, u"--bounds"_s,
           u"--duration"_s, u"0.5"_s});
    waitUntilFrozen();
    hand.type(Hand::Return);
    const Outcome outcome = outcomeOf(process);
    EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();
    const std::vector<QImage> pictures = picturesOf(outcome.output.trimmed());
    ASSERT_GE(pictures.size(), 2);
    QImage expected(100, 50, QImage::Format_RGB32);
    expected.fill(kPaper);
    // The cursor stands somewhere else.
    for (const QImage &picture : pictures)
        EXPECT_EQ(picture, expected);
}

/// The choice, too, has listened to signals.
TEST_F(OverlaysTest, EverySignalStopsARecordingThatBeganWithAChoice)
{
    std::signal(SIGHUP, SIG_DFL); // The tests may run under nohup, which it would inherit.
    for (const int signal : {SIGHUP, SIGINT}) {
        const QString folder = path(u"Signal%1"_s.arg(signal));
        QProcess process;
        // The toolkit has an option of that name, too.
        start(process, {u"record"_s, u"--movies-folder"_s, folder, u"--select=true"_s});
        waitUntilFrozen();
        hand.type(Hand::Return);
        const QString movie = movieWithFramesIn(folder);
        send(process, signal);
        const Outcome outcome = outcomeOf(process);
        EXPECT_EQ(outcome.status, 0) << signal;
        EXPECT_EQ(outcome.output.trimmed(), movie);
    }
}

/// Where the toolkit is there, it would take options for its own, and connections the numbers of
/// closed files.
TEST_F(OverlaysTest, ArgumentsAndStandardFilesAreOurs)
{
    const Outcome recorded = run({u"record"_s, u"--geometry"_s, u"60x40+200+100"_s,
                                  u"--hide-desktop"_s, u"--duration"_s, u"0.3"_s},
                                 {{u"QT_QPA_PLATFORM"_s, u"offscreen"_s}});
    ASSERT_EQ(recorded.status, 0) << recorded.errors.toStdString();
    EXPECT_EQ(infoOf(recorded.output.trimmed()).value(u"width"_s).toInt(), 60);

    QProcess shell;
    prepare(shell);
    shell.start(u"sh"_s,
                {u"-c"_s, u"exec \"$0\" select <&- >&-"_s, QStringLiteral(TOLVANE_PROGRAM)});
    waitUntilFrozen();
    hand.type(Hand::Return);
    EXPECT_EQ(outcomeOf(shell).status, 0);
}

TEST_F(OverlaysTest, StoppedBeforeItsFirstFrameARecordingLeavesNothing)
{
    const struct {
        const char *name;
        QStringList arguments;
        bool (*isTime)();
        int signal;
        QString error;
    } rows[] = {
        {"selecting", {u"--select"_s}, [] { return corner() != kPaper; }, SIGINT, {}},
        {"counting",
         {u"--countdown"_s},
         [] { return display().screenshot().pixel(160, 10) != kPaper; },
         SIGINT,
         u"tolvane: The recording was stopped before its first frame\n"_s},
        {"covering",
         {u"--hide-desktop"_s},
         [] { return true; },
         SIGTERM,
         u"tolvane: The recording was stopped before its first frame\n"_s},
    };
    for (const auto &row : rows) {
        const QString folder = path(u"Stopped"_s);
        QProcess process;
        start(process, QStringList{u"record"_s, u"--movies-folder"_s, folder} + row.arguments);
        waitUntil(row.isTime, row.name);
        // The folder is made before anything is shown.
        if (!row.error.isEmpty())
            waitUntil([&] { return !QDir(folder).isEmpty(); }, "the folder");
        send(process, row.signal);
        const Outcome outcome = outcomeOf(process);
        EXPECT_EQ(outcome.status, 1) << row.name;
        EXPECT_EQ(outcome.output, QString()) << row.name;
        EXPECT_TRUE(outcome.errors.startsWith(row.error)) << outcome.errors.toStdString();
        EXPECT_TRUE(QDir(folder).isEmpty()) << row.name;
    }
}

/// Qt would end the program as if it had failed somewhere, and say so in its own words.
TEST_F(OverlaysTest, ADisplayThatGoesLeavesWhatWasRecorded)
{
    for (const bool isRecording : {false, true}) {
        VirtualDisplay dying(320, 240);
        const PaintedWindow there(dying, {0, 0, 320, 240}, kPaper & 0xFFFFFF);
        const QString folder = path(u"Dying"_s);
        QProcess process;
        start(process,
              isRecording
                  ? QStringList{u"record"_s, u"--hide-desktop"_s, u"--movies-folder"_s, folder}
                  : QStringList{u"select"_s},
              {{u"DISPLAY"_s, dying.name()}});
        if (isRecording)
            movieWithFramesIn(folder);
        else
            waitUntil([&] { return dying.screenshot().pixel(0, 0) != kPaper; }, "the picture");
        dying.kill();
        const Outcome outcome = outcomeOf(process);
        EXPECT_EQ(outcome.status, 4) << isRecording;
        EXPECT_EQ(outcome.errors.count(u'\n'), 1) << outcome.errors.toStdString();
        if (isRecording) {
            EXPECT_GE(infoOf(movieWithFramesIn(folder)).value(u"frames"_s).toInt(), 1);
        }
    }
}

TEST_F(OverlaysTest, SaysWhyItCannotShowAnything)
{
    const Outcome noDisplay = run({u"select"_s}, {{u"DISPLAY"_s, u":987"_s}});
    EXPECT_EQ(noDisplay.status, 4);
    EXPECT_EQ(noDisplay.errors.count(u'\n'), 1) << noDisplay.errors.toStdString();
    EXPECT_EQ(run({u"record"_s, u"--countdown"_s}, {{u"DISPLAY"_s, u":987"_s}}).status, 4);
    EXPECT_EQ(run({u"record"_s, u"--select"_s, u"--follow"_s, u"64x48"_s}).status, 2);

    ASSERT_EQ(
        run({u"defaults"_s, u"write"_s, u"screenSelectionRect"_s, u"{{10, 20}, {0, 50}}"_s}).status,
        0);
    QProcess process;
    start(process, {u"record"_s, u"--select"_s});
    waitUntilFrozen();
    hand.type(Hand::Return);
    const Outcome empty = outcomeOf(process);
    EXPECT_EQ(empty.status, 2);
    EXPECT_TRUE(empty.errors.startsWith(u"tolvane: The selection is empty"_s))
        << empty.errors.toStdString();
}

constexpr int kF5 = 71; // Of the keyboard that `Hand` has.
constexpr int k2 = 11;
constexpr int kSuper = 133;

TEST_F(OverlaysTest, ClicksKeysAndHighlightAreRecordedUntilTheHotKey)
{
    constexpr QRgb kRed = 0xFFFF0000;
    ASSERT_EQ(run({u"defaults"_s, u"write"_s, u"keyboardEventTextSize"_s, u"24"_s}).status, 0);
    const QString folder = path(u"Shown"_s);
    QProcess process;
    start(process,
          {u"record"_s, u"--geometry"_s, u"320x240+0+0"_s, u"--no-cursor"_s, u"--movies-folder"_s,
           folder, u"--show-clicks"_s, u"--show-keys"_s, u"--highlight"_s});
    (void)movieWithFramesIn(folder);
    const auto shows
        = [](QPoint place, QRgb color) { return display().screenshot().pixel(place) == color; };
    const QPoint click(60, 70);
    const QPoint bezel(320 - 10 - 12, 240 - 10 - 3); // Inside of its corner.
    hand.moveTo(click);
    waitUntil([&] { return shows(click - QPoint(15, 15), kRed); }, "the highlight");
    hand.press(Hand::LeftButton);
    waitUntil([&] { return !shows(click, kRed); }, "the mark of the held button");
    hand.release(Hand::LeftButton);
    hand.type(kF5);
    waitUntil([&] { return shows(bezel, qRgb(0, 0, 0)); }, "the key");
    for (const int modifier : {kSuper, static_cast<int>(Hand::Shift)})
        hand.keyDown(modifier);
    hand.type(k2);
    for (const int modifier : {kSuper, static_cast<int>(Hand::Shift)})
        hand.keyUp(modifier);
    const Outcome outcome = outcomeOf(process);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.errors, QString());
    const QImage last = picturesOf(outcome.output.trimmed()).back();
    EXPECT_EQ(last.pixel(click - QPoint(15, 15)), kRed);
    EXPECT_EQ(last.pixel(bezel), qRgb(0, 0, 0));
    EXPECT_TRUE(shows(click, kPaper) && shows(bezel, kPaper)) << "nothing stays";
}

TEST_F(OverlaysTest, KeysAreNotShownUnlessAskedForAndAHeldHotKeyIsSaid)
{
    const TestConnection other(display().name());
    xcb_grab_key(other.get(), 1, other.root(), XCB_MOD_MASK_4 | XCB_MOD_MASK_SHIFT, k2,
                 XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    other.sync();
    const QString folder = path(u"NotShown"_s);
    QProcess process;
    start(process,
          {u"record"_s, u"--geometry"_s, u"320x240+0+0"_s, u"--no-cursor"_s, u"--movies-folder"_s,
           folder, u"--show-clicks"_s});
    (void)movieWithFramesIn(folder);
    hand.moveTo({60, 70});
    hand.type(kF5);
    hand.press(Hand::RightButton);
    waitUntil([&] { return display().screenshot().pixel(60, 70) != kPaper; }, "the mark");
    hand.release(Hand::RightButton);
    send(process, SIGINT);
    const Outcome outcome = outcomeOf(process);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(outcome.errors.contains(u"Could not register hotkey 10"_s));
    for (const QImage &picture : picturesOf(outcome.output.trimmed()))
        EXPECT_EQ(picture.pixel(320 - 10 - 12, 240 - 10 - 3), kPaper);
}

} // namespace
