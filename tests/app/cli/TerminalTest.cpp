#include "tests/app/cli/Terminal.h"
#include "tests/app/cli/CommandLine.h"
#include "tests/export/LibraryFolder.h"

#include <QRegularExpression>

#include <functional>
#include <memory>

namespace {

struct TerminalCase {
    const char *name;
    Variables variables;
    unsigned short columns; ///< 0 is a pipe.
    bool showsProgress;
    bool hasColor;

    [[nodiscard]] bool isWide() const { return columns >= 80; }
};

// Those that must stay quiet start first: when the last has shown its line they had their time.
const TerminalCase kTerminalCases[] = {
    {"dumb", {{u"TERM"_s, u"dumb"_s}}, 120, false, false},
    {"pipe", {{u"TERM"_s, u"xterm"_s}}, 0, false, false},
    {"terminal", {{u"TERM"_s, u"xterm"_s}}, 120, true, true},
    {"usual", {{u"TERM"_s, u"xterm"_s}}, 80, true, true},
    {"narrow", {{u"TERM"_s, u"xterm"_s}}, 24, true, true},
    {"noColor", {{u"TERM"_s, u"xterm"_s}, {u"NO_COLOR"_s, u"1"_s}}, 120, true, false},
};

/// The program on each of the terminals at once.
class TerminalTest : public CommandLineTest {
protected:
    struct Run {
        const TerminalCase &row;
        std::unique_ptr<QProcess> process;
        std::unique_ptr<Terminal> terminal; ///< None for a pipe.
        QString folder; ///< A folder of its own.
        QString errors;
        Outcome outcome;
    };

    /// Starts the command that `command` makes for a folder, on each terminal; interrupts them
    /// once all run and each wide terminal has shown `text`, each narrow one a line.
    std::vector<Run> interruptOnceShown(const QByteArray &text,
                                        const std::function<QStringList(const QString &)> &command,
                                        const std::function<void(const QString &)> &waitUntilItRuns)
    {
        std::vector<Run> runs;
        for (const TerminalCase &row : kTerminalCases) {
            Run run{row, std::make_unique<QProcess>(), {}, path(QString::fromLatin1(row.name)), {},
                    {}};
            if (row.columns > 0) {
                run.terminal = std::make_unique<Terminal>(row.columns);
                run.terminal->connectTo(*run.process);
            }
            start(*run.process, command(run.folder), row.variables);
            if (run.terminal)
                run.terminal->hangUp();
            runs.push_back(std::move(run));
        }
        for (const Run &run : runs) {
            waitUntilItRuns(run.folder);
            const QByteArray awaited = run.row.isWide() ? text : "\x1b[K";
            if (!run.row.showsProgress)
                continue;
            EXPECT_TRUE(run.terminal->readUntil(awaited).contains(awaited)) << run.row.name;
        }
        for (Run &run : runs) {
            send(*run.process, SIGINT);
            run.outcome = outcomeOf(*run.process);
            run.errors
                = run.terminal ? QString::fromUtf8(run.terminal->readToEnd()) : run.outcome.errors;
        }
        return runs;
    }

