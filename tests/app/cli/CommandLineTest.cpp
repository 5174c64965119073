#include "tests/app/cli/CommandLine.h"
#include "tests/support/PaintedWindow.h"

#include <QDeadlineTimer>
#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace {

TEST_F(CommandLineTest, RecordsInspectsAndExports)
{
    PaintedWindow window(display(), {20, 30, 100, 80}, 0xCC3311);
    const QString movie = record("--geometry 200x150+10+20 --duration 0.5 --no-cursor");
    EXPECT_TRUE(movie.startsWith(path(u"Movies/"_s)));

    const QJsonObject info = infoOf(movie);
    EXPECT_EQ(info.value(u"format"_s).toInt(), 2);
    EXPECT_EQ(info.value(u"width"_s).toInt(), 200);
    EXPECT_EQ(info.value(u"frames"_s).toInt(), info.value(u"indexRecords"_s).toInt());
    EXPECT_EQ(info.value(u"compression"_s).toString(), u"lzo"_s);
    EXPECT_GT(info.value(u"duration"_s).toDouble(), 0.4);

    const std::vector<QImage> pictures = picturesOf(movie);
    EXPECT_EQ(qint64(pictures.size()), info.value(u"frames"_s).toInt());
    EXPECT_EQ(pictures.back(), display().screenshot().copy(10, 20, 200, 150));
    const QJsonArray frames
        = QJsonDocument::fromJson(contentsOf(movie + u"/pictures/frames.json"_s)).array();
    EXPECT_EQ(frames.size(), info.value(u"frames"_s).toInt());
    EXPECT_TRUE(frames.first().toObject().value(u"keyframe"_s).toBool());

    const Outcome exported = run(words("export -o ~/out.mov --scale 50 --no-audio --video-codec")
                                 << u"png "_s << movie);
    EXPECT_EQ(exported.status, 0) << exported.errors.toStdString();
    EXPECT_EQ(exported.output.trimmed(), path(u"out.mov"_s));
    QProcess probe;
    probe.start(u"ffprobe"_s,
                words("-v error -show_entries stream=codec_name,width,height,time_base,nb_frames "
                      "-of csv=p=0 ~/out.mov"));
    EXPECT_EQ(outcomeOf(probe).output.trimmed(), u"png,100,75,1/3000,%1"_s.arg(frames.size()));
}

TEST_F(CommandLineTest, FollowsThePointer)
{
    PaintedWindow window(display(), {0, 0, 320, 240});
    std::mt19937 random(13);
    window.fillAtRandom(random, 100);
    const QImage screen = display().screenshot();
    display().warpPointer(200, 150);
    QProcess process;
    start(process, words("record --follow 100x60 --no-cursor --movies-folder ~/Movies"));
    movieWithFramesIn(path(u"Movies"_s));
    display().movePointerBy(-80, -60);
    // One more frame of the old place, in which the pointer is seen to have moved.
    const QString movie = movieWithFramesIn(path(u"Movies"_s), 3);
    send(process, SIGINT);
    EXPECT_EQ(outcomeOf(process).status, 0);
    const std::vector<QImage> pictures = picturesOf(movie);
    EXPECT_EQ(pictures.front(), screen.copy(150, 120, 100, 60));
    EXPECT_EQ(pictures.back(), screen.copy(70, 60, 100, 60));
}

TEST_F(CommandLineTest, SignalsStopAndKeep)
{
    std::signal(SIGHUP, SIG_DFL); // The tests may run under nohup, which it would inherit.
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        QProcess process;
        const QString folder = path(u"Movies%1"_s.arg(signal));
        start(process, {u"record"_s, u"--movies-folder"_s, folder});
        const QString movie = movieWithFramesIn(folder);
        send(process, signal);
        send(process, signal);
        const Outcome outcome = outcomeOf(process);
        EXPECT_EQ(outcome.status, 0) << signal;
        EXPECT_EQ(outcome.output.trimmed(), movie);
        EXPECT_EQ(infoOf(movie).value(u"frames"_s).toInt(), 2);
    }
}

