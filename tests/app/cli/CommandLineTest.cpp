#include "tests/app/cli/CommandLine.h"
#include "tests/support/PaintedWindow.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace {

TEST_F(CommandLineTest, RecordsInspectsAndExports)
{
    PaintedWindow window(display(), {20, 30, 100, 80}, 0xCC3311);
    const Outcome recorded
        = run({u"record"_s, u"--geometry"_s, u"200x150+10+20"_s, u"--duration"_s, u"0.5"_s,
               u"--no-cursor"_s, u"--movies-folder"_s, path(u"Movies"_s)});
    ASSERT_EQ(recorded.status, 0) << recorded.errors.toStdString();
    const QString movie = recorded.output.trimmed().split(u'\n').last();
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
    QFile list(movie + u"/pictures/frames.json"_s);
    ASSERT_TRUE(list.open(QIODevice::ReadOnly));
    const QJsonArray frames = QJsonDocument::fromJson(list.readAll()).array();
    EXPECT_EQ(frames.size(), info.value(u"frames"_s).toInt());
    EXPECT_TRUE(frames.first().toObject().value(u"keyframe"_s).toBool());

    const Outcome exported
        = run({u"export"_s, movie, u"-o"_s, path(u"out.mov"_s), u"--video-codec"_s, u"png "_s,
               u"--scale"_s, u"50"_s, u"--no-audio"_s});
    EXPECT_EQ(exported.status, 0) << exported.errors.toStdString();
    EXPECT_EQ(exported.output.trimmed(), path(u"out.mov"_s));
    QProcess probe;
    probe.start(u"ffprobe"_s,
                {u"-v"_s, u"error"_s, u"-show_entries"_s,
                 u"stream=codec_name,width,height,time_base,nb_frames"_s, u"-of"_s, u"csv=p=0"_s,
                 path(u"out.mov"_s)});
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
    start(process,
          {u"record"_s, u"--follow"_s, u"100x60"_s, u"--no-cursor"_s, u"--movies-folder"_s,
           path(u"Movies"_s)});
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
              {u"record"_s, u"--rate"_s, u"60"_s, u"--codec"_s, run % 2 ? u"rle"_s : u"lzo"_s,
               u"--movies-folder"_s, folder});
        const QString movie = movieWithFramesIn(folder);
        const QDeadlineTimer instant(std::uniform_int_distribution<int>(0, 250)(random));
        while (!instant.hasExpired())
            window.fillAtRandom(random, 3);
        send(process, SIGKILL);
        process.waitForFinished(-1);

        const Outcome read = this->run(
            {u"frames"_s, movie, u"--out"_s, movie + u"/out"_s, u"--format"_s, u"bgra"_s});
        EXPECT_EQ(read.status, 0) << read.errors.toStdString();
        QFile list(movie + u"/out/frames.json"_s);
        ASSERT_TRUE(list.open(QIODevice::ReadOnly));
        const qsizetype frames = QJsonDocument::fromJson(list.readAll()).array().size();
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
    const QStringList arguments
        = {u"record"_s, u"--duration"_s, u"0.5"_s, u"--movies-folder"_s, path(u"Both"_s)};
    start(first, arguments);
    start(second, arguments);
    const Outcome one = outcomeOf(first);
    const Outcome other = outcomeOf(second);
    EXPECT_EQ(one.status + other.status, 0);
    EXPECT_NE(one.output, other.output);
    EXPECT_EQ(QDir(path(u"Both"_s)).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size(), 2);
}

TEST_F(CommandLineTest, SettingsAreUsedAndArgumentsWin)
{
    EXPECT_EQ(run({u"defaults"_s, u"write"_s, u"captureRate"_s, u"12"_s}).status, 0);
    EXPECT_EQ(run({u"defaults"_s, u"write"_s, u"screenSelectionRect"_s, u"{{10, 20}, {60, 50}}"_s})
                  .status,
              0);
    EXPECT_EQ(run({u"defaults"_s, u"write"_s, u"optimizeFor"_s, u"1"_s}).status, 0);
    EXPECT_EQ(run({u"defaults"_s, u"write"_s, u"moviesFolderPath"_s, path(u"Mine"_s)}).status, 0);
    EXPECT_EQ(run({u"defaults"_s, u"read"_s, u"captureRate"_s}).output.trimmed(), u"12"_s);
    const Outcome outcome = run({u"record"_s, u"--duration"_s, u"0.2"_s});
    const QString movie = outcome.output.trimmed();
    EXPECT_TRUE(movie.startsWith(path(u"Mine/"_s)));
    const QJsonObject info = infoOf(movie);
    EXPECT_EQ(info.value(u"width"_s).toInt(), 60);
    EXPECT_EQ(info.value(u"compression"_s).toString(), u"rle"_s);

    EXPECT_EQ(run({u"defaults"_s, u"delete"_s, u"captureRate"_s, u"--json"_s}).status, 0);
    EXPECT_EQ(run({u"defaults"_s, u"read"_s, u"captureRate"_s, u"--json"_s}).output.trimmed(),
              u"30"_s);
    const auto all = run({u"defaults"_s, u"read"_s, u"--json"_s}).output.toUtf8();
    EXPECT_EQ(QJsonDocument::fromJson(all).object().value(u"cursorCameraWidth"_s).toInt(), 640);
}

