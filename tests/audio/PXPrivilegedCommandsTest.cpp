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
    /// A line's words. Places are those of this machine, save the program's own and what follows
    /// a '='; DRIVER is the driver's, RESOURCE where it comes from.
    [[nodiscard]] QStringList words(const char *line) const
    {
        QStringList all = QString::fromUtf8(line).split(u' ', Qt::SkipEmptyParts);
        for (qsizetype i = 1; i < all.size(); ++i) {
            if (all[i].startsWith(u'/'))
                all[i] = at(all[i]);
            else if (all[i].startsWith(u'='))
                all[i].remove(0, 1);
            all[i].replace(u"DRIVER"_s, driver()).replace(u"RESOURCE"_s, resource());
        }
        return all;
    }
    [[nodiscard]] PXPrivilegedAnswer run(const QStringList &words) const
    {
        std::vector<std::string> all;
        for (const QString &word : words)
            all.push_back(word.toStdString());
        return PXPrivilegedCommands(root().toStdString(), kUser).run(all);
    }
    [[nodiscard]] int statusOf(const char *line) const { return run(words(line)).status; }
    void expectDone(const QStringList &words) const
    {
        const PXPrivilegedAnswer answer = run(words);
        EXPECT_EQ(answer.status, PXPrivilegedDone) << answer.text;
    }
    void expectDone(const char *line) const { expectDone(words(line)); }
    void install() const
    {
        for (const char *line : {kCopy, kOwn, kLoad})
            expectDone(line);
    }
    /// As the system's calls want it.
    [[nodiscard]] QByteArray name(const QString &path) const { return QFile::encodeName(at(path)); }

    static constexpr auto kCopy = "/bin/cp -R RESOURCE DRIVER";
    static constexpr auto kOwn = "/usr/sbin/chown -R root:wheel DRIVER";
    static constexpr auto kLoad = "/sbin/kextload DRIVER";
    static constexpr auto kUnload = "/sbin/kextunload -b com.pexarworks.driver.tolvaneaudio";
    static constexpr auto kRemove = "/bin/rm -r DRIVER";
    const QString kPlace = u"/usr/local/lib/tolvane/Extensions/TolvaneAudio.kext"_s;
    const QString kScript = kPlace + u"/default.pa.d/tolvane-audio.pa"_s;
    const QString kScriptLink = u"/etc/pulse/default.pa.d/tolvane-audio.pa"_s;
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
        EXPECT_TRUE(
            contentsOf(kPlace + u"/Info.plist"_s).contains("com.pexarworks.driver.tolvaneaudio"));
        EXPECT_EQ(QDir(driver()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size(), 3);
        EXPECT_EQ(QFileInfo(driver()).ownerId(), 0U);
        QFile::remove(driver() + u"/Info.plist"_s);
        QDir(driver()).mkdir(u"more"_s);
    }
    for (const char *line : {kUnload, kUnload, kRemove})
        expectDone(line);
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
    expectDone("/bin/mv -f /usr/local/share/Brimmet/a /usr/local/share/Tolvane/a");
    expectDone("/bin/cp -f /usr/local/share/Tolvane/a /usr/local/share/Tolvane/copy");
    expectDone("/bin/mv /usr/local/share/Brimmet/deep /usr/local/share/Tolvane/deep");
    EXPECT_EQ(contentsOf(u"/usr/local/share/Tolvane/copy"_s), "a");
    EXPECT_EQ(contentsOf(u"/usr/local/share/Tolvane/deep/er/b"_s), "b");
    for (const char *tooWeak : {"/bin/rm -f /usr/local/share/Tolvane/deep",
                                "/bin/rm -d -f /usr/local/share/Tolvane/deep"})
        EXPECT_EQ(statusOf(tooWeak), PXPrivilegedFailed) << tooWeak;
    expectDone("/bin/rm -R -d -f /usr/local/share/Tolvane/deep");
    expectDone("/bin/rm -R -d -f /usr/local/share/Brimmet");
    expectDone("/bin/rm -f /usr/local/share/Brimmet/not/there");
    EXPECT_FALSE(exists(u"/usr/local/share/Brimmet"_s));
    EXPECT_EQ(contentsOf(u"/etc/shadow"_s), "nobody's"); // Behind the link.
}

