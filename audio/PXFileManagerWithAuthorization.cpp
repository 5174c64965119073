#include "audio/PXFileManagerWithAuthorization.h"

#include "audio/privileged/PXPrivilegedProtocol.h"

#include <QDir>
#include <QFileInfo>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

/// "cp" and "mv", which take the same arguments.
int run(const QString &program, const QString &source, const QString &destination,
        PXFileManager::PXReplace replace, PXAuthorization &authorization)
{
    QStringList arguments;
    if (replace == PXFileManager::PXReplace::Yes)
        arguments << u"-f"_s;
    arguments << PXFileManager::pathBehindLinks(source)
              << PXFileManager::pathBehindLinks(destination);
    return authorization.executeTask(program, arguments);
}

bool isThere(const QString &path)
{
    const QFileInfo info(path);
    return info.exists() || info.isSymLink();
}

} // namespace

PXFileManagerWithAuthorization::PXFileManagerWithAuthorization(QStringList launcher)
    : _launcher(std::move(launcher))
{
}

int PXFileManagerWithAuthorization::obtainAuthorization(
    std::unique_ptr<PXAuthorization> &authorization, int flags)
{
    if (!(flags & InteractionAllowed))
        return PXPrivilegedNoInteraction;
    auto obtained = PXAuthorization::withLauncher(_launcher);
    if (!obtained)
        return obtained.error();
    authorization = *std::move(obtained);
    return PXPrivilegedDone;
}

void PXFileManagerWithAuthorization::freeAuthorization(
    std::unique_ptr<PXAuthorization> authorization)
{
    authorization.reset();
}

int PXFileManagerWithAuthorization::removeFileAtPath(const QString &path,
                                                     PXFolders removeDirectories,
                                                     PXRecursive recursive,
                                                     PXAuthorization &authorization)
{
    QStringList arguments;
    if (recursive == PXRecursive::Yes)
        arguments << u"-R"_s;
    if (removeDirectories == PXFolders::Yes)
        arguments << u"-d"_s;
    arguments << u"-f"_s << PXFileManager::pathBehindLinks(path);
    return authorization.executeTask(u"/bin/rm"_s, arguments);
}

int PXFileManagerWithAuthorization::copyPath(const QString &source, const QString &destination,
                                             PXReplace replace, PXAuthorization &authorization)
{
    return run(u"/bin/cp"_s, source, destination, replace, authorization);
}

int PXFileManagerWithAuthorization::movePath(const QString &source, const QString &destination,
                                             PXReplace replace, PXAuthorization &authorization)
{
    return run(u"/bin/mv"_s, source, destination, replace, authorization);
}

int PXFileManagerWithAuthorization::moveContentsOfDirectoryAtPath(const QString &source,
                                                                  const QString &destination,
                                                                  PXReplace replace,
                                                                  PXAuthorization &authorization)
{
    const QStringList names
        = QDir(source).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    for (const QString &name : names) {
        const QString target = destination + u'/' + name;
        int status = PXPrivilegedDone;
        if (replace == PXReplace::Yes && isThere(target))
            status = removeFileAtPath(target, PXFolders::Yes, PXRecursive::Yes, authorization);
        if (status == PXPrivilegedDone && !isThere(target))
            status = movePath(source + u'/' + name, target, replace, authorization);
        if (status != PXPrivilegedDone)
            return status;
    }
    return PXPrivilegedDone;
}

template <typename Task> int PXFileManagerWithAuthorization::_withAuthorization(const Task &task)
{
    std::unique_ptr<PXAuthorization> authorization;
    if (const int status = obtainAuthorization(authorization, InteractionAllowed | ExtendRights);
        status != PXPrivilegedDone)
        return status;
    const int status = task(*authorization);
    if (status == PXPrivilegedDone)
        freeAuthorization(std::move(authorization));
    else
        PXAuthorization::leaveAlone(std::move(authorization));
    return status;
}

int PXFileManagerWithAuthorization::authorizedRemoveFileAtPath(const QString &path,
                                                               PXFolders removeDirectories,
                                                               PXRecursive recursive)
{
    return _withAuthorization([&](PXAuthorization &authorization) {
        return removeFileAtPath(path, removeDirectories, recursive, authorization);
    });
}

int PXFileManagerWithAuthorization::authorizedCopyPath(const QString &source,
                                                       const QString &destination,
                                                       PXReplace replace)
{
    return _withAuthorization([&](PXAuthorization &authorization) {
        return copyPath(source, destination, replace, authorization);
    });
}

int PXFileManagerWithAuthorization::authorizedMovePath(const QString &source,
                                                       const QString &destination,
                                                       PXReplace replace)
{
    return _withAuthorization([&](PXAuthorization &authorization) {
        return movePath(source, destination, replace, authorization);
    });
}

int PXFileManagerWithAuthorization::authorizedMoveContentsOfDirectoryAtPath(
    const QString &source, const QString &destination, PXReplace replace)
{
    return _withAuthorization([&](PXAuthorization &authorization) {
        return moveContentsOfDirectoryAtPath(source, destination, replace, authorization);
    });
}