TEST_F(CommandLineTest, EveryCompleteFrameOutlivesAKill)
{
    PaintedWindow window(display(), {0, 0, 200, 200});
    std::mt19937 random(20);
    for (int run = 0; run < 20; ++run) {
        const QString folder = path(u"Killed%1"_s.arg(run));
        QProcess process;
        start(process,
              words("record --rate 60 --codec")
                  << (run % 2 ? u"rle"_s : u"lzo"_s) << u"--movies-folder"_s << folder);
        const QString movie = movieWithFramesIn(folder);
        const QDeadlineTimer instant(std::uniform_int_distribution<int>(0, 250)(random));
        while (!instant.hasExpired())
            window.fillAtRandom(random, 3);
        send(process, SIGKILL);
        process.waitForFinished(-1);

        const Outcome written = this->run(words("frames --format bgra --out ~/out") << movie);
        EXPECT_EQ(written.status, 0) << written.errors.toStdString();
        const qsizetype frames
            = QJsonDocument::fromJson(contentsOf(path(u"out/frames.json"_s))).array().size();
        const qint64 indexed
            = QFileInfo(movie + u"/Brimmet Capture Video Data.index"_s).size() / 24;
        // The index may lack the very last frame, never name one that is not there.
        EXPECT_GE(frames, indexed) << run;
        EXPECT_LE(frames, indexed + 1) << run;
    }
}

TEST_F(CommandLineTest, TwoRecordAtTheSameTime)
{
    QProcess first;
    QProcess second;
    // A real X server inside such a session can be recorded.
    const Variables wayland = {{u"XDG_SESSION_TYPE"_s, u"wayland"_s}};
    for (QProcess *process : {&first, &second})
        start(*process, words("record --duration 0.5 --movies-folder ~/Both"), wayland);
    const Outcome one = outcomeOf(first);
    const Outcome other = outcomeOf(second);
    EXPECT_EQ(one.status + other.status, 0);
    EXPECT_NE(one.output, other.output);
    EXPECT_EQ(QDir(path(u"Both"_s)).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size(), 2);
}

TEST_F(CommandLineTest, SettingsAreUsedAndArgumentsWin)
{
    for (const char *setting : {"captureRate 12", "optimizeFor 1", "moviesFolderPath ~/Mine"})
        EXPECT_EQ(run(words("defaults write") + words(setting)).status, 0) << setting;
    EXPECT_EQ(run(words("defaults write screenSelectionRect") << u"{{10, 20}, {60, 50}}"_s).status,
              0);
    EXPECT_EQ(run(words("defaults read captureRate")).output, u"12\n"_s);
    const QString movie = run(words("record --duration 0.2")).output.trimmed();
    EXPECT_TRUE(movie.startsWith(path(u"Mine/"_s)));
    const QJsonObject info = infoOf(movie);
    EXPECT_EQ(info.value(u"width"_s).toInt(), 60);
    EXPECT_EQ(info.value(u"compression"_s).toString(), u"rle"_s);

    EXPECT_EQ(run(words("defaults delete captureRate --json")).status, 0);
    EXPECT_EQ(run(words("defaults read captureRate --json")).output, u"30\n"_s);
    const auto all = run(words("defaults read --json")).output.toUtf8();
    EXPECT_EQ(QJsonDocument::fromJson(all).object().value(u"cursorCameraWidth"_s).toInt(), 640);
}

