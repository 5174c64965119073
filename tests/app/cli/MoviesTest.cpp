#include "tests/app/cli/CommandLine.h"
#include "tests/app/cli/Terminal.h"
#include "tests/export/LibraryFolder.h"
#include "tests/support/PaintedWindow.h"

#include "export/BRMovieFolderLock.h"

#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace {

const QString kLesson = u"AB120000-0000-4000-8000-000000000001"_s;
const QString kTalk = u"AB340000-0000-4000-8000-000000000002"_s;
const QString kTorn = u"CD560000-0000-4000-8000-000000000003"_s;

/// Two whole movies and an interrupted one, where the program looks for them.
class MoviesTest : public CommandLineTest {
protected:
    void SetUp() override
    {
        add(kLesson, u"Lesson"_s, 1);
        add(kTalk, u"Talk: 1/2"_s, 2);
        library.record(kTorn, LibraryFolder::End::Killed);
        library.writeInfo(kTorn, {{u"name"_s, u"Torn"_s}, {u"date"_s, library.kDate}});
    }
    void add(const QString &uuid, const QString &name, int minutes)
    {
        library.record(uuid, LibraryFolder::End::Stopped);
        library.writeInfo(
            uuid, {{u"name"_s, name}, {u"date"_s, library.kDate.addSecs(qint64{60} * minutes)}});
    }
    void rename(const QString &movie, const QString &name) const
    {
        const Outcome outcome = run({u"rename"_s, movie, name});
        EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();
    }
    [[nodiscard]] QJsonArray list() const
    {
        const Outcome outcome = run({u"list"_s, u"--json"_s});
        EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();
        return QJsonDocument::fromJson(outcome.output.toUtf8()).array();
    }
    [[nodiscard]] QStringList names() const
    {
        QStringList names;
        for (const auto &movie : list())
            names << movie.toObject().value(u"name"_s).toString();
        return names;
    }
    [[nodiscard]] QStringList moviesIn(const QString &folder) const
    {
        return QDir(folder).entryList({u"*.mov"_s}, QDir::Files, QDir::Name);
    }

    const LibraryFolder library{path(u"data/Tolvane/Movies"_s)};
};

TEST_F(MoviesTest, BeforeTheFirstRecordingThereIsNothing)
{
    QDir(library.movies.path()).removeRecursively();
    EXPECT_EQ(list().size(), 0);
}

TEST_F(MoviesTest, ListsWhatIsThereAndRescuesWhatWasInterrupted)
{
    const QJsonArray first = list();
    ASSERT_EQ(first.size(), 3);
    EXPECT_EQ(
        first[0].toObject(),
        QJsonObject({{u"uuid"_s, kTalk},
                     {u"path"_s, library.folderOf(kTalk)},
                     {u"name"_s, u"Talk: 1/2"_s},
                     {u"date"_s, u"2026-11-21T12:02:00Z"_s},
                     {u"duration"_s, 2.0},
                     {u"width"_s, 40},
                     {u"height"_s, 30},
                     {u"bytes"_s, QFileInfo(library.fileOf(kTalk, kBRCaptureVideoDataName)).size()},
                     {u"frames"_s, LibraryFolder::kFrames},
                     {u"sound"_s, false},
                     {u"rescued"_s, false}}));
    EXPECT_TRUE(first[2].toObject().value(u"rescued"_s).toBool());
    EXPECT_EQ(first[2].toObject().value(u"frames"_s).toInt(), LibraryFolder::kFrames);

    const Outcome again = run({u"list"_s});
    EXPECT_EQ(again.errors, QString()) << "what is rescued is told once";
    EXPECT_EQ(again.output.count(u'\n'), 3);
    EXPECT_TRUE(again.output.contains(u"Torn  (rescued)"_s)) << again.output.toStdString();
}

