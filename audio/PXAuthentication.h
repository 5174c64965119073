#pragma once

#include "audio/PXAuthorization.h"
#include "foundation/PXError.h"

#include <QString>
#include <QStringList>
#include <QTimer>

#include <tl/expected.hpp>

#include <chrono>
#include <memory>
#include <optional>

/// Of the status codes that `authorizationErrorString` has texts for.
extern const QString kPXOSStatusErrorDomain;

/// Done, or why not; without an error where the user dismissed the question, who need not be told
/// then.
using PXAuthorized = tl::expected<void, std::optional<PXError>>;

/// Does tasks as root, after an administrator has agreed: once for all tasks that follow each other
/// by less than 60 seconds. Main thread; see `PXAuthorization` about the waiting. A status is 0 or
/// one of `PXPrivilegedProtocol.h`.
class PXAuthentication final {
public:
    /// The application's; never freed, so that the helper may outlive the event loop.
    static PXAuthentication &sharedInstance();

    explicit PXAuthentication(QStringList launcher = PXAuthorization::defaultLauncher(),
                              std::chrono::milliseconds lifetime = std::chrono::seconds(60));

    /// The one that is held, or a new one, for which the user is asked. It is held until 60 seconds
    /// after the last call. Shared: the end of that time must not end a task that still runs.
    tl::expected<std::shared_ptr<PXAuthorization>, int> authorization();

    /// `path` and `arguments` are one of the forms in PXPrivilegedCommands.h; `options` are 0,
    /// there are no others.
    int executeTask(const QString &path, const QStringList &arguments, int options = 0);

    /// What a status means; empty for one that is not known.
    static QString authorizationErrorString(int status);

    /// Whether there is something at `path` or a folder could be made there. The reason is logged,
    /// save for a dismissed question.
    bool createFolderAtPath(const QString &path);
    /// The same for each step of the way to `path`, and `path` itself, up to the first failure.
    bool createFoldersInPath(const QString &path);
    /// A file at `destination` is replaced. The error's code is the status.
    PXAuthorized movePath(const QString &source, const QString &destination);

private:
    void _timedAuthorizationRelease();

    const QStringList _launcher;
    std::shared_ptr<PXAuthorization> mAuthorization;
    bool _isAsking = false; ///< The user, who is not to be asked twice at a time.
    QTimer mReleaseTimer;
};
