#include "app/cli/BRMovieCommands.h"

#include "app/cli/BRCapturePath.h"
#include "app/cli/BRExitStatus.h"
#include "app/cli/BRTerminal.h"
#include "app/cli/BRUsageError.h"
#include "capture/framefile/BRFrameStreamer.h"
#include "export/BRMovieFolderLock.h"
#include "export/BRMovieLibrary.h"
#include "foundation/FSByteFormatter.h"
#include "foundation/PXDefaults.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <iterator>

using namespace Qt::StringLiterals;

namespace {

constexpr int kShortestName = 2; ///< Characters, as in the window's list.
constexpr int kLettersOfUUID = 8; ///< That are shown: enough to tell movies apart.

/// What the movie's folder says, or its failure printed.
std::unique_ptr<BRCapturedMovie> openMovie(const QString &text, const BRBackEnds &backEnds,
                                           int &status)
{
    const auto folder = BRCapturePath::movieFolder(text);
    auto movie = folder.and_then([&](const QString &path) {
        return BRCapturedMovie::withMovieInfoFilePath(QDir(path).filePath(kBRMovieInfoName),
                                                      backEnds.media,
                                                      PXDefaults::standardUserDefaults());
    });
    if (movie)
        return *std::move(movie);
    BRTerminal::printError(movie.error());
    status = BRExitStatusOfError(movie.error(), BRAccess::Reading);
    return nullptr;
}

/// One line of it: a name may hold any character.
QString lineOf(QString name)
{
    for (QChar &character : name) {
        if (character.category() == QChar::Other_Control)
            character = u' ';
    }
    return name;
}

QJsonObject jsonOf(const BRCapturedMovie &movie)
{
    return {
        {u"uuid"_s, movie.identifier()},
        {u"path"_s, movie.movieFolderPath()},
        {u"name"_s, movie.name()},
        {u"date"_s, movie.date().toUTC().toString(Qt::ISODate)},
        {u"duration"_s, movie.duration()},
        {u"width"_s, PXClampToInt(movie.capturedVideoSize().width)},
        {u"height"_s, PXClampToInt(movie.capturedVideoSize().height)},
        {u"bytes"_s, static_cast<qint64>(movie.videoDataSize())},
        {u"frames"_s, static_cast<qint64>(movie.numberOfFrames())},
        {u"sound"_s, movie.hasAudio()},
        {u"rescued"_s, movie.wasRescued()},
    };
}

QString textOf(const BRCapturedMovie &movie)
{
    const auto seconds = static_cast<int>(movie.duration());
    QStringList columns{
        movie.identifier().left(kLettersOfUUID).leftJustified(kLettersOfUUID),
        movie.date().toLocalTime().toString(u"yyyy-MM-dd HH:mm"_s),
        QString::asprintf("%3d:%02d", seconds / 60, seconds % 60),
        u"%1x%2"_s.arg(PXClampToInt(movie.capturedVideoSize().width))
            .arg(PXClampToInt(movie.capturedVideoSize().height))
            .rightJustified(9),
        FSByteFormatter().stringForObjectValue(movie.videoDataSize()).rightJustified(8),
        u"%1 frames"_s.arg(movie.numberOfFrames()).rightJustified(13),
        movie.hasAudio() ? u"sound"_s : u"     "_s,
        lineOf(movie.name()),
    };
    if (movie.wasRescued())
        columns << u"(rescued)"_s;
    return columns.join(u"  "_s);
}

void printRescue(const BRMovieLibrary::RescueResult &result)
{
    if (!result.outcome) {
        BRTerminal::printWarning(u"\"%1\" could not be rescued: %2"_s.arg(
            result.movieFolder, PXErrorLine(result.outcome.error())));
    } else if (result.outcome->outcome == BRRescuedMovie::Outcome::Rescued) {
        BRTerminal::printWarning(u"\"%1\" was interrupted and is rescued: %2 frames"_s.arg(
            result.movieFolder, QString::number(result.outcome->frames)));
    }
}

/// Asks in the terminal; no where there is none.
bool isConfirmed(const QString &question)
{
    if (::isatty(STDIN_FILENO) != 1)
        return false;
    BRTerminal::ask(question + u" [y/N] "_s);
    char answer[16] = {};
    return std::fgets(answer, sizeof answer, stdin) && (answer[0] == 'y' || answer[0] == 'Y');
}

int failWriting(const QString &what, const QString &folder)
{
    const PXError error = PXPOSIXError(errno != 0 ? errno : EIO, what + folder);
    BRTerminal::printError(error);
    return BRExitStatusOfError(error, BRAccess::Writing);
}

} // namespace

