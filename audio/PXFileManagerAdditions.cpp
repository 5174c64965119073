#include "audio/PXFileManagerAdditions.h"

#include "audio/privileged/PXFileTree.h"
#include "foundation/BRLog.h"
#include "foundation/PXFileManager.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <system_error>

using namespace Qt::StringLiterals;

namespace {

PXFileResult<PXPlace> placeAtPath(const QString &path)
{
    return PXPlace::atPath(QFile::encodeName(PXFileManager::pathBehindLinks(path)).toStdString());
}

PXError errorOf(const PXFileFailure &failure, const QString &whatFailed)
{
    return PXPOSIXError(failure.number,
                        whatFailed + u' ' + QFile::decodeName(failure.path.c_str()));
}

PXFileResult<void> copyLink(const PXPlace &source, const PXPlace &destination)
{
    std::array<char, PATH_MAX> target = {};
    // One byte less, which ends it.
    if (::readlinkat(source.folder(), source.name(), target.data(), target.size() - 1) < 0)
        return source.failure();
    if (::symlinkat(target.data(), destination.folder(), destination.name()) != 0)
        return destination.failure();
    return {};
}

PXFileResult<void> copyItem(const PXPlace &source, const PXPlace &destination,
                            const PXFileManager::PXCopyErrorHandler &handler);

PXFileResult<void> copyFolder(const PXPlace &source, const PXPlace &destination, mode_t mode,
                              const PXFileManager::PXCopyErrorHandler &handler)
{
    const auto names
        = PXFileTree::makeFolder(destination).and_then([&] { return PXFileTree::namesIn(source); });
    if (!names)
        return tl::unexpected(names.error());
    for (const std::string &name : *names) {
        const auto from = source.child(name);
        const auto to = destination.child(name);
        if (!from || !to)
            return tl::unexpected(from ? to.error() : from.error());
        if (auto copied = copyItem(*from, *to, handler); !copied)
            return copied;
    }
    // Last, or a folder without the right to write would stay empty.
    if (::fchmodat(destination.folder(), destination.name(), mode, 0) != 0)
        return destination.failure();
    return {};
}

PXFileResult<void> copyItem(const PXPlace &source, const PXPlace &destination,
                            const PXFileManager::PXCopyErrorHandler &handler)
{
    const auto status = source.status();
    PXFileResult<void> copied;
    if (!status)
        copied = tl::unexpected(status.error());
    else if (!*status)
        copied = source.failure(ENOENT);
    else if (S_ISLNK((*status)->st_mode))
        copied = copyLink(source, destination);
    else if (S_ISDIR((*status)->st_mode))
        return copyFolder(source, destination, (*status)->st_mode & 0777U, handler);
    else
        copied = PXFileTree::copyFile(source, destination, PXFileTree::Existing::Refused);
    if (!copied && handler && handler(errorOf(copied.error(), u"Could not copy"_s)))
        return {};
    return copied;
}

/// Also a folder, to another file system.
PXFileResult<void> moveItem(const PXPlace &source, const PXPlace &destination)
{
    auto moved = PXFileTree::move(source, destination, PXFileTree::Existing::Refused);
    if (moved || moved.error().number != EXDEV)
        return moved;
    return copyItem(source, destination, {}).and_then([&] {
        return PXFileTree::remove(source, true);
    });
}

PXExpected<void> failToMoveContents(const PXFileFailure &failure, const char *what, PXAlert *alert)
{
    const QString line = u"moveContentsOfDirectoryAtPath:intoDirectoryAtPath:replace: "_s
        + QLatin1StringView(what);
    BRLog(BRLogError, line);
    if (alert)
        alert->beep(line);
    return PXFail(errorOf(failure, u"Could not move"_s));
}

std::uint64_t sizeOfFile(const std::filesystem::directory_entry &file)
{
    std::error_code error;
    // A link counts as nothing: what it leads to lies elsewhere.
    if (file.symlink_status(error).type() != std::filesystem::file_type::regular)
        return 0;
    const std::uintmax_t size = file.file_size(error);
    return error ? 0 : size;
}

} // namespace