TEST_F(CommandLineTest, SaysWhatItCannotDoInOneLineWithAStatus)
{
    writeFile(path(u"garbage"_s),
              "this is no capture, whatever its name says; it is only some text");
    writeFile(path(u"empty"_s), "");
    QDir().mkpath(path(u"folder"_s));
    ASSERT_TRUE(QDir().rename(record(), path(u"movie"_s)));

    // Settings that choose the codec 'yyyy'.
    const Variables oddSettings = {{u"XDG_CONFIG_HOME"_s, path(u"odd"_s)}};
    ASSERT_EQ(run(words("defaults write --json CompressionDialogSettings "
                        "{\"data\":\"AAAAFnNwdGx5eXl5AAAAAAAYAAADAA==\"}"),
                  oddSettings)
                  .status,
              0);
    const Variables withDisplay;
    const Variables oddHome = {{u"XDG_DATA_HOME"_s, u"/proc/home"_s}};
    const Variables wayland = {{u"DISPLAY"_s, u":4711"_s}, {u"XDG_SESSION_TYPE"_s, u"wayland"_s}};
    const Variables onlyWayland
        = {{u"DISPLAY"_s, QString()}, {u"WAYLAND_DISPLAY"_s, u"wayland-0"_s}};
    const struct {
        const char *line;
        int status;
        const char *named; ///< What the message must name.
        Variables variables = {{u"DISPLAY"_s, u":4711"_s}}; ///< No display.
    } cases[] = {
        {"", 2, "subcommand"},
        {"record --fast", 2, "--fast"},
        {"record --rate 0", 2, "0 frames"},
        {"record --rate 1e9", 2, "1e+09"},
        {"record --rate 1e-40", 2, "frames per second"},
        {"record --codec none", 2, "none"},
        {"record --geometry 10x", 2, "10x"},
        {"record --geometry 10x10+900+0", 2, "outside", withDisplay},
        {"record --follow 0x0", 2, "0x0"},
        {"record --duration 0", 2, "0 seconds"},
        {"record --duration inf", 2, "inf"},
        {"record --movies-folder ~/garbage", 6, "garbage", withDisplay},
        {"record --movies-folder /proc/movies", 6, "/proc/movies", withDisplay},
        {"record", 6, "/proc/home: ", oddHome},
        {"record", 4, "cannot open display \":4711\""},
        {"record", 4, "needs an X11 session", wayland},
        {"record", 4, "needs an X11 session", onlyWayland},
        {"defaults write --json x {\"a\":[null]}", 2, "null"},
        {"defaults write --json x [{\"data\":\"%%%\"}]", 2, "%%%"},
        {"defaults write captureScale nan", 2, "nan"},
        {"defaults write captureRate fast", 2, "fast"},
        {"defaults read nothing", 3, "nothing"},
        {"defaults delete --json", 2, "key"},
        {"info ~/missing", 3, "missing"},
        {"info ~/folder", 3, "folder"},
        {"info ~/garbage", 1, "garbage"},
        {"info ~/empty", 1, "empty"},
        {"frames ~/garbage --out ~/o", 1, "garbage"},
        {"frames ~/movie --out ~/garbage", 6, "garbage"},
        {"export ~/movie -o ~/movie/Info.plist", 2, "Info.plist"},
        {"export ~/movie -o /proc/x.mov", 6, "/proc/Tolvane Temp.mov: "},
        {"export ~/missing -o ~/o.mov", 3, "missing"},
        {"export ~/garbage -o ~/o.mov", 1, "garbage"},
        {"export ~/movie -o ~/o.mov --video-codec zzzz", 1, "zzzz"},
        {"export ~/movie -o ~/o.mov --video-codec h.264", 2, "h.264"},
        {"export ~/movie -o ~/o.mov", 1, "'yyyy'", oddSettings},
        {"export ~/missing -o ~/o.mov --size 12", 2, "12"},
        {"export ~/movie -o ~/o.mov --scale 9999", 2, "16384"},
    };
    const auto check = [](const char *line, const Outcome &outcome, int status, const char *named) {
        SCOPED_TRACE(line + (": " + outcome.errors.toStdString()));
        EXPECT_EQ(outcome.status, status);
        EXPECT_TRUE(outcome.errors.contains(QLatin1StringView(named)));
        EXPECT_TRUE(outcome.output.isEmpty());
        // One line; wrong usage may add where the help is.
        EXPECT_LE(outcome.errors.count(u'\n'), status == 2 ? 2 : 1);
    };
    for (const auto &c : cases)
        check(c.line, run(words(c.line), c.variables), c.status, c.named);
    check("no folder", run(words("record --movies-folder") << QString()), 2, "movies folder");
    check("over the index",
          run(words("export ~/movie -o") << path(u"movie/Brimmet Capture Video Data.index"_s)), 2,
          ".index");
    EXPECT_FALSE(QFileInfo::exists(path(u"o.mov"_s)));
    EXPECT_FALSE(QFileInfo::exists(path(u"o"_s)));
    EXPECT_EQ(QDir(path(u"folder"_s)).count(), 2U);
}

