#include "tests/app/cli/CommandLine.h"

#include <QDeadlineTimer>
#include <QJsonDocument>

#include <chrono>
#include <thread>

using namespace Qt::StringLiterals;

namespace {
constexpr int kPatienceMs = 60'000;
} // namespace

VirtualDisplay &CommandLineTest::display()
{
    static VirtualDisplay theDisplay(320, 240);
    return theDisplay;
}

QStringList CommandLineTest::words(const char *line) const
{
    QStringList words = QString::fromUtf8(line).split(u' ', Qt::SkipEmptyParts);
    for (QString &word : words)
        if (word.startsWith(u"~/"))
            word.replace(0, 1, _home.path());
    return words;
}

void CommandLineTest::prepare(QProcess &process, const Variables &variables) const
{
    auto environment = QProcessEnvironment::systemEnvironment();
    for (const QString &name : {u"WAYLAND_DISPLAY"_s, u"XDG_SESSION_TYPE"_s, u"NO_COLOR"_s})
        environment.remove(name);
    environment.insert(u"XDG_CONFIG_HOME"_s, path(u"config"_s));
    environment.insert(u"XDG_DATA_HOME"_s, path(u"data"_s));
    environment.insert(u"DISPLAY"_s, display().name());
    for (const auto &[name, value] : variables)
        environment.insert(name, value);
    process.setProcessEnvironment(environment);
}

void CommandLineTest::start(QProcess &process, const QStringList &arguments,
                            const Variables &variables) const
{
    prepare(process, variables);
    process.start(QStringLiteral(TOLVANE_PROGRAM), arguments);
    ASSERT_TRUE(process.waitForStarted(kPatienceMs));
}

void CommandLineTest::send(const QProcess &process, int signal)
{
    ASSERT_NE(process.processId(), 0);
    ::kill(static_cast<pid_t>(process.processId()), signal);
}

Outcome CommandLineTest::outcomeOf(QProcess &process)
{
    EXPECT_TRUE(process.state() == QProcess::NotRunning || process.waitForFinished(kPatienceMs));
    EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

Outcome CommandLineTest::run(const QStringList &arguments, const Variables &variables) const
{
    QProcess process;
    start(process, arguments, variables);
    return outcomeOf(process);
}

QString CommandLineTest::record(const char *more) const
{
    const Outcome outcome = run(words("record --movies-folder ~/Movies") + words(more));
    EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();
    return outcome.output.trimmed();
}

QJsonObject CommandLineTest::infoOf(const QString &movie) const
{
    return QJsonDocument::fromJson(run({u"info"_s, movie, u"--json"_s}).output.toUtf8()).object();
}

std::vector<QImage> CommandLineTest::picturesOf(const QString &movie) const
{
    const QDir folder(movie + u"/pictures"_s);
    const Outcome outcome = run({u"frames"_s, movie, u"--out"_s, folder.path()});
    EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();
    std::vector<QImage> pictures;
    for (const QString &name : folder.entryList({u"*.png"_s}, QDir::Files, QDir::Name))
        pictures.push_back(QImage(folder.filePath(name)).convertToFormat(QImage::Format_RGB32));
    return pictures;
}

void CommandLineTest::waitUntil(const std::function<bool()> &isTrue, const char *what)
{
    const QDeadlineTimer deadline(kPatienceMs);
    while (!isTrue()) {
        ASSERT_FALSE(deadline.hasExpired()) << "waited in vain for " << what;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

QString CommandLineTest::movieWithFramesIn(const QString &moviesFolder, int frames)
{
    QString movie;
    waitUntil(
        [&] {
            const QStringList movies
                = QDir(moviesFolder).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
            movie = moviesFolder + u'/' + movies.value(0);
            return QFileInfo(movie + u"/Brimmet Capture Video Data.index"_s).size()
                >= qint64{24} * frames;
        },
        "a frame");
    return movie;
}