TEST_F(CommandLineTest, SaysWhatItCannotDoInOneLineWithAStatus)
{
    const QString folder = path(u"Movies"_s);
    QFile garbage(path(u"garbage"_s));
    ASSERT_TRUE(garbage.open(QIODevice::WriteOnly));
    garbage.write("this is no capture, whatever its name says; it is only some text");
    garbage.close();
    QFile empty(path(u"empty"_s));
    ASSERT_TRUE(empty.open(QIODevice::WriteOnly));
    empty.close();
    QDir().mkpath(path(u"folder"_s));
    const QString movie
        = run({u"record"_s, u"--duration"_s, u"0.1"_s, u"--movies-folder"_s, folder})
              .output.trimmed();

    // Settings that choose the codec 'yyyy'.
    const Variables oddSettings = {{u"XDG_CONFIG_HOME"_s, path(u"odd"_s)}};
    ASSERT_EQ(run({u"defaults"_s, u"write"_s, u"--json"_s, u"CompressionDialogSettings"_s,
                   u"{\"data\":\"AAAAFnNwdGx5eXl5AAAAAAAYAAADAA==\"}"_s},
                  oddSettings)
                  .status,
              0);

    struct Case {
        const char *name;
        QStringList arguments;
        int status;
        QString named; ///< What the message must name.
        Variables variables = {{u"DISPLAY"_s, u":4711"_s}}; ///< No display.
    };
    const Variables withDisplay;
    const Case cases[] = {
        {"noCommand", {}, 2, u"subcommand"_s},
        {"unknownOption", {u"record"_s, u"--fast"_s}, 2, u"--fast"_s},
        {"rateOfZero", {u"record"_s, u"--rate"_s, u"0"_s}, 2, u"0 frames"_s},
        {"negativeRate", {u"record"_s, u"--rate"_s, u"-5"_s}, 2, u"-5"_s},
        {"absurdRate", {u"record"_s, u"--rate"_s, u"1e9"_s}, 2, u"1e+09"_s},
        {"unknownCodec", {u"record"_s, u"--codec"_s, u"none"_s}, 2, u"none"_s},
        {"noArea", {u"record"_s, u"--geometry"_s, u"10x"_s}, 2, u"10x"_s},
        {"outside", {u"record"_s, u"--geometry"_s, u"10x10+900+0"_s}, 2, u"outside"_s, withDisplay},
        {"noSize", {u"record"_s, u"--follow"_s, u"0x0"_s}, 2, u"0x0"_s},
        {"tinyRate", {u"record"_s, u"--rate"_s, u"1e-40"_s}, 2, u"frames per second"_s},
        {"endless", {u"record"_s, u"--duration"_s, u"inf"_s}, 2, u"inf"_s},
        {"noMoviesFolder", {u"record"_s, u"--movies-folder"_s, QString()}, 2, u"movies folder"_s},
        {"nullInJSON",
         {u"defaults"_s, u"write"_s, u"--json"_s, u"x"_s, u"{\"a\":[null]}"_s},
         2,
         u"null"_s},
        {"notANumber", {u"defaults"_s, u"write"_s, u"captureScale"_s, u"nan"_s}, 2, u"nan"_s},
        {"exportOverTheIndex",
         {u"export"_s, movie, u"-o"_s, movie + u"/Brimmet Capture Video Data.index"_s},
         2,
         u".index"_s},
        {"exportOverTheInfo",
         {u"export"_s, movie, u"-o"_s, movie + u"/Info.plist"_s},
         2,
         u"Info.plist"_s},
        {"dataOfNoBase64",
         {u"defaults"_s, u"write"_s, u"--json"_s, u"x"_s, u"[{\"data\":\"%%%\"}]"_s},
         2,
         u"%%%"_s},
        {"noTime", {u"record"_s, u"--duration"_s, u"0"_s}, 2, u"0 seconds"_s},
        {"moviesFolderIsAFile",
         {u"record"_s, u"--movies-folder"_s, path(u"garbage"_s)},
         6,
         u"garbage"_s,
         withDisplay},
        {"moviesFolderNotWritable",
         {u"record"_s, u"--movies-folder"_s, u"/proc/movies"_s},
         6,
         u"/proc/movies"_s,
         withDisplay},
        {"homeNotWritable",
         {u"record"_s},
         6,
         u"/proc/home: "_s,
         {{u"XDG_DATA_HOME"_s, u"/proc/home"_s}}},
        {"noDisplay", {u"record"_s}, 4, u"cannot open display \":4711\""_s},
        {"waylandBySession",
         {u"record"_s},
         4,
         u"needs an X11 session"_s,
         {{u"DISPLAY"_s, u":4711"_s}, {u"XDG_SESSION_TYPE"_s, u"wayland"_s}}},
        {"waylandByDisplay",
         {u"record"_s},
         4,
         u"needs an X11 session"_s,
         {{u"DISPLAY"_s, QString()}, {u"WAYLAND_DISPLAY"_s, u"wayland-0"_s}}},
        {"infoOfNothing", {u"info"_s, path(u"missing"_s)}, 3, u"missing"_s},
        {"infoOfAFolder", {u"info"_s, path(u"folder"_s)}, 3, u"folder"_s},
        {"infoOfGarbage", {u"info"_s, path(u"garbage"_s)}, 1, u"garbage"_s},
        {"infoOfZeroBytes", {u"info"_s, path(u"empty"_s)}, 1, u"empty"_s},
        {"framesOfGarbage",
         {u"frames"_s, path(u"garbage"_s), u"--out"_s, path(u"o"_s)},
         1,
         u"garbage"_s},
        {"framesIntoAFile", {u"frames"_s, movie, u"--out"_s, path(u"garbage"_s)}, 6, u"garbage"_s},
        {"exportWhereNobodyMay",
         {u"export"_s, movie, u"-o"_s, u"/proc/x.mov"_s},
         6,
         u"/proc/Tolvane Temp.mov: "_s},
        {"exportOfNothing",
         {u"export"_s, path(u"missing"_s), u"-o"_s, path(u"o.mov"_s)},
         3,
         u"missing"_s},
        {"exportUnknownCodec",
         {u"export"_s, movie, u"-o"_s, path(u"o.mov"_s), u"--video-codec"_s, u"zzzz"_s},
         1,
         u"zzzz"_s},
        {"exportNoCodecAtAll",
         {u"export"_s, movie, u"-o"_s, path(u"o.mov"_s), u"--video-codec"_s, u"h.264"_s},
         2,
         u"h.264"_s},
        {"exportSavedUnknownCodec",
         {u"export"_s, movie, u"-o"_s, path(u"o.mov"_s)},
         1,
         u"'yyyy'"_s,
         oddSettings},
        {"deleteWithoutKey", {u"defaults"_s, u"delete"_s, u"--json"_s}, 2, u"key"_s},
        {"exportNoSize",
         {u"export"_s, path(u"missing"_s), u"-o"_s, path(u"o.mov"_s), u"--size"_s, u"12"_s},
         2,
         u"12"_s},
        {"exportTooLarge",
         {u"export"_s, movie, u"-o"_s, path(u"o.mov"_s), u"--scale"_s, u"9999"_s},
         2,
         u"16384"_s},
        {"unknownSetting", {u"defaults"_s, u"read"_s, u"nothing"_s}, 3, u"nothing"_s},
        {"wrongType", {u"defaults"_s, u"write"_s, u"captureRate"_s, u"fast"_s}, 2, u"fast"_s},
    };
    for (const Case &c : cases) {
        const Outcome outcome = run(c.arguments, c.variables);
        EXPECT_EQ(outcome.status, c.status) << c.name << ": " << outcome.errors.toStdString();
        EXPECT_TRUE(outcome.errors.contains(c.named))
            << c.name << ": " << outcome.errors.toStdString();
        EXPECT_TRUE(outcome.output.isEmpty()) << c.name;
        // One line; wrong usage may add where the help is.
        EXPECT_LE(outcome.errors.count(u'\n'), c.status == 2 ? 2 : 1) << c.name;
    }
    EXPECT_FALSE(QFileInfo::exists(path(u"o.mov"_s)));
    EXPECT_FALSE(QFileInfo::exists(path(u"o"_s)));
    EXPECT_EQ(QDir(path(u"folder"_s)).count(), 2U);
}

