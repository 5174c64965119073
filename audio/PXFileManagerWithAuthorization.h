#pragma once

#include "audio/PXAuthorization.h"
#include "audio/PXFileManagerAdditions.h"

#include <QString>
#include <QStringList>

#include <memory>

/// Tasks with files that an administrator must agree to, each through an authorization that the
/// caller brings along or that is obtained for this one task. Where a task may reach is in
/// PXPrivilegedCommands.h. All answer a status: 0 or one of PXPrivilegedProtocol.h. Main thread.
class PXFileManagerWithAuthorization final {
public:
    enum Flags {
        InteractionAllowed = 1, ///< Without it the user cannot be asked, and nothing is obtained.
        ExtendRights = 2,
    };
    enum class PXFolders { No, Yes };
    enum class PXRecursive { No, Yes };
    using PXReplace = PXFileManager::PXReplace;

    explicit PXFileManagerWithAuthorization(QStringList launcher
                                            = PXAuthorization::defaultLauncher());

    int obtainAuthorization(std::unique_ptr<PXAuthorization> &authorization, int flags);
    static void freeAuthorization(std::unique_ptr<PXAuthorization> authorization);

    static int removeFileAtPath(const QString &path, PXFolders removeDirectories,
                                PXRecursive recursive, PXAuthorization &authorization);
    static int copyPath(const QString &source, const QString &destination, PXReplace replace,
                        PXAuthorization &authorization);
    static int movePath(const QString &source, const QString &destination, PXReplace replace,
                        PXAuthorization &authorization);
    /// Leaves out names that begin with "."; with `PXReplace::Yes` what is in the way is removed
    /// first, else it stays and so does what should have taken its place. The first failure ends
    /// it.
    static int moveContentsOfDirectoryAtPath(const QString &source, const QString &destination,
                                             PXReplace replace, PXAuthorization &authorization);

    /// The same with an authorization of their own, which is freed when the task succeeds. After a
    /// failure it is left as it is; its helper leaves when it has had nothing to do for a while.
    int authorizedRemoveFileAtPath(const QString &path, PXFolders removeDirectories,
                                   PXRecursive recursive);
    int authorizedCopyPath(const QString &source, const QString &destination, PXReplace replace);
    int authorizedMovePath(const QString &source, const QString &destination, PXReplace replace);
    int authorizedMoveContentsOfDirectoryAtPath(const QString &source, const QString &destination,
                                                PXReplace replace);

private:
    template <typename Task> int _withAuthorization(const Task &task);

    const QStringList _launcher;
};