TEST_F(MoviesTest, ARecordingThatWasKilledIsRescuedFrameForFrame)
{
    PaintedWindow window(display(), {0, 0, 320, 240});
    std::mt19937 random(5);
    window.fillAtRandom(random, 50);
    QDir(library.movies.path()).removeRecursively();
    QProcess recording;
    start(recording, {u"record"_s, u"--no-cursor"_s});
    const QString movie = movieWithFramesIn(library.movies.path());
    // While it is written nobody mends it, and nobody throws it away.
    EXPECT_EQ(run({u"repair"_s, movie}).status, 1);
    EXPECT_EQ(run({u"delete"_s, movie, u"--yes"_s}).status, 1);
    EXPECT_EQ(list().size(), 1);
    recording.kill();
    recording.waitForFinished(-1);
    const Outcome repaired = run({u"repair"_s, QFileInfo(movie).fileName().left(6)});
    EXPECT_EQ(repaired.status, 0) << repaired.errors.toStdString();
    EXPECT_TRUE(repaired.output.startsWith(u"Rescued "_s)) << repaired.output.toStdString();
    EXPECT_EQ(run({u"repair"_s, movie}).output, u"There was nothing to repair\n"_s);
    const auto pictures = picturesOf(movie);
    ASSERT_FALSE(pictures.empty());
    EXPECT_EQ(pictures.back(), display().screenshot());
    EXPECT_EQ(qint64(pictures.size()), list()[0].toObject().value(u"frames"_s).toInt());
}

TEST_F(MoviesTest, RenamesByWhateverNamesAMovie)
{
    const struct {
        QString movie, name;
    } rows[] = {{kLesson, u"by uuid"_s},
                {kLesson.left(4).toLower(), u"by its beginning"_s},
                {u"by its beginning"_s, u"by name"_s},
                {library.folderOf(kLesson), QString(300, u'x')},
                {library.folderOf(kLesson) + u'/', u"🎬 a/b: ça"_s}};
    for (const auto &row : rows) {
        rename(row.movie, row.name);
        EXPECT_EQ(library.infoOf(kLesson).value(u"name"_s), row.name);
        EXPECT_EQ(library.infoOf(kLesson).value(u"captureRate"_s), 30);
    }
}

TEST_F(MoviesTest, DeletesForGoodOnlyWhenTold)
{
    writeFile(path(u"elsewhere/file"_s));
    ASSERT_TRUE(QFile::link(path(u"elsewhere"_s), library.fileOf(kTalk, u"link"_s)));
    EXPECT_EQ(run({u"delete"_s, kTalk}).status, 1) << "nobody can be asked";
    EXPECT_TRUE(QDir(library.folderOf(kTalk)).exists());
    EXPECT_EQ(run({u"delete"_s, kTalk, u"--yes"_s}).status, 0);
    EXPECT_FALSE(QDir(library.folderOf(kTalk)).exists());
    EXPECT_TRUE(QFile::exists(path(u"elsewhere/file"_s)));

    for (const QByteArray answer : {"n\n", "y\n"}) {
        Terminal terminal(80);
        QProcess process;
        terminal.connectInputTo(process);
        start(process, {u"delete"_s, u"Lesson"_s});
        terminal.hangUp();
        EXPECT_TRUE(terminal.readUntil("[y/N] ").contains("Move \"Lesson\" to the trash?"));
        terminal.type(answer);
        EXPECT_EQ(outcomeOf(process).status, answer == "y\n" ? 0 : 1);
        EXPECT_EQ(QDir(library.folderOf(kLesson)).exists(), answer != "y\n");
    }
    EXPECT_TRUE(
        QFile::exists(path(u"data/Trash/files/"_s + kLesson + u'/' + kBRCaptureVideoDataName)));
}