TEST_F(PrivilegedCommands, NothingElseIsTouched)
{
    constexpr int kNo = PXPrivilegedCannotExecute;
    constexpr int kFails = PXPrivilegedFailed;
    copyDriver(u"/home/user/evil.kext"_s);
    makeFile(u"/home/user/evil.kext/default.pa.d/tolvane-audio.pa"_s, kUser, "load-module cli");
    copyDriver(u"/home/user/pipe.kext"_s);
    ASSERT_TRUE(QFile::remove(at(u"/home/user/pipe.kext/Info.plist"_s)));
    ASSERT_EQ(::mkfifo(name(u"/home/user/pipe.kext/Info.plist"_s).constData(), 0666), 0);
    makeLink(resource(), u"/home/user/link.kext"_s);
    for (const char *link : {"/usr/local/share/Tolvane/link", "/home/user/link"})
        makeLink(at(u"/etc"_s), QLatin1StringView(link));
    makeLink(at(u"/etc/x"_s), u"/home/user/dangling"_s);
    makeLink(at(u"/etc/shadow"_s), u"/home/user/shadow"_s);
    makeFolder(u"/srv/home/victim/bin"_s, kVictim);
    makeFile(u"/srv/home/victim/bin/mine"_s, kUser);
    makeFolder(u"/mnt/victim/of/root"_s);
    makeFolder(u"/mnt/victim"_s, kVictim);
    makeFile(u"/home/user/b.mov"_s, kUser);
    const QByteArray longName = "/bin/mkdir /home/user/" + QByteArray(256, 'x');
    const QByteArray longWay = "/bin/mkdir /home/user" + QByteArray("/x").repeated(15'000);
    const struct {
        const char *name;
        const char *line;
        int status;
    } attacks[] = {
        {"nothing", "", kNo},
        {"shell", "/bin/sh -c id", kNo},
        {"nameAlone", "rm -f /usr/local/share/Tolvane/x", kNo},
        {"driverElsewhere", "/bin/cp -R RESOURCE /etc/pulse", kNo},
        {"driverWithDots", "/bin/cp -R RESOURCE DRIVER/../TolvaneAudio.kext", kNo},
        {"anotherDriver", "/bin/cp -R /home/user/evil.kext DRIVER", kFails},
        {"driverOfPipes", "/bin/cp -R /home/user/pipe.kext DRIVER", kFails},
        {"driverOfLinks", "/bin/cp -R /home/user/link.kext DRIVER", kFails},
        {"ownerIsAUser", "/bin/chown -R user DRIVER", kNo},
        {"ownerOfEverything", "/usr/sbin/chown -R root:root /home/user", kNo},
        {"loadElsewhere", "/sbin/kextload /home/user/evil.kext", kNo},
        {"loadNothing", kLoad, kFails},
        {"unloadOthers", "/sbin/kextunload -b com.apple.driver", kNo},
        {"removeOthers", "/bin/rm -r /etc", kNo},
        {"removeTheSharedFolder", "/bin/rm -R -d -f /usr/local/share/Tolvane", kNo},
        {"removeWithDots", "/bin/rm -R -f /usr/local/share/Tolvane/../../../../etc", kNo},
        {"removeBehindALink", "/bin/rm -R -f /usr/local/share/Tolvane/link/pulse", kFails},
        {"removeMovies", "/bin/rm -f /home/user/a.mov", kNo},
        {"folderInEtc", "/bin/mkdir /etc/x", kNo},
        {"folderIsHome", "/bin/mkdir /home", kNo},
        {"folderIsAHome", "/bin/mkdir /home/new", kNo},
        {"folderOutside", "/bin/mkdir =/srv/x", kNo},
        {"folderIsRelative", "/bin/mkdir srv/x", kNo},
        {"folderIsHidden", "/bin/mkdir /home/user/.ssh", kNo},
        {"folderWithSlash", "/bin/mkdir /home/user/x/", kNo},
        {"folderWithALongName", longName.constData(), kFails},
        {"folderOnALongWay", longWay.constData(), kFails},
        {"folderWithMode", "/bin/mkdir -m777 /home/user/x", kNo},
        {"folderBehindALink", "/bin/mkdir /home/user/link/x", kFails},
        {"folderOverALink", "/bin/mkdir /home/user/dangling", kFails},
        {"folderInAnothersFolder", "/bin/mkdir /srv/home/victim/bin/x", kFails},
        {"takeOthers", "/bin/mv -f /home/victim/secret /home/user/c.mov", kFails},
        {"replaceOthers", "/bin/mv -f /home/user/a.mov /home/victim/secret", kFails},
        {"replaceAFolder", "/bin/mv -f /home/user/a.mov /home/victim", kNo},
        {"plantInAnothersHome", "/bin/mv -f /home/user/a.mov /home/victim/x", kFails},
        {"plantInAnothers", "/bin/mv -f /home/user/a.mov /srv/home/victim/bin/ls", kFails},
        {"plantBehindAnothers", "/bin/mv -f /home/user/a.mov /mnt/victim/of/root/x", kFails},
        {"takeFromAnothers", "/bin/mv -f /srv/home/victim/bin/mine /home/user/c.mov", kFails},
        {"moveAHome", "/bin/mv -f /home/user /srv/x", kNo},
        {"replaceWithoutForce", "/bin/mv /home/user/a.mov /home/user/b.mov", kFails},
        {"plantALink", "/bin/mv -f /home/user/shadow /srv/shadow", kFails},
        {"moveBehindALink", "/bin/mv -f /home/user/a.mov /home/user/link/a.mov", kFails},
        {"moveFromBehindALink", "/bin/mv -f /home/user/link/shadow /home/user/c.mov", kFails},
        {"moveToEtc", "/bin/mv -f /home/user/a.mov /etc/cron", kNo},
        {"moveFromEtc", "/bin/mv -f /etc/shadow /home/user/a.mov", kNo},
        {"moveToHidden", "/bin/mv -f /home/user/a.mov /home/victim/.bashrc", kNo},
        {"moveToWhatAllTrust", "/bin/mv -f /home/user/a.mov /usr/local/share/Tolvane/a", kNo},
        {"moveFromNeighbour", "/bin/mv -f /usr/local/share/TolvaneX/a /usr/local/share/Tolvane/a",
         kNo},
        {"moveThree", "/bin/mv -f /home/user/a.mov /home/user/a.mov /srv", kNo},
        {"copyMovies", "/bin/cp -f /home/user/a.mov /srv/a", kNo},
    };
    auto before = snapshot();
    for (const auto &attack : attacks) {
        const PXPrivilegedAnswer answer = run(words(attack.line));
        EXPECT_EQ(answer.status, attack.status) << attack.name << ": " << answer.text;
        EXPECT_FALSE(answer.text.empty()) << attack.name;
        EXPECT_EQ(snapshot(), before) << attack.name;
    }
    makeFolder(u"/usr/local/lib"_s);
    makeLink(at(u"/etc"_s), u"/usr/local/lib/tolvane"_s);
    before = snapshot();
    EXPECT_EQ(statusOf(kCopy), kFails) << "the place is a link";
    EXPECT_EQ(snapshot(), before);
}

TEST_F(PrivilegedCommands, NothingIsDoneInFoldersThatOthersCanChange)
{
    const std::vector<const char *> kAll = {kCopy, kOwn, kLoad, kRemove};
    const struct {
        const char *folder;
        std::vector<const char *> tasks;
    } ways[] = {
        {"", kAll},
        {"/usr", kAll},
        {"/usr/local", kAll},
        {"/usr/local/lib", kAll},
        {"/usr/local/lib/tolvane", kAll},
        {"/usr/local/lib/tolvane/Extensions", kAll},
        {"/usr/local/lib/tolvane/Extensions/TolvaneAudio.kext", {kLoad}},
        {"/usr/local/lib/tolvane/Extensions/TolvaneAudio.kext/default.pa.d", {kLoad}},
        {"/etc", {kLoad}},
        {"/etc/pulse", {kLoad}},
        {"/etc/pulse/default.pa.d", {kLoad}},
        {"/etc/pipewire", {kLoad}},
        {"/etc/pipewire/pipewire-pulse.conf.d", {kLoad}},
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
            for (const char *task : way.tasks) {
                const auto before = snapshot();
                const PXPrivilegedAnswer answer = run(words(task));
                EXPECT_EQ(answer.status, right.isSafe ? PXPrivilegedDone : PXPrivilegedFailed);
                if (!right.isSafe) {
                    EXPECT_EQ(snapshot(), before);
                    EXPECT_NE(answer.text.find(folder.toStdString() + "/: "), std::string::npos);
                }
            }
            expectDone(kUnload);
            EXPECT_FALSE(exists(kScriptLink));
            ASSERT_TRUE(::chown(folder.constData(), 0, 0) == 0 || errno == ENOENT);
            ASSERT_TRUE(::chmod(folder.constData(), 0755) == 0 || errno == ENOENT);
        }
    }
}

