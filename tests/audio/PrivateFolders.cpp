#include "tests/audio/PrivateFolders.h"

#include <QDir>
#include <QProcess>

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <stdexcept>

using namespace Qt::StringLiterals;

bool PrivateFolders::areAllowed()
{
    // For the calling thread and its children; the others of this process do not care.
    static const bool are = ::geteuid() == 0 && ::unshare(CLONE_NEWNS) == 0
        && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    return are;
}

PrivateFolders::PrivateFolders(const std::vector<QString> &copied,
                               const std::vector<QString> &empty)
    : _folder(u"/var/tmp/tolvane-XXXXXX"_s)
{
    for (const QString &path : copied) {
        const QString copy = _folder.filePath(QString::number(_mounted.size()));
        if (QProcess::execute(u"cp"_s, {u"-a"_s, path, copy}) != 0)
            throw std::runtime_error("no copy of " + path.toStdString());
        _mount(path, copy);
    }
    for (const QString &path : empty) {
        QDir(_folder.path()).mkdir(QString::number(_mounted.size()));
        _mount(path, _folder.filePath(QString::number(_mounted.size())));
    }
}

void PrivateFolders::_mount(const QString &path, const QString &inItsPlace)
{
    if (!areAllowed()
        || ::mount(inItsPlace.toUtf8().constData(), path.toUtf8().constData(), nullptr, MS_BIND,
                   nullptr)
            != 0)
        throw std::runtime_error("nothing in place of " + path.toStdString());
    _mounted.push_back(path.toUtf8());
}

PrivateFolders::~PrivateFolders()
{
    for (const QByteArray &path : _mounted)
        ::umount2(path.constData(), MNT_DETACH);
}