TEST_F(MoviesTest, ExportsSeveralUnderTheirNames)
{
    rename(kLesson, u"Talk: 1/2"_s);
    writeFile(path(u"out/Talk- 1-2.mov"_s));
    const Outcome exported = run({u"export"_s, kLesson, kTalk, path(u"missing"_s), u"Torn"_s,
                                  u"-o"_s, path(u"out"_s), u"--video-codec"_s, u"png "_s});
    EXPECT_EQ(exported.status, 3) << "one was not found, and the others are made";
    EXPECT_EQ(exported.errors.count(u"missing"_s), 1);
    EXPECT_EQ(moviesIn(path(u"out"_s)),
              QStringList(
                  {u"Talk- 1-2 2.mov"_s, u"Talk- 1-2 3.mov"_s, u"Talk- 1-2.mov"_s, u"Torn.mov"_s}));
    EXPECT_EQ(contentsOf(path(u"out/Talk- 1-2.mov"_s)), "") << "what was there stays";
    EXPECT_EQ(exported.output.count(u'\n'), 3);
    for (const QString &name : {u"Talk- 1-2 2.mov"_s, u"Torn.mov"_s}) {
        QProcess probe;
        probe.start(u"ffprobe"_s,
                    words("-v error -show_entries stream=codec_name,nb_frames -of csv=p=0")
                        << path(u"out/"_s) + name);
        EXPECT_EQ(outcomeOf(probe).output.trimmed(), u"png,5"_s) << name.toStdString();
    }

    QProcess process;
    process.setWorkingDirectory(path(u"out"_s));
    rename(kTalk, u".."_s);
    start(process, {u"export"_s, kTalk, u"--video-codec"_s, u"png "_s});
    EXPECT_EQ(outcomeOf(process).output, u"./_...mov\n"_s);
    rename(kTalk, u'a' + QString(300, QChar(0x0301)));
    EXPECT_EQ(run({u"export"_s, kTalk, u"-o"_s, path(u"out"_s)}).status, 0);
    rename(kTalk, QString(300, u'ü'));
    EXPECT_EQ(run({u"export"_s, kTalk, u"-o"_s, path(u"out"_s)}).output,
              path(u"out/"_s) + QString(100, u'ü') + u".mov\n"_s);
}

TEST_F(MoviesTest, TellsOfPicturesThatTheEncoderRefused)
{
    // The last is later than any sample of a movie can be.
    library.recordAt(kLesson, LibraryFolder::End::Stopped, {0, 1, 2, 1e9});
    const Outcome exported = run({u"export"_s, kLesson, u"-o"_s, path(u"out.mov"_s)});
    EXPECT_EQ(exported.status, 0);
    EXPECT_TRUE(exported.errors.contains(u"lacks 1 of its 4 pictures"_s))
        << exported.errors.toStdString();
}