    /// The line is drawn over and over, fits the terminal, and is taken away in the end.
    static void expectProgress(const Run &run, const QString &end)
    {
        static const QRegularExpression color(u"\x1b\\[36m([^\x1b]*)\x1b\\[0m"_s);
        const QString &errors = run.errors;
        const std::string name = run.row.name;
        if (!run.row.showsProgress) {
            EXPECT_EQ(errors, end) << name;
            return;
        }
        EXPECT_TRUE(errors.endsWith(u"\r\x1b[K"_s + end)) << name << ": " << errors.toStdString();
        QStringList lines = errors.chopped(end.size()).split(u"\x1b[K"_s, Qt::SkipEmptyParts);
        EXPECT_GE(lines.size(), 1) << name;
        for (QString &line : lines) {
            ASSERT_TRUE(line.endsWith(u'\r')) << name << ": " << line.toStdString();
            // A colour that is switched on ends within the line.
            line.replace(color, u"\\1"_s);
            EXPECT_FALSE(line.contains(u'\x1b')) << name << ": " << line.toStdString();
            EXPECT_LE(line.size() - 1, run.row.columns - 1) << name << ": " << line.toStdString();
        }
    }
};

TEST_F(TerminalTest, RecordHasALiveLineWhateverTheMenuBarShows)
{
    // They run at once, and only one of them could have the hot keys.
    for (const char *line : {"defaults write --json activationShortcut {}",
                             "defaults write --json toggleCameraModeShortcut {}",
                             "defaults write showRecordingDurationInMenubar no",
                             "defaults write showRecordingSizeInMenubar no"})
        ASSERT_EQ(run(words(line)).status, 0);
    const auto runs = interruptOnceShown(
        "Recording 00:01",
        [](const QString &folder) {
            return QStringList{u"record"_s, u"--movies-folder"_s, folder};
        },
        [](const QString &folder) { movieWithFramesIn(folder); });
    static const QRegularExpression line(
        u"Recording 00:01, [\\d.]+ (bytes|kB|MB), \\d+ frames \\(Ctrl\\+C stops\\)\r"_s);
    for (const Run &run : runs) {
        EXPECT_EQ(run.outcome.status, 0) << run.row.name;
        EXPECT_TRUE(run.outcome.output.startsWith(run.folder)) << run.row.name;
        expectProgress(run, {});
        EXPECT_EQ(run.errors.contains(line), run.row.showsProgress && run.row.isWide())
            << run.row.name << ": " << run.errors.toStdString();
    }
}

TEST_F(TerminalTest, ExportHasABarAndAnInterruptedOneLeavesNothingBehind)
{
    // So many frames that no encoder is through with them before it is interrupted.
    const LibraryFolder library(path(u"library"_s));
    library.record(u"A"_s, LibraryFolder::End::Stopped, 60'000);
    const QString capture = library.fileOf(u"A"_s, kBRCaptureVideoDataName);

    const QByteArray yesterday = "the movie of yesterday";
    const auto replaces = [](const QString &folder) { return !folder.endsWith(u"noColor"); };
    // Something else takes the place of the movie meanwhile, and is left there.
    const auto isTaken = [](const QString &folder) { return folder.endsWith(u"dumb"); };
    const auto runs = interruptOnceShown(
        " left\r",
        [&](const QString &folder) {
            EXPECT_TRUE(QDir().mkpath(folder));
            if (replaces(folder))
                writeFile(folder + u"/out.mov"_s, yesterday);
            return QStringList{u"export"_s, capture, u"-o"_s, folder + u"/out.mov"_s};
        },
        [&](const QString &folder) {
            waitUntil([&] { return QFile::exists(folder + u"/Tolvane Temp.mov"_s); },
                      "the movie's beginning");
            EXPECT_TRUE(!isTaken(folder) || QDir().mkdir(folder + u"/out.mov"_s));
        });
    for (const Run &run : runs) {
        EXPECT_EQ(run.outcome.status, 1) << run.row.name;
        EXPECT_TRUE(run.outcome.output.isEmpty()) << run.row.name;
        const QString newline = run.terminal ? u"\r\n"_s : u"\n"_s; // What terminals make of it.
        const QString movie = run.folder + u"/out.mov"_s;
        const QString hidden = run.folder + u"/.out.mov.replaced"_s;
        QString end = u"tolvane: the export of \"%1\" was cancelled"_s.arg(capture) + newline;
        if (isTaken(run.folder)) {
            end += u"tolvane: warning: Could not put %1 back; it is kept as %2"_s.arg(movie, hidden)
                + newline;
        }
        expectProgress(run, end);
        EXPECT_EQ(run.errors.contains(u"\x1b[36m"_s), run.row.hasColor) << run.row.name;
        EXPECT_EQ(run.errors.contains(u" of 60000 frames, "_s),
                  run.row.showsProgress && run.row.isWide())
            << run.row.name << ": " << run.errors.toStdString();

        QStringList left;
        if (isTaken(run.folder))
            left << u".out.mov.replaced"_s;
        if (replaces(run.folder))
            left << u"out.mov"_s;
        EXPECT_EQ(everythingIn(run.folder), left) << run.row.name;
        if (replaces(run.folder)) {
            EXPECT_EQ(contentsOf(isTaken(run.folder) ? hidden : movie), yesterday) << run.row.name;
        }
    }
}

} // namespace
