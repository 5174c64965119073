#include "tests/audio/ScratchMachine.h"

#include "foundation/PXResources.h"

#include <QFileInfo>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

using namespace Qt::StringLiterals;

void ScratchMachine::SetUp()
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can give files to others";
    ::umask(022);
    for (const char *folder : {"/etc/pulse/default.pa.d", "/usr/local/share/Tolvane", "/srv"})
        makeFolder(QLatin1StringView(folder));
    makeFolder(u"/home/user"_s, kUser);
    makeFile(u"/home/user/a.mov"_s, kUser);
    makeFile(u"/home/victim/secret"_s, kVictim, "not yours");
    makeFile(u"/etc/shadow"_s, 0, "nobody's");
}

QString ScratchMachine::driver() const
{
    return at(u"/usr/local/lib/tolvane/Extensions/TolvaneAudio.kext"_s);
}

QString ScratchMachine::resource()
{
    return QFileInfo(PXResources::pathForResource(u"TolvaneAudio"_s, u"kext"_s).value())
        .canonicalFilePath();
}

void ScratchMachine::makeFolder(const QString &path, uid_t owner) const
{
    ASSERT_TRUE(QDir().mkpath(at(path)));
    ASSERT_EQ(::chown(QFile::encodeName(at(path)).constData(), owner, owner), 0);
}

void ScratchMachine::makeFile(const QString &path, uid_t owner, const QByteArray &contents) const
{
    const QString parent = path.first(path.lastIndexOf(u'/'));
    if (!exists(parent))
        makeFolder(parent, owner);
    QFile file(at(path));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(contents);
    ASSERT_EQ(::fchown(file.handle(), owner, owner), 0);
}

void ScratchMachine::makeLink(const QString &target, const QString &path) const
{
    ASSERT_TRUE(QFile::link(target, at(path)));
}

void ScratchMachine::copyDriver(const QString &path) const
{
    std::filesystem::copy(resource().toStdString(), at(path).toStdString(),
                          std::filesystem::copy_options::recursive);
}

bool ScratchMachine::exists(const QString &path) const
{
    return QFileInfo::exists(at(path)) || QFileInfo(at(path)).isSymLink();
}

QByteArray ScratchMachine::contentsOf(const QString &path) const
{
    QFile file(at(path));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : "cannot be read";
}

std::map<std::string, std::string> ScratchMachine::snapshot() const
{
    using namespace std::filesystem;
    std::map<std::string, std::string> all;
    for (const directory_entry &entry : recursive_directory_iterator(root().toStdString())) {
        struct stat status = {};
        ::lstat(entry.path().c_str(), &status);
        std::string text
            = std::to_string(status.st_mode) + ' ' + std::to_string(status.st_uid) + ' ';
        if (S_ISLNK(status.st_mode)) {
            text += read_symlink(entry.path()).string();
        } else if (S_ISREG(status.st_mode)) {
            std::ifstream file(entry.path());
            text.append(std::istreambuf_iterator<char>(file), {});
        }
        all[entry.path().string()] = text;
    }
    return all;
}