TEST_F(PrivilegedCommands, ADriverThatWasChangedIsNotLoaded)
{
    const QString evil = u"/home/user/evil/tolvane-audio.pa"_s;
    makeFile(evil, kUser, "load-module module-cli-protocol-tcp");
    const auto script = name(kScript);
    const struct {
        const char *name;
        QString removed; ///< With what is in it.
        std::function<void()> change;
        int owns = PXPrivilegedDone; ///< What comes of giving it to root.
    } cases[] = {
        {"otherContents", {}, [&] { makeFile(kScript, kUser, "load-module cli"); }},
        {"aLinkInItsPlace", kScript, [&] { makeLink(at(evil), kScript); }},
        {"aLinkOnItsWay", kPlace + u"/default.pa.d"_s,
         [&] { makeLink(at(u"/home/user/evil"_s), kPlace + u"/default.pa.d"_s); }},
        {"aPipe", kScript, [&] { ASSERT_EQ(::mkfifo(script.constData(), 0644), 0); }},
        {"anotherNameOfAFile", kScript,
         [&] {
             EXPECT_EQ(::link(name(u"/home/victim/secret"_s).constData(), script.constData()), 0);
         },
         PXPrivilegedFailed},
        {"linkInPlaceOfAll", kPlace, [&] { makeLink(at(u"/home/user/evil"_s), kPlace); }},
    };
    for (const auto &c : cases) {
        expectDone(kCopy);
        if (!c.removed.isEmpty() && !QFile::remove(at(c.removed)))
            QDir(at(c.removed)).removeRecursively();
        c.change();
        EXPECT_EQ(statusOf(kOwn), c.owns) << c.name;
        EXPECT_EQ(statusOf(kLoad), PXPrivilegedFailed) << c.name;
        EXPECT_FALSE(exists(kScriptLink)) << c.name;
    }
    expectDone(kRemove);
    for (const QString &path : {u"/home/victim/secret"_s, evil})
        EXPECT_NE(QFileInfo(at(path)).ownerId(), 0U) << path.toStdString();

    expectDone(kCopy);
    ASSERT_EQ(::chown(script.constData(), kUser, 0), 0);
    EXPECT_EQ(statusOf(kLoad), PXPrivilegedFailed) << "a user's";
    expectDone("/bin/chown -R root:root DRIVER");
    makeFile(kScriptLink, 0, "the administrator's own");
    EXPECT_EQ(statusOf(kLoad), PXPrivilegedFailed);
    EXPECT_EQ(contentsOf(kScriptLink), "the administrator's own");
    QFile::remove(at(kScriptLink));
    makeLink(u"/nowhere"_s, kScriptLink);
    expectDone(kLoad);
    EXPECT_EQ(QFileInfo(at(kScriptLink)).symLinkTarget(), at(kScript));
}

TEST_F(PrivilegedCommands, WhatIsSwappedMeanwhileIsNotMoved)
{
    const QString movie = u"/home/user/a.mov"_s;
    const QString link = u"/home/user/link"_s;
    const QString target = u"/srv/b.mov"_s;
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
