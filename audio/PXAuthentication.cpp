#include "audio/PXAuthentication.h"

#include "audio/PXFileManagerAdditions.h"
#include "audio/privileged/PXPrivilegedProtocol.h"
#include "foundation/BRLog.h"
#include "foundation/PXFileManager.h"

#include <QFileInfo>

#include <utility>

using namespace Qt::StringLiterals;

const QString kPXOSStatusErrorDomain = u"NSOSStatusErrorDomain"_s;

PXAuthentication &PXAuthentication::sharedInstance()
{
    static auto *const theInstance = new PXAuthentication;
    return *theInstance;
}

PXAuthentication::PXAuthentication(QStringList launcher, std::chrono::milliseconds lifetime)
    : _launcher(std::move(launcher))
{
    mReleaseTimer.setSingleShot(true);
    mReleaseTimer.setInterval(lifetime);
    QObject::connect(&mReleaseTimer, &QTimer::timeout, &mReleaseTimer,
                     [this] { _timedAuthorizationRelease(); });
}

tl::expected<std::shared_ptr<PXAuthorization>, int> PXAuthentication::authorization()
{
    // A helper may have been ended from outside.
    if (!mAuthorization || !mAuthorization->isAlive()) {
        if (_isAsking)
            return tl::unexpected(PXPrivilegedCancelled);
        _isAsking = true;
        auto authorization = PXAuthorization::withLauncher(_launcher);
        _isAsking = false;
        if (!authorization)
            return tl::unexpected(authorization.error());
        mAuthorization = *std::move(authorization);
    }
    mReleaseTimer.start();
    return mAuthorization;
}

void PXAuthentication::_timedAuthorizationRelease()
{
    mAuthorization.reset();
}

int PXAuthentication::executeTask(const QString &path, const QStringList &arguments, int options)
{
    if (options != 0)
        return PXPrivilegedInvalidFlags;
    const auto held = authorization();
    return held ? (*held)->executeTask(path, arguments) : held.error();
}

QString PXAuthentication::authorizationErrorString(int status)
{
    switch (status) {
    case 0:
        return u"The operation completed successfully."_s;
    case -60001:
        return u"The set parameter is invalid."_s;
    case -60002:
        return u"The authorization parameter is invalid."_s;
    case -60003:
        return u"The tag parameter is invalid."_s;
    case -60004:
        return u"The authorizedRights parameter is invalid."_s;
    case -60005:
        return u"The authorization was denied."_s;
    case -60006:
        return u"The authorization was cancelled by the user."_s;
    case -60007:
        return u"The authorization was denied since no user interaction was possible."_s;
    case -60008:
        return u"something else went wrong"_s;
    case -60009:
        return u"authorization externalization denied"_s;
    case -60010:
        return u"authorization internalization denied"_s;
    case -60011:
        return u"invalid option flag(s)"_s;
    case -60031:
        return u"cannot execute privileged tool"_s;
    case -60032:
        return u"The privileged tool failed to return a success or error code."_s;
    case -60033:
        return u"invalid socket address requested"_s;
    default:
        return {};
    }
}

bool PXAuthentication::createFolderAtPath(const QString &path)
{
    if (QFileInfo::exists(path))
        return true;
    // The helper follows no link. They are taken here, with the user's own rights: where one leads
    // that he may not see, he may not go.
    const QString folder = PXFileManager::pathBehindLinks(path);
    const int status = executeTask(u"/bin/mkdir"_s, {folder});
    if (status != PXPrivilegedDone && status != PXPrivilegedCancelled)
        BRLog(BRLogError, u"Could not create folder. "_s + authorizationErrorString(status));
    return status == PXPrivilegedDone;
}

bool PXAuthentication::createFoldersInPath(const QString &path)
{
    if (path.isEmpty())
        return true;
    const QString whole = PXFileManager::resolvedPath(path);
    for (qsizetype end = 0; end >= 0;) {
        end = whole.indexOf(u'/', end + 1);
        if (!createFolderAtPath(end < 0 ? whole : whole.first(end)))
            return false;
    }
    return true;
}

PXAuthorized PXAuthentication::movePath(const QString &source, const QString &destination)
{
    const int status = executeTask(u"/bin/mv"_s,
                                   {u"-f"_s, PXFileManager::pathBehindLinks(source),
                                    PXFileManager::pathBehindLinks(destination)});
    if (status == PXPrivilegedDone)
        return {};
    if (status == PXPrivilegedCancelled)
        return tl::unexpected(std::nullopt);
    return tl::unexpected(PXError{kPXOSStatusErrorDomain,
                                  status,
                                  u"Could not move the file."_s,
                                  authorizationErrorString(status),
                                  {}});
}