TEST_F(CommandLineTest, WarnsOnceAndGoesOn)
{
    ASSERT_TRUE(QDir().rename(record(), path(u"movie"_s)));
    const QString capture = path(u"movie/Brimmet Capture Video Data"_s);
    for (const QString &copy : {path(u"cut"_s), path(u"whole"_s)})
        ASSERT_TRUE(QFile::copy(capture, copy));
    ASSERT_TRUE(QFile::resize(path(u"cut"_s), QFileInfo(capture).size() - 1));
    ASSERT_TRUE(QFile::copy(capture + u".index"_s, path(u"cut.index"_s)));
    for (const QString &list :
         {u"movie/Info.plist"_s, u"odd/Tolvane/com.pexarworks.tolvane.plist"_s})
        writeFile(path(list), "<plist><dict>");

    const Variables oddSettings = {{u"XDG_CONFIG_HOME"_s, path(u"odd"_s)}};
    const Variables oddHome = {{u"XDG_DATA_HOME"_s, u"/proc/home"_s}};
    const struct {
        const char *line;
        const char *warning; ///< Empty where nothing is to be said.
        Variables variables = {};
    } cases[] = {
        {"info ~/cut", "was cut short"},
        {"frames ~/cut --out ~/o", "was cut short"},
        {"export ~/cut -o ~/o.mov", "was cut short"},
        {"export ~/movie -o ~/o.mov", "Info.plist"},
        {"export ~/whole -o ~/o.mov --video-codec apcn --quality 9",
         "--quality has no effect with 'apcn'"},
        {"export ~/whole -o ~/o.mov --video-codec mp4v --full-chroma",
         "--full-chroma has no effect with 'mp4v'"},
        {"defaults read lossyLevel", "tolvane damaged.plist", oddSettings},
        {"defaults read lossyLevel", "", oddSettings}, // It was put aside.
        {"defaults read moviesFolderPath", "", oddHome},
        {"--version", "", oddHome},
    };
    for (const auto &c : cases) {
        const Outcome outcome = run(words(c.line), c.variables);
        SCOPED_TRACE(c.line + (": " + outcome.errors.toStdString()));
        const bool isSilent = *c.warning == '\0';
        EXPECT_EQ(outcome.status, 0);
        EXPECT_TRUE(outcome.errors.startsWith(isSilent ? QString() : u"tolvane: warning: "_s));
        EXPECT_TRUE(outcome.errors.contains(QLatin1StringView(c.warning)));
        EXPECT_EQ(outcome.errors.count(u'\n'), isSilent ? 0 : 1);
    }
}

TEST_F(CommandLineTest, DataThatCannotBeWrittenIsAFailure)
{
    for (const char *line : {"--version", "defaults read"}) {
        QProcess process;
        process.setStandardOutputFile(u"/dev/full"_s);
        start(process, words(line));
        const Outcome outcome = outcomeOf(process);
        EXPECT_EQ(outcome.status, 6) << line;
        EXPECT_EQ(outcome.errors,
                  u"tolvane: Could not write to the standard output: No space left on device\n"_s);
    }
}

