#pragma once

#include "export/BRCapturedMovie.h"
#include "export/BRMovieRescue.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXError.h"
#include "foundation/WHThreadSafeQueue.h"
#include "platform/PXMediaPlatform.h"

#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

/// The captured movies of a folder: one for each folder in it that holds a raw capture, the newest
/// first. What a program that died has left is repaired in the background and appears when it is
/// done. Main thread.
class BRMovieLibrary final {
public:
    using Movie = std::shared_ptr<BRCapturedMovie>;
    struct RescueResult {
        QString movieFolder;
        PXExpected<BRRescuedMovie> outcome;
    };

    /// Does nothing yet. Borrows the last two.
    BRMovieLibrary(QString moviesFolder, PXMediaPlatform &media, PXDefaults &defaults);
    ~BRMovieLibrary();
    BRMovieLibrary(const BRMovieLibrary &) = delete;
    BRMovieLibrary &operator=(const BRMovieLibrary &) = delete;

    [[nodiscard]] const QString &moviesFolder() const { return _moviesFolder; }
    /// Those that are loaded.
    [[nodiscard]] const std::vector<Movie> &movies() const { return _movies; }
    /// Folders that hold a capture of which nothing could be made, with the reason.
    [[nodiscard]] const std::vector<std::pair<QString, PXError>> &failures() const
    {
        return _failures;
    }

    /// Looks at the folder again; movies that were known stay the same objects, those that have
    /// gone leave the list. Fails, and leaves the list as it was, where the folder cannot be read.
    /// None is loaded before `loadSome`.
    PXExpected<void> reload();
    /// Loads movies for about so long; true while there are more.
    bool loadSome(std::chrono::milliseconds time);
    /// Everything, repairs included.
    PXExpected<void> loadAll();

    /// Called whenever `movies()` is another because a movie was repaired.
    void setDidChange(std::function<void()> didChange) { _didChange = std::move(didChange); }
    /// What the repairs since the last call came to.
    std::vector<RescueResult> takeRescueResults() { return std::exchange(_rescueResults, {}); }

    /// The folders of the movies that `text` may mean: that of this name; else those whose names
    /// begin so; else those whose movies are called so. Nothing is repaired.
    [[nodiscard]] static QStringList foldersFor(const QString &text, const QString &moviesFolder);

private:
    void _load(const QString &movieFolder);
    void _add(const Movie &movie);
    void _rescue(const QString &movieFolder);
    void _rescueIsDone(RescueResult result);

    const QString _moviesFolder;
    PXMediaPlatform &_media;
    PXDefaults &_defaults;
    std::vector<Movie> _movies;
    std::vector<std::pair<QString, PXError>> _failures;
    QStringList _foldersToLoad; ///< The newest last.
    QSet<QString> _triedToRescue; ///< By this library; what is not mended then will not be.
    QSet<QString> _rescuesUnderWay;
    std::vector<RescueResult> _rescueResults;
    std::function<void()> _didChange;
    std::function<void()> _rescuesAreDone;
    QObject _mainThread; ///< Context of what the repairing thread posts.
    WHThreadSafeQueue<QString> _toRescue;
    std::jthread _rescueThread; ///< Once there was something to repair.
};