TEST_F(CommandLineTest, WarnsOnceAndGoesOn)
{
    const QString movie
        = run({u"record"_s, u"--duration"_s, u"0.1"_s, u"--movies-folder"_s, path(u"Movies"_s)})
              .output.trimmed();
    const QString capture = movie + u"/Brimmet Capture Video Data"_s;
    ASSERT_TRUE(QFile::copy(capture, path(u"cut"_s)));
    ASSERT_TRUE(QFile::resize(path(u"cut"_s), QFileInfo(capture).size() - 1));
    ASSERT_TRUE(QFile::copy(capture + u".index"_s, path(u"cut.index"_s)));
    const auto damage = [](const QString &path) {
        QDir().mkpath(QFileInfo(path).path());
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write("<plist><dict>") > 0);
    };
    damage(movie + u"/Info.plist"_s);
    damage(path(u"odd/Tolvane/com.pexarworks.tolvane.plist"_s));

    const Variables oddSettings = {{u"XDG_CONFIG_HOME"_s, path(u"odd"_s)}};
    const Variables oddHome = {{u"XDG_DATA_HOME"_s, u"/proc/home"_s}};
    const QString out = path(u"o.mov"_s);
    const struct {
        const char *name;
        QStringList arguments;
        QString warning; ///< Empty where nothing is to be said.
        Variables variables = {};
    } cases[] = {
        {"info", {u"info"_s, path(u"cut"_s)}, u"was cut short"_s},
        {"frames", {u"frames"_s, path(u"cut"_s), u"--out"_s, path(u"o"_s)}, u"was cut short"_s},
        {"export", {u"export"_s, path(u"cut"_s), u"-o"_s, out}, u"was cut short"_s},
        {"wholeCapture", {u"export"_s, capture, u"-o"_s, out}, u"Info.plist"_s},
        {"noQuality",
         {u"export"_s, path(u"whole"_s), u"-o"_s, out, u"--video-codec"_s, u"apcn"_s,
          u"--quality"_s, u"9"_s},
         u"--quality has no effect with 'apcn'"_s},
        {"noFullChroma",
         {u"export"_s, path(u"whole"_s), u"-o"_s, out, u"--video-codec"_s, u"mp4v"_s,
          u"--full-chroma"_s},
         u"--full-chroma has no effect with 'mp4v'"_s},
        {"settings",
         {u"defaults"_s, u"read"_s, u"lossyLevel"_s},
         u"tolvane damaged.plist"_s,
         oddSettings},
        {"settingsPutAside", {u"defaults"_s, u"read"_s, u"lossyLevel"_s}, {}, oddSettings},
        {"homeNotWritable", {u"defaults"_s, u"read"_s, u"moviesFolderPath"_s}, {}, oddHome},
        {"version", {u"--version"_s}, {}, oddHome},
    };
    ASSERT_TRUE(QFile::copy(capture, path(u"whole"_s)));
    for (const auto &c : cases) {
        const Outcome outcome = run(c.arguments, c.variables);
        EXPECT_EQ(outcome.status, 0) << c.name;
        const QString expected = c.warning.isEmpty() ? QString() : u"tolvane: warning: "_s;
        EXPECT_TRUE(outcome.errors.startsWith(expected) && outcome.errors.contains(c.warning))
            << c.name << ": " << outcome.errors.toStdString();
        EXPECT_EQ(outcome.errors.count(u'\n'), c.warning.isEmpty() ? 0 : 1)
            << c.name << ": " << outcome.errors.toStdString();
    }
}

