#include "audio/privileged/PXPrivilegedCommands.h"
#include "audio/privileged/PXFileTree.h"
#include "tests/audio/ScratchMachine.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

class PrivilegedCommands : public ScratchMachine {
protected:
    [[nodiscard]] PXPrivilegedAnswer run(const QStringList &words, uid_t caller = kUser) const
    {
        std::vector<std::string> all;
        for (const QString &word : words)
            all.push_back(word.toStdString());
        return PXPrivilegedCommands(root().toStdString(), caller).run(all);
    }
    void expectDone(const QStringList &words) const
    {
        const PXPrivilegedAnswer answer = run(words);
        EXPECT_EQ(answer.status, PXPrivilegedDone) << answer.text;
    }
    void install() const
    {
        expectDone({u"/bin/cp"_s, u"-R"_s, resource(), driver()});
        expectDone({u"/usr/sbin/chown"_s, u"-R"_s, u"root:wheel"_s, driver()});
        expectDone({u"/sbin/kextload"_s, driver()});
    }
};

TEST_F(PrivilegedCommands, ADriverComesAndGoesWhole)
{
    makeFile(u"/etc/pulse/default.pa.d/mine.pa"_s, 0, "my own");
    const auto before = snapshot();
    // Both times: over nothing, and over a driver that somebody has changed.
    for (int time = 0; time < 2; ++time) {
        install();
        for (const char *link : {"/etc/pulse/default.pa.d/tolvane-audio.pa",
                                 "/etc/pipewire/pipewire-pulse.conf.d/tolvane-audio.conf"}) {
            EXPECT_TRUE(contentsOf(QLatin1StringView(link)).contains("sink_name=tolvane_audio"));
            EXPECT_TRUE(QFileInfo(at(QLatin1StringView(link))).isSymLink());
        }
        QFile plist(driver() + u"/Info.plist"_s);
        ASSERT_TRUE(plist.open(QIODevice::ReadOnly));
        EXPECT_TRUE(plist.readAll().contains("com.pexarworks.driver.tolvaneaudio"));
        EXPECT_EQ(QDir(driver()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size(), 3);
        EXPECT_EQ(QFileInfo(driver()).ownerId(), 0U);
        plist.close();
        QFile::remove(driver() + u"/Info.plist"_s);
        QDir(driver()).mkdir(u"more"_s);
    }
    expectDone({u"/sbin/kextunload"_s, u"-b"_s, u"com.pexarworks.driver.tolvaneaudio"_s});
    expectDone({u"/sbin/kextunload"_s, u"-b"_s, u"com.pexarworks.driver.tolvaneaudio"_s});
    expectDone({u"/bin/rm"_s, u"-r"_s, driver()});
    auto after = snapshot();
    for (const char *folder :
         {"/usr/local/lib/tolvane/Extensions", "/usr/local/lib/tolvane", "/usr/local/lib",
          "/etc/pipewire/pipewire-pulse.conf.d", "/etc/pipewire"})
        EXPECT_EQ(after.erase(at(QLatin1StringView(folder)).toStdString()), 1U) << folder;
    EXPECT_EQ(after, before);
}

TEST_F(PrivilegedCommands, MovesAndMakesWhereTheUserMayNot)
{
    const QString folder = at(u"/srv/two words\nand lines"_s);
    expectDone({u"/bin/mkdir"_s, folder});
    EXPECT_EQ(QFileInfo(folder).ownerId(), 0U);
    expectDone({u"/bin/mv"_s, u"-f"_s, at(u"/home/user/a.mov"_s), folder + u"/b.mov"_s});
    EXPECT_EQ(QFileInfo(folder + u"/b.mov"_s).ownerId(), kUser);
    EXPECT_FALSE(exists(u"/home/user/a.mov"_s));

    makeFile(u"/home/user/new/c.mov"_s, kUser, "newer");
    expectDone({u"/bin/mv"_s, u"-f"_s, at(u"/home/user/new/c.mov"_s), folder + u"/b.mov"_s});
    expectDone({u"/bin/mv"_s, at(u"/home/user/new"_s), at(u"/srv/folder"_s)});
    EXPECT_EQ(contentsOf(u"/srv/two words\nand lines/b.mov"_s), "newer");
    EXPECT_TRUE(exists(u"/srv/folder"_s));
}

TEST_F(PrivilegedCommands, TheSharedFolderIsTakenOver)
{
    makeFile(u"/usr/local/share/Brimmet/a"_s, 0, "a");
    makeFile(u"/usr/local/share/Brimmet/deep/er/b"_s, kVictim, "b");
    makeLink(at(u"/etc"_s), u"/usr/local/share/Brimmet/deep/etc"_s);
    const QString from = at(u"/usr/local/share/Brimmet"_s);
    const QString to = at(u"/usr/local/share/Tolvane"_s);
    expectDone({u"/bin/mv"_s, u"-f"_s, from + u"/a"_s, to + u"/a"_s});
    expectDone({u"/bin/cp"_s, u"-f"_s, to + u"/a"_s, to + u"/copy"_s});
    expectDone({u"/bin/mv"_s, from + u"/deep"_s, to + u"/deep"_s});
    EXPECT_EQ(contentsOf(u"/usr/local/share/Tolvane/copy"_s), "a");
    EXPECT_EQ(contentsOf(u"/usr/local/share/Tolvane/deep/er/b"_s), "b");
    EXPECT_EQ(run({u"/bin/rm"_s, u"-f"_s, to + u"/deep"_s}).status, PXPrivilegedFailed);
    EXPECT_EQ(run({u"/bin/rm"_s, u"-d"_s, u"-f"_s, to + u"/deep"_s}).status, PXPrivilegedFailed);
    expectDone({u"/bin/rm"_s, u"-R"_s, u"-d"_s, u"-f"_s, to + u"/deep"_s});
    expectDone({u"/bin/rm"_s, u"-R"_s, u"-d"_s, u"-f"_s, from});
    expectDone({u"/bin/rm"_s, u"-f"_s, from + u"/not/there"_s});
    EXPECT_FALSE(exists(u"/usr/local/share/Brimmet"_s));
    EXPECT_EQ(contentsOf(u"/etc/shadow"_s), "nobody's"); // Behind the link.
}

TEST_F(PrivilegedCommands, NothingElseIsTouched)
{
    const QString home = at(u"/home/user"_s);
    const QString shared = at(u"/usr/local/share/Tolvane"_s);
    const QString movie = home + u"/a.mov"_s;
    const auto mv = [](const QString &from, const QString &to) {
        return QStringList{u"/bin/mv"_s, u"-f"_s, from, to};
    };
    const auto nothing = [] {};
    const struct {
        const char *name;
        std::function<void()> prepare;
        QStringList words;
        int status;
    } attacks[] = {
        {"nothing", nothing, {}, PXPrivilegedCannotExecute},
        {"shell", nothing, {u"/bin/sh"_s, u"-c"_s, u"id"_s}, PXPrivilegedCannotExecute},
        {"nameAlone", nothing, {u"rm"_s, u"-f"_s, shared + u"/x"_s}, PXPrivilegedCannotExecute},

        {"driverElsewhere",
         nothing,
         {u"/bin/cp"_s, u"-R"_s, resource(), at(u"/etc/pulse"_s)},
         PXPrivilegedCannotExecute},
        {"driverWithDots",
         nothing,
         {u"/bin/cp"_s, u"-R"_s, resource(), driver() + u"/../TolvaneAudio.kext"_s},
         PXPrivilegedCannotExecute},
        {"anotherDriver",
         [&] {
             copyDriver(u"/home/user/evil.kext"_s);
             makeFile(u"/home/user/evil.kext/default.pa.d/tolvane-audio.pa"_s, kUser,
                      "load-module module-cli-protocol-tcp");
         },
         {u"/bin/cp"_s, u"-R"_s, home + u"/evil.kext"_s, driver()},
         PXPrivilegedFailed},
        {"driverOfPipes",
         [&] {
             copyDriver(u"/home/user/pipe.kext"_s);
             const QByteArray path = at(u"/home/user/pipe.kext/Info.plist"_s).toUtf8();
             QFile::remove(QString::fromUtf8(path));
             ASSERT_EQ(::mkfifo(path.constData(), 0666), 0);
         },
         {u"/bin/cp"_s, u"-R"_s, home + u"/pipe.kext"_s, driver()},
         PXPrivilegedFailed},
        {"driverOfLinks",
         [&] { makeLink(resource(), u"/home/user/link.kext"_s); },
         {u"/bin/cp"_s, u"-R"_s, home + u"/link.kext"_s, driver()},
         PXPrivilegedFailed},
        {"placeIsALink",
         [&] {
             makeFolder(u"/usr/local/lib"_s);
             makeLink(at(u"/etc"_s), u"/usr/local/lib/tolvane"_s);
         },
         {u"/bin/cp"_s, u"-R"_s, resource(), driver()},
         PXPrivilegedFailed},
        {"ownerIsAUser",
         nothing,
         {u"/bin/chown"_s, u"-R"_s, u"user"_s, driver()},
         PXPrivilegedCannotExecute},
        {"ownerOfEverything",
         nothing,
         {u"/usr/sbin/chown"_s, u"-R"_s, u"root:root"_s, home},
         PXPrivilegedCannotExecute},
        {"loadElsewhere",
         nothing,
         {u"/sbin/kextload"_s, home + u"/evil.kext"_s},
         PXPrivilegedCannotExecute},
        {"loadNothing", nothing, {u"/sbin/kextload"_s, driver()}, PXPrivilegedFailed},
        {"unloadOthers",
         nothing,
         {u"/sbin/kextunload"_s, u"-b"_s, u"com.apple.driver"_s},
         PXPrivilegedCannotExecute},
        {"removeOthers",
         nothing,
         {u"/bin/rm"_s, u"-r"_s, at(u"/etc"_s)},
         PXPrivilegedCannotExecute},
        {"removeTheSharedFolder",
         nothing,
         {u"/bin/rm"_s, u"-R"_s, u"-d"_s, u"-f"_s, shared},
         PXPrivilegedCannotExecute},
        {"removeWithDots",
         nothing,
         {u"/bin/rm"_s, u"-R"_s, u"-f"_s, shared + u"/../../../../etc"_s},
         PXPrivilegedCannotExecute},
        {"removeBehindALink",
         [&] { makeLink(at(u"/etc"_s), u"/usr/local/share/Tolvane/link"_s); },
         {u"/bin/rm"_s, u"-R"_s, u"-f"_s, shared + u"/link/pulse"_s},
         PXPrivilegedFailed},
        {"removeMovies",
         nothing,
         {u"/bin/rm"_s, u"-f"_s, home + u"/a.mov"_s},
         PXPrivilegedCannotExecute},

        {"folderInEtc", nothing, {u"/bin/mkdir"_s, at(u"/etc/x"_s)}, PXPrivilegedCannotExecute},
        {"folderIsHome", nothing, {u"/bin/mkdir"_s, at(u"/home"_s)}, PXPrivilegedCannotExecute},
        {"folderIsAHome",
         nothing,
         {u"/bin/mkdir"_s, at(u"/home/new"_s)},
         PXPrivilegedCannotExecute},
        {"folderOutside", nothing, {u"/bin/mkdir"_s, u"/srv/x"_s}, PXPrivilegedCannotExecute},
        {"folderIsRelative", nothing, {u"/bin/mkdir"_s, u"srv/x"_s}, PXPrivilegedCannotExecute},
        {"folderIsHidden",
         nothing,
         {u"/bin/mkdir"_s, home + u"/.ssh"_s},
         PXPrivilegedCannotExecute},
        {"folderWithSlash", nothing, {u"/bin/mkdir"_s, home + u"/x/"_s}, PXPrivilegedCannotExecute},
        {"folderWithALongName",
         nothing,
         {u"/bin/mkdir"_s, home + u'/' + QString(256, u'x')},
         PXPrivilegedFailed},
        {"folderOnALongWay",
         nothing,
         {u"/bin/mkdir"_s, home + QString(u"/x"_s).repeated(15'000)},
         PXPrivilegedFailed},
        {"folderWithMode",
         nothing,
         {u"/bin/mkdir"_s, u"-m777"_s, home + u"/x"_s},
         PXPrivilegedCannotExecute},
        {"folderBehindALink",
         [&] { makeLink(at(u"/etc"_s), u"/home/user/link"_s); },
         {u"/bin/mkdir"_s, home + u"/link/x"_s},
         PXPrivilegedFailed},
        {"folderOverALink",
         [&] { makeLink(at(u"/etc/x"_s), u"/home/user/dangling"_s); },
         {u"/bin/mkdir"_s, home + u"/dangling"_s},
         PXPrivilegedFailed},

        {"takeOthers", nothing, mv(at(u"/home/victim/secret"_s), home + u"/b.mov"_s),
         PXPrivilegedFailed},
        {"replaceOthers", nothing, mv(movie, at(u"/home/victim/secret"_s)), PXPrivilegedFailed},
        {"replaceAFolder", nothing, mv(movie, at(u"/home/victim"_s)), PXPrivilegedCannotExecute},
        {"plantInAnothersHome", nothing, mv(movie, at(u"/home/victim/x"_s)), PXPrivilegedFailed},
        {"plantInAnothersFolder", [&] { makeFolder(u"/srv/home/victim/bin"_s, kVictim); },
         mv(movie, at(u"/srv/home/victim/bin/ls"_s)), PXPrivilegedFailed},
        {"plantBehindAnothersFolder",
         [&] {
             makeFolder(u"/mnt/victim/of/root"_s);
             makeFolder(u"/mnt/victim"_s, kVictim);
         },
         mv(movie, at(u"/mnt/victim/of/root/x"_s)), PXPrivilegedFailed},
        {"folderInAnothersFolder",
         nothing,
         {u"/bin/mkdir"_s, at(u"/srv/home/victim/bin/x"_s)},
         PXPrivilegedFailed},
        {"takeFromAnothersFolder", [&] { makeFile(u"/srv/home/victim/bin/mine"_s, kUser); },
         mv(at(u"/srv/home/victim/bin/mine"_s), home + u"/b.mov"_s), PXPrivilegedFailed},
        {"moveAHome", nothing, mv(home, at(u"/srv/x"_s)), PXPrivilegedCannotExecute},
        {"replaceWithoutForce",
         [&] { makeFile(u"/home/user/b.mov"_s, kUser); },
         {u"/bin/mv"_s, movie, home + u"/b.mov"_s},
         PXPrivilegedFailed},
        {"plantALink", [&] { makeLink(at(u"/etc/shadow"_s), u"/home/user/shadow"_s); },
         mv(home + u"/shadow"_s, at(u"/srv/shadow"_s)), PXPrivilegedFailed},
        {"moveBehindALink", nothing, mv(movie, home + u"/link/a.mov"_s), PXPrivilegedFailed},
        {"moveFromBehindALink", nothing, mv(home + u"/link/shadow"_s, home + u"/b.mov"_s),
         PXPrivilegedFailed},
        {"moveToEtc", nothing, mv(movie, at(u"/etc/cron"_s)), PXPrivilegedCannotExecute},
        {"moveFromEtc", nothing, mv(at(u"/etc/shadow"_s), movie), PXPrivilegedCannotExecute},
        {"moveToHidden", nothing, mv(movie, at(u"/home/victim/.bashrc"_s)),
         PXPrivilegedCannotExecute},
        {"moveToWhatAllTrust", nothing, mv(movie, shared + u"/a"_s), PXPrivilegedCannotExecute},
        {"moveFromNeighbour", nothing, mv(at(u"/usr/local/share/TolvaneX/a"_s), shared + u"/a"_s),
         PXPrivilegedCannotExecute},
        {"moveThree",
         nothing,
         {u"/bin/mv"_s, u"-f"_s, movie, movie, at(u"/srv"_s)},
         PXPrivilegedCannotExecute},
        {"copyMovies",
         nothing,
         {u"/bin/cp"_s, u"-f"_s, movie, at(u"/srv/a"_s)},
         PXPrivilegedCannotExecute},
    };
    for (const auto &attack : attacks) {
        attack.prepare();
        const auto before = snapshot();
        const PXPrivilegedAnswer answer = run(attack.words);
        EXPECT_EQ(answer.status, attack.status) << attack.name << ": " << answer.text;
        EXPECT_FALSE(answer.text.empty()) << attack.name;
        EXPECT_EQ(snapshot(), before) << attack.name;
    }
}

TEST_F(PrivilegedCommands, NothingIsDoneInFoldersThatOthersCanChange)
{
    const QStringList copy = {u"/bin/cp"_s, u"-R"_s, resource(), driver()};
    const QStringList own = {u"/bin/chown"_s, u"-R"_s, u"root:root"_s, driver()};
    const QStringList load = {u"/sbin/kextload"_s, driver()};
    const QStringList remove = {u"/bin/rm"_s, u"-r"_s, driver()};
    const struct {
        const char *folder;
        QList<QStringList> tasks;
    } ways[] = {
        {"", {copy, own, load, remove}},
        {"/usr", {copy, own, load, remove}},
        {"/usr/local", {copy, own, load, remove}},
        {"/usr/local/lib", {copy, own, load, remove}},
        {"/usr/local/lib/tolvane", {copy, own, load, remove}},
        {"/usr/local/lib/tolvane/Extensions", {copy, own, load, remove}},
        {"/usr/local/lib/tolvane/Extensions/TolvaneAudio.kext", {load}},
        {"/usr/local/lib/tolvane/Extensions/TolvaneAudio.kext/default.pa.d", {load}},
        {"/etc", {load}},
        {"/etc/pulse", {load}},
        {"/etc/pulse/default.pa.d", {load}},
        {"/etc/pipewire", {load}},
        {"/etc/pipewire/pipewire-pulse.conf.d", {load}},
    };
    constexpr gid_t kStaff = 50;
    const struct {
        const char *name;
        uid_t owner;
        gid_t group;
        mode_t mode;
        bool isSafe;
    } rights[] = {
        {"anothers", kUser, 0, 0755, false},  {"everybodys", 0, 0, 0777, false},
        {"sticky", 0, 0, 01777, false},       {"groups", 0, kUser, 0775, false},
        {"debians", 0, kStaff, 02775, true},  {"everybodysOfStaff", 0, kStaff, 02777, false},
        {"readByAll", 0, kUser, 02755, true},
    };
    for (const auto &way : ways) {
        const QByteArray folder = QFile::encodeName(at(QLatin1StringView(way.folder)));
        for (const auto &right : rights) {
            SCOPED_TRACE(std::string(way.folder) + ' ' + right.name);
            install();
            ASSERT_EQ(::chown(folder.constData(), right.owner, right.group), 0);
            ASSERT_EQ(::chmod(folder.constData(), right.mode), 0);
            for (const QStringList &task : way.tasks) {
                const auto before = snapshot();
                const PXPrivilegedAnswer answer = run(task);
                EXPECT_EQ(answer.status, right.isSafe ? PXPrivilegedDone : PXPrivilegedFailed);
                if (!right.isSafe) {
                    EXPECT_EQ(snapshot(), before);
                    EXPECT_NE(answer.text.find(folder.toStdString() + "/: "), std::string::npos);
                }
            }
            expectDone({u"/sbin/kextunload"_s, u"-b"_s, u"com.pexarworks.driver.tolvaneaudio"_s});
            EXPECT_FALSE(exists(u"/etc/pulse/default.pa.d/tolvane-audio.pa"_s));
            ASSERT_TRUE(::chown(folder.constData(), 0, 0) == 0 || errno == ENOENT);
            ASSERT_TRUE(::chmod(folder.constData(), 0755) == 0 || errno == ENOENT);
        }
    }
}

TEST_F(PrivilegedCommands, ADriverThatWasChangedIsNotLoaded)
{
    const QStringList own = {u"/bin/chown"_s, u"-R"_s, u"root:root"_s, driver()};
    const QStringList load = {u"/sbin/kextload"_s, driver()};
    const QString place = u"/usr/local/lib/tolvane/Extensions/TolvaneAudio.kext"_s;
    const QString script = place + u"/default.pa.d/tolvane-audio.pa"_s;
    const auto name = [this](const QString &path) { return QFile::encodeName(at(path)); };
    makeFile(u"/home/user/evil/tolvane-audio.pa"_s, kUser, "load-module module-cli-protocol-tcp");
    const struct {
        const char *name;
        std::function<void()> change;
        int owns; ///< What comes of giving it to root.
    } cases[] = {
        {"otherContents", [&] { makeFile(script, kUser, "load-module module-cli-protocol-tcp"); },
         PXPrivilegedDone},
        {"aLinkInItsPlace",
         [&] {
             QFile::remove(at(script));
             makeLink(at(u"/home/user/evil/tolvane-audio.pa"_s), script);
         },
         PXPrivilegedDone},
        {"aLinkOnItsWay",
         [&] {
             QDir(at(place + u"/default.pa.d"_s)).removeRecursively();
             makeLink(at(u"/home/user/evil"_s), place + u"/default.pa.d"_s);
         },
         PXPrivilegedDone},
        {"aPipe",
         [&] {
             QFile::remove(at(script));
             ASSERT_EQ(::mkfifo(name(script).constData(), 0644), 0);
         },
         PXPrivilegedDone},
        {"anotherNameOfAFile",
         [&] {
             QFile::remove(at(script));
             ASSERT_EQ(::link(name(u"/home/victim/secret"_s).constData(), name(script).constData()),
                       0);
         },
         PXPrivilegedFailed},
        {"linkInPlaceOfAll",
         [&] {
             QDir(at(place)).removeRecursively();
             makeLink(at(u"/home/user/evil"_s), place);
         },
         PXPrivilegedDone},
    };
    for (const auto &c : cases) {
        expectDone({u"/bin/cp"_s, u"-R"_s, resource(), driver()});
        c.change();
        EXPECT_EQ(run(own).status, c.owns) << c.name;
        EXPECT_EQ(run(load).status, PXPrivilegedFailed) << c.name;
        EXPECT_FALSE(exists(u"/etc/pulse/default.pa.d/tolvane-audio.pa"_s)) << c.name;
    }
    expectDone({u"/bin/rm"_s, u"-r"_s, driver()});
    for (const char *path : {"/home/victim/secret", "/home/user/evil/tolvane-audio.pa"})
        EXPECT_NE(QFileInfo(at(QLatin1StringView(path))).ownerId(), 0U) << path;
}

TEST_F(PrivilegedCommands, WhatIsSwappedMeanwhileIsNotMoved)
{
    const QString movie = u"/home/user/a.mov"_s;
    const QString link = u"/home/user/link"_s;
    const QString target = u"/srv/b.mov"_s;
    const auto name = [this](const QString &path) { return QFile::encodeName(at(path)); };
    const std::jthread swapper([one = name(movie),
                                other = name(link)](const std::stop_token &stop) {
        while (!stop.stop_requested())
            ::renameat2(AT_FDCWD, one.constData(), AT_FDCWD, other.constData(), RENAME_EXCHANGE);
    });
    for (int round = 0; round < 1000; ++round) {
        for (const QString &path : {movie, link, target})
            ::unlink(name(path).constData());
        makeFile(movie, kUser);
        makeLink(at(u"/etc/shadow"_s), link);
        if (round % 2 == 0)
            makeFile(target, kUser, "older");
        (void)run({u"/bin/mv"_s, u"-f"_s, at(movie), at(target)});
        struct stat status = {};
        if (::lstat(name(target).constData(), &status) == 0) {
            ASSERT_TRUE(S_ISREG(status.st_mode) && status.st_uid == kUser) << round;
        }
    }
}

TEST_F(PrivilegedCommands, OnlyADriverOfRootIsLoaded)
{
    const QString link = u"/etc/pulse/default.pa.d/tolvane-audio.pa"_s;
    const QStringList load = {u"/sbin/kextload"_s, driver()};
    const QByteArray file = QFile::encodeName(driver() + u"/default.pa.d/tolvane-audio.pa"_s);
    const QByteArray folder = QFile::encodeName(driver());
    expectDone({u"/bin/cp"_s, u"-R"_s, resource(), driver()});

    ASSERT_EQ(::chown(file.constData(), kUser, 0), 0);
    EXPECT_EQ(run(load).status, PXPrivilegedFailed);
    expectDone({u"/bin/chown"_s, u"-R"_s, u"root:root"_s, driver()});
    ASSERT_EQ(::chmod(folder.constData(), 0777), 0);
    EXPECT_EQ(run(load).status, PXPrivilegedFailed);
    ASSERT_EQ(::chmod(folder.constData(), 0755), 0);
    EXPECT_FALSE(exists(link));

    makeFile(link, 0, "the administrator's own");
    EXPECT_EQ(run(load).status, PXPrivilegedFailed);
    EXPECT_EQ(contentsOf(link), "the administrator's own");
    QFile::remove(at(link));
    makeLink(u"/nowhere"_s, link);
    expectDone(load);
    EXPECT_EQ(QFileInfo(at(link)).symLinkTarget(), QFile::decodeName(file));
}

TEST_F(PrivilegedCommands, MovesFilesToOtherDisks)
{
    const QTemporaryDir otherDisk(u"/dev/shm/tolvane-XXXXXX"_s);
    struct stat here = {};
    struct stat there = {};
    ::stat(root().toUtf8().constData(), &here);
    ::stat(otherDisk.path().toUtf8().constData(), &there);
    if (here.st_dev == there.st_dev)
        GTEST_SKIP() << "/dev/shm is no other disk";
    ASSERT_EQ(::chmod(at(u"/home/user/a.mov"_s).toUtf8().constData(), 04640), 0);
    const auto source = PXPlace::atPath(at(u"/home/user/a.mov"_s).toStdString());
    const auto target = PXPlace::atPath(otherDisk.filePath(u"a.mov"_s).toStdString());
    ASSERT_TRUE(source && target);
    using PXFileTree::Existing;
    EXPECT_EQ(
        PXFileTree::move(*source, *target, Existing::Refused, {.owner = kVictim}).error().number,
        EPERM);
    EXPECT_TRUE(PXFileTree::move(*source, *target, Existing::Refused, {.owner = kUser}));
    EXPECT_FALSE(exists(u"/home/user/a.mov"_s));
    ASSERT_EQ(::stat(otherDisk.filePath(u"a.mov"_s).toUtf8().constData(), &there), 0);
    EXPECT_EQ(there.st_uid, kUser);
    EXPECT_EQ(there.st_mode, S_IFREG | 0640U); // A set-id bit would not be theirs to bring along.
    EXPECT_EQ(
        QDir(otherDisk.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
        QStringList(u"a.mov"_s));
    const auto folder = PXPlace::atPath(at(u"/home/user"_s).toStdString());
    const auto copy = PXPlace::atPath(otherDisk.filePath(u"user"_s).toStdString());
    EXPECT_EQ(PXFileTree::move(*folder, *copy, Existing::Refused, {.owner = kUser}).error().number,
              EXDEV);
}

} // namespace