int BRRunListCommand(const std::optional<QString> &moviesFolder, bool asJSON,
                     const BRBackEnds &backEnds)
{
    PXDefaults &defaults = PXDefaults::standardUserDefaults();
    BRMovieLibrary library(moviesFolder.value_or(defaults.stringValue(u"moviesFolderPath"_s)),
                           backEnds.media, defaults);
    // Nothing was recorded yet.
    const bool isNew = !moviesFolder && !QFileInfo::exists(library.moviesFolder());
    if (const auto loaded = isNew ? PXExpected<void>() : library.loadAll(); !loaded) {
        BRTerminal::printError(loaded.error());
        return BRExitStatusOfError(loaded.error(), BRAccess::Reading);
    }
    for (const BRMovieLibrary::RescueResult &result : library.takeRescueResults())
        printRescue(result);
    for (const auto &[folder, error] : library.failures())
        BRTerminal::printWarning(u"\"%1\" is left out: %2"_s.arg(folder, PXErrorLine(error)));
    QJsonArray array;
    for (const BRMovieLibrary::Movie &movie : library.movies()) {
        if (asJSON)
            array.append(jsonOf(*movie));
        else
            BRTerminal::print(textOf(*movie));
    }
    if (asJSON)
        BRTerminal::print(QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Compact)));
    return BRExitDone;
}

int BRRunRenameCommand(const QString &movie, const QString &name, const BRBackEnds &backEnds)
{
    if (name.size() < kShortestName)
        return BRFailUsage({u"\"%1\" is too short for a name"_s.arg(name),
                            u"Give at least %1 characters."_s.arg(kShortestName)});
    int status = BRExitDone;
    const auto found = openMovie(movie, backEnds, status);
    if (!found)
        return status;
    if (const auto renamed = found->setName(name); !renamed) {
        BRTerminal::printError(renamed.error());
        return BRExitStatusOfError(renamed.error(), BRAccess::Writing);
    }
    return BRExitDone;
}

int BRRunDeleteCommand(const QString &movie, bool isSure)
{
    // A movie that cannot be shown can be deleted all the same.
    const auto capture = BRCapturePath::movieFolder(movie).and_then(BRCapturePath::withPath);
    if (!capture) {
        BRTerminal::printError(capture.error());
        return BRExitStatusOfError(capture.error(), BRAccess::Reading);
    }
    const QString folder = QFileInfo(capture->videoDataPath).path();
    auto lock = BRMovieFolderLock::take(folder);
    if (lock && !*lock) {
        BRTerminal::printError(u"\"%1\" is being recorded"_s.arg(folder));
        return BRExitFailed;
    }
    const QString name
        = lineOf(capture->info.value(u"name"_s, QFileInfo(folder).fileName()).toString());
    if (!isSure) {
        if (!isConfirmed(u"Move \"%1\" to the trash?"_s.arg(name))) {
            BRTerminal::printError(u"\"%1\" was not deleted (--yes deletes unasked)"_s.arg(name));
            return BRExitFailed;
        }
        // What comes back from there shall not look interrupted.
        if (lock)
            lock->reset();
        if (QFile::moveToTrash(folder))
            return BRExitDone;
        if (!isConfirmed(u"There is no trash. Delete \"%1\" for good?"_s.arg(name)))
            return BRExitFailed;
    }
    // A link goes, not what it leads to.
    const bool isGone
        = QFileInfo(folder).isSymLink() ? QFile::remove(folder) : QDir(folder).removeRecursively();
    return isGone ? BRExitDone : failWriting(u"Could not delete all of "_s, folder);
}

int BRRunRepairCommand(const QString &movie, const BRBackEnds &backEnds)
{
    const auto folder = BRCapturePath::movieFolder(movie);
    // Of a movie: what has no capture is none.
    if (const auto capture = folder.and_then(BRCapturePath::withPath); !capture) {
        BRTerminal::printError(capture.error());
        return BRExitStatusOfError(capture.error(), BRAccess::Reading);
    }
    const auto rescued = BRMovieRescue::rescue(*folder, backEnds.media);
    if (!rescued) {
        BRTerminal::printError(rescued.error());
        return BRExitStatusOfError(rescued.error(), BRAccess::Writing);
    }
    switch (rescued->outcome) {
    case BRRescuedMovie::Outcome::Untouched:
        BRTerminal::print(u"There was nothing to repair"_s);
        return BRExitDone;
    case BRRescuedMovie::Outcome::Rescued:
        BRTerminal::print(u"Rescued %1 frames, %2 seconds; %3 bytes behind them were put aside"_s
                              .arg(rescued->frames)
                              .arg(rescued->duration, 0, 'f', 1)
                              .arg(rescued->bytesCut));
        return BRExitDone;
    case BRRescuedMovie::Outcome::BeingWritten:
        BRTerminal::printError(u"\"%1\" is being recorded"_s.arg(*folder));
        return BRExitFailed;
    case BRRescuedMovie::Outcome::Empty:
        BRTerminal::printError(u"\"%1\" holds no complete frame"_s.arg(*folder));
        return BRExitFailed;
    }
    return BRExitFailed;
}