TEST_F(CommandLineTest, AFileThatMayNotGrowIsAFailure)
{
    const QString movie = record();
    writeFile(path(u"out/o.mov"_s), "old");
    QProcess process;
    prepare(process);
    process.start(u"sh"_s,
                  QStringList{u"-c"_s, u"ulimit -f 1; exec \"$@\""_s, u"sh"_s,
                              QStringLiteral(TOLVANE_PROGRAM)}
                          + words("export -o ~/out/o.mov")
                      << movie);
    const Outcome outcome = outcomeOf(process);
    EXPECT_EQ(outcome.status, 6) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.errors.contains(u"File too large"_s)) << outcome.errors.toStdString();
    EXPECT_EQ(contentsOf(path(u"out/o.mov"_s)), "old");
    EXPECT_EQ(QDir(path(u"out"_s)).entryList(QDir::Files | QDir::Hidden).size(), 1);
}

TEST_F(CommandLineTest, AreasAreWhereXPutsThem)
{
    const PaintedWindow window(display(), {260, 200, 60, 40}, 0xCC3311);
    const struct {
        const char *geometry;
        QRect area;
        const char *warning; ///< What is recorded instead; empty where nothing is to be said.
    } cases[] = {
        {"100x50-0-0", {220, 190, 100, 50}, ""},
        {"=100X50-10+20", {210, 20, 100, 50}, ""},
        {"100x50+-30+0", {0, 0, 70, 50}, "70x50+0+0"},
        {"100x50--30-0", {250, 190, 70, 50}, "70x50+250+190"},
        {"200x150+250+200", {250, 200, 70, 40}, "70x40+250+200"},
    };
    for (const auto &c : cases) {
        const Outcome outcome
            = run(words("record --no-cursor --duration 0.05 --movies-folder ~/M --geometry")
                  << QString::fromLatin1(c.geometry));
        EXPECT_EQ(outcome.status, 0) << c.geometry;
        EXPECT_EQ(outcome.errors.isEmpty(), *c.warning == '\0') << c.geometry;
        EXPECT_TRUE(outcome.errors.contains(QString::fromLatin1(c.warning)))
            << outcome.errors.toStdString();
        EXPECT_EQ(picturesOf(outcome.output.trimmed()).back(), display().screenshot().copy(c.area))
            << c.geometry;
    }
}

TEST_F(CommandLineTest, AFullDiskStopsTheRecordingAndKeepsWhatWasWritten)
{
    // A disk of two megabytes, which only the programs of one new mount namespace see.
    const QString disk = path(u"disk"_s);
    ASSERT_TRUE(QDir().mkpath(disk));
    // Root in a container may be allowed the one and not the other.
    const QString inNamespace
        = u"unshare -Urm true 2>&- && exec unshare -Urm \"$@\"; exec unshare -m \"$@\""_s;
    const QString script = uR"(
        mount -t tmpfs -o size=2m none "$1" || exit 100
        "$2" record --rate 60 --movies-folder "$1"
        status=$?
        "$2" info "$1"/* --json
        exit $status)"_s;
    PaintedWindow window(display(), {0, 0, 320, 240});
    std::mt19937 random(31);
    QProcess process;
    prepare(process);
    process.start(u"sh"_s,
                  {u"-c"_s, inNamespace, u"sh"_s, u"sh"_s, u"-c"_s, script, u"sh"_s, disk,
                   QStringLiteral(TOLVANE_PROGRAM)});
    while (process.state() != QProcess::NotRunning && !process.waitForFinished(10))
        window.fillAtRandom(random, 20);
    const Outcome outcome = outcomeOf(process);
    if (outcome.status == 100 || outcome.errors.startsWith(u"unshare:"_s))
        GTEST_SKIP() << "no disk may be mounted here: " << outcome.errors.toStdString();
    EXPECT_EQ(outcome.status, 6);
    EXPECT_EQ(outcome.errors.count(u'\n'), 1) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.errors.contains(u"No space left on device"_s));
    const QStringList lines = outcome.output.trimmed().split(u'\n');
    ASSERT_EQ(lines.size(), 2);
    EXPECT_TRUE(lines[0].startsWith(disk));
    const QJsonObject info = QJsonDocument::fromJson(lines[1].toUtf8()).object();
    EXPECT_GT(info.value(u"frames"_s).toInt(), 1);
    EXPECT_EQ(info.value(u"frames"_s), info.value(u"indexRecords"_s));
}

} // namespace