namespace PXFileManager {

std::optional<QString> findSystemFolderType(PXSystemFolder type, PXFolderDomain domain)
{
    if (domain == PXFolderDomain::Local)
        return type == PXApplicationSupportFolder ? std::optional(u"/usr/local/share"_s)
                                                  : std::nullopt;
    switch (type) {
    case PXApplicationSupportFolder:
        return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    case PXDesktopFolder:
        return QStandardPaths::writableLocation(QStandardPaths::DesktopLocation);
    case PXDocumentsFolder:
        return QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    case PXMoviesFolder:
        return QStandardPaths::writableLocation(QStandardPaths::MoviesLocation);
    case PXPicturesFolder:
        return QStandardPaths::writableLocation(QStandardPaths::PicturesLocation);
    }
    return std::nullopt;
}

std::optional<QString> fileTypeForFileAtPath(const QString &path)
{
    QProcess file;
    file.start(u"/usr/bin/file"_s, {u"-b"_s, u"--"_s, path});
    const bool hasEnded = file.waitForFinished(-1);
    const QByteArray output = file.readAllStandardOutput();
    if (!hasEnded || file.exitStatus() != QProcess::NormalExit || file.exitCode() != 0
        || output.isEmpty())
        return std::nullopt;
    return QString::fromUtf8(output.chopped(1));
}

std::optional<std::uint64_t> sizeOfFolderAtPath(const QString &path)
{
    using namespace std::filesystem;
    const std::filesystem::path folder(QFile::encodeName(path).toStdString());
    std::error_code error;
    if (!exists(folder, error))
        return std::nullopt;
    if (!is_directory(folder, error))
        return sizeOfFile(directory_entry(folder, error));
    std::uint64_t size = 0;
    recursive_directory_iterator entry(folder, directory_options::skip_permission_denied, error);
    for (; !error && entry != recursive_directory_iterator(); entry.increment(error))
        size += sizeOfFile(*entry);
    return size;
}

QString pathBehindLinks(const QString &path)
{
    QString whole = resolvedPath(path);
    const qsizetype slash = whole.lastIndexOf(u'/');
    const QString folder = QFileInfo(whole.first(slash) + u'/').canonicalFilePath();
    if (folder.isEmpty())
        return whole;
    return (folder == u"/"_s ? QString() : folder) + whole.sliced(slash);
}

QString pathForDuplicateOfFileAtPath(const QString &path)
{
    return firstFreePath(path, [](const QString &stem, int counter) {
        const QString copy = stem + u" copy"_s;
        return counter == 0 ? copy : copy + u' ' + QString::number(counter);
    });
}

PXExpected<QString> duplicateFileAtPath(const QString &path, const PXCopyErrorHandler &handler)
{
    const QString copy = pathForDuplicateOfFileAtPath(path);
    const auto source = placeAtPath(path);
    const auto destination = placeAtPath(copy);
    if (!source || !destination)
        return PXFail(
            errorOf(source ? destination.error() : source.error(), u"Could not duplicate"_s));
    if (const auto copied = copyItem(*source, *destination, handler); !copied)
        return PXFail(errorOf(copied.error(), u"Could not duplicate"_s));
    return copy;
}

PXExpected<void> moveContentsOfDirectoryAtPath(const QString &source, const QString &destination,
                                               PXReplace replace, PXAlert *alert)
{
    // Names that begin with a dot are hidden, and not listed.
    const QStringList names
        = QDir(source).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    for (const QString &name : names) {
        const auto from = placeAtPath(source + u'/' + name);
        const auto to = placeAtPath(destination + u'/' + name);
        if (!from || !to)
            return failToMoveContents(from ? to.error() : from.error(),
                                      "could not move from source to destination path", alert);
        auto isThere = to->status();
        if (isThere && *isThere && replace == PXReplace::Yes) {
            const auto removed = PXFileTree::remove(*to, true);
            if (!removed)
                return failToMoveContents(removed.error(), "could not remove destination path",
                                          alert);
            isThere = to->status();
        }
        if (isThere && *isThere)
            continue;
        if (const auto moved = moveItem(*from, *to); !moved)
            return failToMoveContents(moved.error(),
                                      "could not move from source to destination path", alert);
    }
    return {};
}

PXExpected<void> removeDirectoryAtPath(const QString &path)
{
    const auto removed = placeAtPath(path).and_then([](const PXPlace &place) -> PXFileResult<void> {
        const auto status = place.status();
        if (!status)
            return tl::unexpected(status.error());
        if (*status && !S_ISDIR((*status)->st_mode))
            return place.failure(ENOTDIR);
        return PXFileTree::remove(place, true);
    });
    if (removed)
        return {};
    PXError error = errorOf(removed.error(), u"Could not remove"_s);
    BRLog(BRLogError, error.description);
    return PXFail(std::move(error));
}

} // namespace PXFileManager