TEST_F(MoviesTest, EachExportHasALineOfItsOwn)
{
    // Long enough to be seen at it.
    for (const QString &uuid : {kLesson, kTalk}) {
        QDir(library.folderOf(uuid)).removeRecursively();
        library.record(uuid, LibraryFolder::End::Stopped, 20'000);
        library.writeInfo(uuid, {{u"name"_s, u"Movie "_s + uuid.left(4)}});
    }
    Terminal terminal(120);
    QProcess process;
    terminal.connectTo(process);
    // The others wait for their turn, and hear of the end, too.
    QStringList arguments{u"export"_s, kLesson, kTalk};
    for (int i = 0; i < 4; ++i)
        arguments << kLesson;
    start(process, arguments << u"-o"_s << path({}), {{u"TERM"_s, u"xterm"_s}});
    terminal.hangUp();
    // Down to the fourth line, and back to the first.
    const QByteArray both = terminal.readUntil("\x1b[3A");
    EXPECT_TRUE(both.contains("Movie AB12") && both.contains("Movie AB34")) << both.toStdString();
    send(process, SIGINT);
    const QByteArray errors = terminal.readToEnd();
    EXPECT_EQ(outcomeOf(process).status, 1);
    EXPECT_EQ(errors.count("was cancelled"), 6);
    EXPECT_EQ(moviesIn(path({})), QStringList());
}

TEST_F(MoviesTest, AFileThatIsBeingExportedIsNotExportedOver)
{
    library.record(kLesson, LibraryFolder::End::Stopped, 20'000);
    QProcess first;
    start(first, {u"export"_s, kLesson, u"-o"_s, path(u"same.mov"_s)});
    waitUntil([&] { return QFile::exists(path(u".same.mov.lock"_s)); }, "the export");
    const Outcome second = run({u"export"_s, kTalk, u"-o"_s, path(u"same.mov"_s)});
    EXPECT_EQ(second.status, 1);
    EXPECT_TRUE(second.errors.contains(u"Another export is making"_s))
        << second.errors.toStdString();
    send(first, SIGINT);
    EXPECT_EQ(outcomeOf(first).status, 1);
    EXPECT_FALSE(QFile::exists(path(u".same.mov.lock"_s)));
    EXPECT_EQ(run({u"export"_s, kTalk, u"-o"_s, path(u"same.mov"_s)}).status, 0);
}

TEST_F(MoviesTest, PlaysInAWindow)
{
    PaintedWindow window(display(), {0, 0, 320, 240}, 0x2299AA);
    const QString movie = record("--no-cursor --duration 0.3 --geometry 100x80+0+0");
    window.fill({0, 0, 320, 240}, 0);
    QProcess player;
    start(player, {u"play"_s, movie});
    const auto isShown = [] {
        const QImage screen = display().screenshot();
        int count = 0;
        for (int y = 0; y < screen.height(); ++y)
            for (int x = 0; x < screen.width(); ++x)
                count += (screen.pixel(x, y) & 0xFFFFFFU) == 0x2299AA ? 1 : 0;
        return count >= 100 * 80;
    };
    waitUntil(isShown, "the picture");
    send(player, SIGTERM);
    EXPECT_EQ(outcomeOf(player).status, 0);
}

TEST_F(MoviesTest, SaysWhatItCannotDoAndChangesNothing)
{
    const QStringList before = names();
    library.record(u"EMPTY"_s, LibraryFolder::End::Killed, 0);
    writeFile(library.fileOf(kLesson, kBRSecondCaptureAudioDataName));
    QDir(path({})).mkdir(u"out"_s);
    writeFile(path(u"file"_s));
    const struct {
        QStringList arguments;
        int status;
        QString told;
        Variables variables = {};
    } rows[] = {
        {words("list --movies-folder ~/no"), 3, u"no"_s},
        {words("list --movies-folder ~/file"), 3, u"file"_s},
        {words("rename Lesson x"), 2, u"too short"_s},
        {words("rename Lesson be\all"), 1, u"Info.plist"_s},
        {words("rename nobody name"), 3, u"nobody"_s},
        {words("rename AB name"), 1, kTalk},
        {words("rename ~/file name"), 3, u"file"_s},
        {words("delete nobody --yes"), 3, u"nobody"_s},
        {words("delete ~/out --yes"), 3, u"out"_s},
        {words("repair nobody"), 3, u"nobody"_s},
        {words("repair ~/out"), 3, u"out"_s},
        {words("repair EMPTY"), 1, u"no complete frame"_s},
        {words("export Lesson -o") << library.fileOf(kLesson, kBRSecondCaptureAudioDataName), 2,
         u"belongs to the capture"_s},
        {words("play nobody"), 3, u"nobody"_s},
        {words("play ~/file"), 1, u"file"_s},
        {words("play Lesson"), 4, u"display"_s, {{u"DISPLAY"_s, u":987654"_s}}},
        {words("export Lesson") << kTalk << words("-o ~/file"), 2, u"is no folder"_s},
    };
    for (auto row : rows) {
        row.variables[u"XDG_RUNTIME_DIR"_s] = path({}); // Qt says so where there is none.
        const Outcome outcome = run(row.arguments, row.variables);
        SCOPED_TRACE((row.arguments.join(u' ') + u": "_s + outcome.errors).toStdString());
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_TRUE(outcome.errors.contains(row.told));
        EXPECT_EQ(outcome.errors.count(u'\n'), 1);
        EXPECT_EQ(outcome.output, QString());
    }
    QFile::remove(library.fileOf(u"EMPTY"_s, kBRMovieInfoName));
    EXPECT_EQ(run(words("delete EMPTY --yes")).status, 0) << "whatever it holds";
    EXPECT_EQ(names(), before);
}

} // namespace
