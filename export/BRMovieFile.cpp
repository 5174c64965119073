#include "export/BRMovieFile.h"

#include "export/BRExportErrors.h"
#include "foundation/BRLog.h"
#include "foundation/PXFileManager.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

PXExpected<std::unique_ptr<BRMovieFile>>
BRMovieFile::create(PXMediaPlatform &media, const QString &outputPath, const PXTrackFormat &format)
{
    std::unique_ptr<BRMovieFile> movie(new BRMovieFile(outputPath));
    movie->_claimTempPath();
    auto writer = media.makeMovieWriter(movie->_tempPath);
    if (!writer)
        return PXFail(BRExportErrors::cannotCreateMovie(movie->_tempPath, writer.error()));
    movie->_isOurs = true;
    movie->_writer = *std::move(writer);
    if (const auto added = movie->_writer->addVideoTrack(format); !added)
        return PXFail(BRExportErrors::cannotBeginMovie("NewMovieTrack", added.error()));
    if (const auto begun = movie->_writer->beginMediaEdits(); !begun)
        return PXFail(BRExportErrors::cannotBeginMovie("BeginMediaEdits", begun.error()));
    return movie;
}

BRMovieFile::~BRMovieFile()
{
    _writer.reset();
    if (_isOurs)
        QFile::remove(_tempPath);
}

// The first free name, taken in the same step, so that two exports into one folder never share it.
// Nor is it the movie's own, which must stay free until the end.
void BRMovieFile::_claimTempPath()
{
    const QFileInfo output(_outputPath);
    QString name = u"Tolvane Temp.mov"_s;
    for (int counter = 2;; ++counter) {
        _tempPath = output.path() + u'/' + name;
        QFile file(_tempPath);
        if (name != output.fileName()) {
            _isOurs = file.open(QIODevice::WriteOnly | QIODevice::NewOnly);
            // One that cannot be made is no reason to look on: opening it will tell why.
            if (_isOurs || (!file.exists() && !QFileInfo(_tempPath).isSymLink()))
                return;
        }
        name = u"Tolvane Temp %1.mov"_s.arg(counter);
    }
}

PXExpected<void> BRMovieFile::finalizeQuickTimeMovie()
{
    BRLog(BRLogDebug, "_finalizeQuickTimeMovie");
    PXExpected<void> result;
    const auto check = [&](const char *call, const PXExpected<void> &done) {
        if (done)
            return;
        BRLog(BRLogError, "%s() failed with error %i", call, done.error().code);
        if (result)
            result = done;
    };
    BRLog(BRLogDebug, "_finalizeQuickTimeMovie EndMediaEdits");
    check("EndMediaEdits", _writer->endMediaEdits());
    // The muxer does both of these by itself; the lines mark the place for who reads the log.
    BRLog(BRLogDebug, "_finalizeQuickTimeMovie ExtendMediaDecodeDurationToDisplayEndTime");
    BRLog(BRLogDebug, "_finalizeQuickTimeMovie InsertMediaIntoTrack");
    BRLog(BRLogDebug, "_finalizeQuickTimeMovie AddMovieToStorage");
    check("AddMovieToStorage", _writer->addMovieToStorage());
    _writer.reset();
    check("fsync", _sync());
    BRLog(BRLogDebug, "_finalizeQuickTimeMovie done");
    return result;
}

// Before the old file goes, so that a crash of the system leaves one of the two.
PXExpected<void> BRMovieFile::_sync() const
{
    const int file = open(QFile::encodeName(_tempPath).constData(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return {}; // Gone; moving it will tell.
    const int error = fsync(file) == 0 ? 0 : errno;
    close(file);
    if (error != 0)
        return PXFail(PXPOSIXError(error, u"Could not write the movie %1"_s.arg(_tempPath)));
    return {};
}

PXExpected<QString> BRMovieFile::moveToItsPlace()
{
    const auto moveTo = [this](const QString &path) { return QFile::rename(_tempPath, path); };
    QString path = _outputPath;
    // Something may have come there since the export began: it is replaced in one step, and
    // removed first only where that cannot be.
    bool isMoved
        = std::rename(QFile::encodeName(_tempPath).constData(), QFile::encodeName(path).constData())
        == 0;
    if (!isMoved) {
        QFile::remove(path);
        isMoved = moveTo(path);
    }
    if (!isMoved) {
        path = PXFileManager::uniquePathForFileWithDesiredPath(path);
        isMoved = moveTo(path);
    }
    if (!isMoved)
        return PXFail(BRExportErrors::cannotMoveMovie(_outputPath));
    _isOurs = false;
    return path;
}
