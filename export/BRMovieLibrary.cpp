#include "export/BRMovieLibrary.h"

#include "capture/framefile/BRFrameStreamer.h"
#include "foundation/PXMainThread.h"
#include "foundation/PXPropertyList.h"
#include "foundation/PXThread.h"

#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFileInfo>
#include <QSet>

#include <algorithm>
#include <cerrno>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

/// The folders in it that hold a raw capture, or say that they are a movie, the newest last. Links
/// are not followed: what is deleted there would be somewhere else.
QStringList movieFoldersIn(const QString &moviesFolder)
{
    const QDir folder(moviesFolder);
    QStringList paths;
    for (const QString &entry : folder.entryList(
             QDir::Dirs | QDir::NoDotAndDotDot | QDir::NoSymLinks, QDir::Time | QDir::Reversed)) {
        const QString path = folder.filePath(entry);
        if (QFileInfo::exists(QDir(path).filePath(kBRCaptureVideoDataName))
            || QFileInfo::exists(QDir(path).filePath(kBRMovieInfoName)))
            paths << path;
    }
    return paths;
}

} // namespace

BRMovieLibrary::BRMovieLibrary(QString moviesFolder, PXMediaPlatform &media, PXDefaults &defaults)
    : _moviesFolder(std::move(moviesFolder)), _media(media), _defaults(defaults)
{
}

BRMovieLibrary::~BRMovieLibrary() = default;

PXExpected<void> BRMovieLibrary::reload()
{
    const QFileInfo folder(_moviesFolder);
    if (!folder.isDir() || !folder.isReadable()) {
        return PXFail(PXPOSIXError(folder.isDir() ? EACCES : ENOENT,
                                   u"Could not read the movies folder "_s + _moviesFolder));
    }
    _failures.clear();
    _foldersToLoad = movieFoldersIn(_moviesFolder);
    // What had no frames may have some now: a recording that has ended since.
    _triedToRescue = _rescuesUnderWay;
    QSet<QString> known = _rescuesUnderWay;
    const QSet<QString> there(_foldersToLoad.begin(), _foldersToLoad.end());
    std::erase_if(_movies, [&](const Movie &movie) {
        // One that is being exported hears of the end of its folder, and of its own.
        const bool stays = movie->isCompressing()
            || (there.contains(movie->movieFolderPath()) && movie->numberOfFrames() > 0);
        if (stays)
            known.insert(movie->movieFolderPath());
        return !stays;
    });
    _foldersToLoad.removeIf([&](const QString &each) { return known.contains(each); });
    return {};
}

bool BRMovieLibrary::loadSome(std::chrono::milliseconds time)
{
    QElapsedTimer clock;
    clock.start();
    while (!_foldersToLoad.isEmpty() && clock.elapsed() < time.count())
        _load(_foldersToLoad.takeLast());
    return !_foldersToLoad.isEmpty();
}

PXExpected<void> BRMovieLibrary::loadAll()
{
    if (auto reloaded = reload(); !reloaded)
        return reloaded;
    while (loadSome(std::chrono::hours(1))) { }
    if (!_rescuesUnderWay.isEmpty()) {
        QEventLoop loop;
        _rescuesAreDone = [&] { loop.quit(); };
        loop.exec();
        _rescuesAreDone = nullptr;
    }
    return {};
}

void BRMovieLibrary::_load(const QString &movieFolder)
{
    const auto info = PXPropertyList::read(QDir(movieFolder).filePath(kBRMovieInfoName));
    const auto header
        = BRFrameStreamer::headerOfFile(QDir(movieFolder).filePath(kBRCaptureVideoDataName));
    if (!_triedToRescue.contains(movieFolder)
        && BRMovieRescue::isNeeded(movieFolder, info, header)) {
        _rescue(movieFolder);
        return;
    }
    auto movie = info.and_then([&](const QVariantMap &found) {
        return BRCapturedMovie::withInfoAndHeader(movieFolder, found, header, _media, _defaults);
    });
    if (movie)
        _add(*std::move(movie));
    else
        _failures.emplace_back(movieFolder, movie.error());
}

void BRMovieLibrary::_add(const Movie &movie)
{
    const auto isNewer
        = [](const Movie &one, const Movie &other) { return one->date() > other->date(); };
    _movies.insert(std::upper_bound(_movies.begin(), _movies.end(), movie, isNewer), movie);
}

void BRMovieLibrary::_rescue(const QString &movieFolder)
{
    _triedToRescue << movieFolder;
    _rescuesUnderWay << movieFolder;
    _toRescue.enqueue(movieFolder);
    if (_rescueThread.joinable())
        return;
    _rescueThread = std::jthread([this](const std::stop_token &stop) {
        PXSetThreadName("tolvane-rescue");
        while (const auto folder = _toRescue.dequeue(stop)) {
            RescueResult result{*folder, BRMovieRescue::rescue(*folder, _media, stop)};
            PXMainThread::post(&_mainThread, [this, result = std::move(result)]() mutable {
                _rescueIsDone(std::move(result));
            });
            if (stop.stop_requested())
                return;
        }
    });
}

void BRMovieLibrary::_rescueIsDone(RescueResult result)
{
    const QString folder = result.movieFolder;
    _rescuesUnderWay.remove(folder);
    _rescueResults.push_back(std::move(result));
    _load(folder);
    if (_didChange)
        _didChange();
    if (_rescuesUnderWay.isEmpty() && _rescuesAreDone)
        _rescuesAreDone();
}

QStringList BRMovieLibrary::foldersFor(const QString &text, const QString &moviesFolder)
{
    if (text.isEmpty())
        return {};
    const QStringList all = movieFoldersIn(moviesFolder);
    const auto those = [&](const auto &isMeant) {
        QStringList found;
        std::copy_if(all.begin(), all.end(), std::back_inserter(found), isMeant);
        return found;
    };
    const auto nameOf = [](const QString &folder) { return QFileInfo(folder).fileName(); };
    QStringList found = those([&](const QString &folder) {
        return nameOf(folder).compare(text, Qt::CaseInsensitive) == 0;
    });
    if (!found.isEmpty())
        return found;
    // Both: a name may be what another movie's UUID begins with, and neither is to be deleted for
    // the other.
    return those([&](const QString &folder) {
        if (nameOf(folder).startsWith(text, Qt::CaseInsensitive))
            return true;
        const auto info = PXPropertyList::read(QDir(folder).filePath(kBRMovieInfoName));
        return info && info->value(u"name"_s) == text;
    });
}