TEST_F(CommandLineTest, DataThatCannotBeWrittenIsAFailure)
{
    for (const QStringList &arguments :
         {QStringList{u"--version"_s}, QStringList{u"defaults"_s, u"read"_s}}) {
        QProcess process;
        process.setStandardOutputFile(u"/dev/full"_s);
        start(process, arguments);
        const Outcome outcome = outcomeOf(process);
        EXPECT_EQ(outcome.status, 6) << arguments.join(u' ').toStdString();
        EXPECT_EQ(outcome.errors,
                  u"tolvane: Could not write to the standard output: No space left on device\n"_s);
    }
}

TEST_F(CommandLineTest, AFileThatMayNotGrowIsAFailure)
{
    const QString movie
        = run({u"record"_s, u"--duration"_s, u"0.1"_s, u"--movies-folder"_s, path(u"Movies"_s)})
              .output.trimmed();
    QFile old(path(u"out/o.mov"_s));
    ASSERT_TRUE(QDir().mkpath(path(u"out"_s)) && old.open(QIODevice::WriteOnly));
    old.write("old");
    old.close();
    QProcess process;
    prepare(process);
    process.start(u"sh"_s,
                  {u"-c"_s, u"ulimit -f 1; exec \"$@\""_s, u"sh"_s, QStringLiteral(TOLVANE_PROGRAM),
                   u"export"_s, movie, u"-o"_s, old.fileName()});
    const Outcome outcome = outcomeOf(process);
    EXPECT_EQ(outcome.status, 6) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.errors.contains(u"File too large"_s)) << outcome.errors.toStdString();
    EXPECT_EQ(QFileInfo(old).size(), 3);
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
            = run({u"record"_s, u"--geometry"_s, QString::fromLatin1(c.geometry), u"--no-cursor"_s,
                   u"--duration"_s, u"0.05"_s, u"--movies-folder"_s, path(u"M"_s)});
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
