#include "audio/BROutputDeviceRestorer.h"
#include "audio/privileged/PXFileDescriptor.h"
#include "platform/pulse/PulseSoundPlatform.h"
#include "tests/audio/PrivateFolders.h"
#include "tests/support/Files.h"
#include "tests/support/SoundServer.h"
#include "tests/support/WaitUntil.h"

#include <gtest/gtest.h>

#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <memory>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr int kPatienceMs = 60'000;

class UIDFile : public testing::Test {
protected:
    [[nodiscard]] QString path() const { return _folder.filePath(u"Output Device UID"_s); }
    [[nodiscard]] QByteArray name() const { return QFile::encodeName(path()); }
    void put(const QByteArray &contents, mode_t mode = 0600) const
    {
        writeFile(path(), contents);
        ASSERT_EQ(::chmod(name().constData(), mode), 0);
    }

    QTemporaryDir _folder;
    PulseSoundPlatform nowhere{u"unix:/nowhere"_s};
    BROutputDeviceRestorer restorer{nowhere, QStringList(path())};
};

TEST_F(UIDFile, IsTheUsersAlone)
{
    EXPECT_FALSE(restorer.savedUID());
    for (const QString &uid : {u"alsa_output.pci-0000_00_1f.3.analog-stereo"_s, u"Büro: 2"_s}) {
        restorer.writeUID(uid);
        EXPECT_EQ(restorer.savedUID(), uid);
    }
    struct stat status = {};
    ASSERT_EQ(::stat(name().constData(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);

    // A link that leads to something of ours is replaced, not written through.
    const QString treasure = _folder.filePath(u"treasure"_s);
    QFile::remove(path());
    ASSERT_TRUE(QFile::link(treasure, path()));
    restorer.writeUID(u"real_out"_s);
    EXPECT_FALSE(QFile::exists(treasure));
    EXPECT_EQ(restorer.savedUID(), u"real_out"_s);
    EXPECT_EQ(everythingIn(_folder.path()), QStringList(u"Output Device UID"_s));
}

TEST_F(UIDFile, WhatAnotherMayHavePutThereIsNotRead)
{
    const struct {
        const char *name;
        std::function<void()> put;
    } cases[] = {
        {"link",
         [&] {
             QFile::copy(u"/etc/hostname"_s, _folder.filePath(u"uid"_s));
             QFile::link(_folder.filePath(u"uid"_s), path());
         }},
        {"folder", [&] { QDir().mkdir(path()); }},
        {"pipe", [&] { ::mkfifo(name().constData(), 0600); }},
        {"othersMayWrite", [&] { put("real_out", 0620); }},
        {"empty", [&] { put({}); }},
        {"tooLong", [&] { put(QByteArray(1025, 'x')); }},
        {"manyLines", [&] { put("real_out\n"); }},
        {"zeros", [&] { put(QByteArray(8, '\0')); }},
        {"anotherUsers",
         [&] {
             put("real_out");
             if (::geteuid() != 0 || ::chown(name().constData(), 1000, 1000) != 0)
                 QFile::remove(path());
         }},
    };
    for (const auto &c : cases) {
        c.put();
        EXPECT_FALSE(restorer.savedUID()) << c.name;
        if (QFileInfo(path()).isDir())
            QDir().rmdir(path());
        else
            QFile::remove(path());
    }
}

TEST_F(UIDFile, AnotherUsersFileStays)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can give files to others";
    put("theirs");
    ASSERT_EQ(::chown(name().constData(), 1000, 1000), 0);
    const QString copy = _folder.filePath(u"copy"_s);
    for (const QStringList &paths : {QStringList{copy, path()}, QStringList{path(), copy}}) {
        const BROutputDeviceRestorer both(nowhere, paths);
        both.writeUID(u"ours"_s);
        EXPECT_EQ(both.savedUID(), u"ours"_s);
        QFile::remove(copy);
        EXPECT_FALSE(both.savedUID());
    }
    EXPECT_EQ(contentsOf(path()), "theirs");
}

TEST_F(UIDFile, ACopyLiesOnlyInAFolderOfTheUsers)
{
    const QByteArray before = qgetenv("XDG_RUNTIME_DIR");
    const QByteArray folder = QFile::encodeName(_folder.path());
    const struct {
        const char *name;
        QByteArray folder;
        mode_t mode;
        uid_t owner;
        bool isUsed;
    } cases[] = {
        {"ours", folder, 0700, ::geteuid(), true},
        {"empty", {}, 0700, ::geteuid(), false},
        {"relative", ".", 0700, ::geteuid(), false},
        {"missing", folder + "/missing", 0700, ::geteuid(), false},
        {"aFile", "/etc/hostname", 0700, ::geteuid(), false},
        {"everybodys", folder, 01777, ::geteuid(), false},
        {"groups", folder, 0770, ::geteuid(), false},
        {"anothers", folder, 0700, 1000, ::geteuid() == 1000},
    };
    for (const auto &c : cases) {
        ASSERT_EQ(::chmod(folder.constData(), c.mode), 0);
        if (::chown(folder.constData(), c.owner, static_cast<gid_t>(-1)) != 0)
            continue; // Only root can give folders to others.
        qputenv("XDG_RUNTIME_DIR", c.folder);
        QStringList paths{u"/tmp/Tolvane Audio Output Device UID"_s};
        if (c.isUsed)
            paths.prepend(_folder.filePath(u"Tolvane Audio Output Device UID"_s));
        EXPECT_EQ(BROutputDeviceRestorer::UIDFilePaths(), paths) << c.name;
    }
    if (before.isNull())
        qunsetenv("XDG_RUNTIME_DIR");
    else
        qputenv("XDG_RUNTIME_DIR", before);
}

class OutputDeviceRestorer : public testing::TestWithParam<SoundServer::Kind> {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(sound.loadVirtualOutput());
        setDefault(kVirtualSink);
    }

    void setDefault(const QString &sink) const
    {
        server.pactl({u"set-default-sink"_s, sink});
        const QString uid
            = sink == kVirtualSink ? QString::fromLatin1(kPXVirtualAudioDeviceUID) : sink;
        // PipeWire tells each of its clients in its own time.
        EXPECT_TRUE(
            waitUntil([&] { return defaultSink() == sink && uidOfDefaultOutput() == uid; }));
    }
    [[nodiscard]] QString uidOfDefaultOutput() const
    {
        const auto id = sound.defaultOutputDevice();
        for (const PXAudioDevice &device :
             sound.outputDevices().value_or(std::vector<PXAudioDevice>())) {
            if (device.deviceID == id)
                return device.uid;
        }
        return {};
    }
    [[nodiscard]] QString defaultSink() const
    {
        const QString info = server.pactl({u"info"_s});
        const qsizetype start = info.indexOf(u"Default Sink: "_s) + 14;
        return info.mid(start, info.indexOf(u'\n', start) - start);
    }
    /// A program that records what is played to the virtual output.
    void startRecorder(QProcess &recorder) const
    {
        recorder.setProcessEnvironment(server.environment());
        recorder.setStandardOutputFile(QProcess::nullDevice());
        recorder.start(
            u"parec"_s,
            {u"-d"_s, u"tolvane_audio.monitor"_s, u"--raw"_s, u"--property=tolvane.recording=1"_s});
        ASSERT_TRUE(recorder.waitForStarted(kPatienceMs));
        // PipeWire lists it before it is connected to what it records.
        const QRegularExpression monitor(u"(\\d+)\\ttolvane_audio\\.monitor\\t"_s);
        const QString id
            = monitor.match(server.pactl({u"list"_s, u"short"_s, u"sources"_s})).captured(1);
        EXPECT_TRUE(waitUntil([&] {
            const QStringList recordings
                = server.pactl({u"list"_s, u"source-outputs"_s}).split(u"Source Output #"_s);
            return recordings.filter(u"\"parec\""_s).filter(u"\tSource: %1\n"_s.arg(id)).size()
                == 1;
        }));
    }
    /// As a recorder leaves it that was killed.
    void loadLoopback() const
    {
        server.load({u"module-loopback"_s, u"source=tolvane_audio.monitor"_s, u"sink=second_out"_s,
                     u"sink_input_properties=tolvane.loopback=1"_s});
    }
    [[nodiscard]] bool hasLoopback() const
    {
        return server.pactl({u"list"_s, u"short"_s, u"modules"_s}).contains(u"module-loopback"_s);
    }

    const QString kVirtualSink = u"tolvane_audio"_s;
    // Opened before the private folder hides where it may lie.
    const PXFileDescriptor audioBuddyFile{::open(AUDIOBUDDY, O_PATH | O_CLOEXEC)};
    const QString audioBuddy = u"/proc/self/fd/%1"_s.arg(audioBuddyFile.get());
    const std::unique_ptr<PrivateFolders> privateTemporaries = PrivateFolders::areAllowed()
        ? std::make_unique<PrivateFolders>(std::vector<QString>(), std::vector{u"/tmp"_s})
        : nullptr;
    QTemporaryDir folder;
    SoundServer server{GetParam()};
    PulseSoundPlatform pulse{server.name()};
    PXSoundPlatform &sound = pulse;
    BROutputDeviceRestorer restorer{sound, QStringList(folder.filePath(u"uid"_s))};
};

INSTANTIATE_TEST_SUITE_P(Servers, OutputDeviceRestorer, testing::ValuesIn(SoundServer::installed()),
                         testing::PrintToStringParamName());

TEST_P(OutputDeviceRestorer, PutsBackWhatTheUserHeard)
{
    restorer.writeUID(u"second_out"_s);
    EXPECT_EQ(restorer.outputInUse().value_or(PXAudioDevice()).uid, u"second_out"_s);
    EXPECT_TRUE(restorer.restore());
    EXPECT_EQ(defaultSink(), u"second_out"_s);
    EXPECT_EQ(restorer.outputInUse().value_or(PXAudioDevice()).uid, u"second_out"_s);

    // One that has gone, or is our own, is no output to go back to.
    for (const QString &uid : {u"unplugged"_s, QString::fromLatin1(kPXVirtualAudioDeviceUID)}) {
        setDefault(kVirtualSink);
        EXPECT_TRUE(restorer.putBack(uid));
        EXPECT_NE(defaultSink(), kVirtualSink);
    }
    // A choice of the user's own stays.
    setDefault(u"mic_feed"_s);
    EXPECT_TRUE(restorer.restore());
    EXPECT_EQ(defaultSink(), u"mic_feed"_s);
}

TEST_P(OutputDeviceRestorer, AnotherRecordingKeepsItsOutput)
{
    restorer.writeUID(u"second_out"_s);
    loadLoopback();
    {
        // One that has switched, and is about to record.
        const auto use
            = sound.lockVirtualOutput(PXFileLock::Mode::Shared, PXFileLock::IfHeld::Wait);
        ASSERT_TRUE(use && *use);
        EXPECT_TRUE(restorer.restore());
        EXPECT_EQ(defaultSink(), kVirtualSink);
        EXPECT_TRUE(hasLoopback());
    }
    EXPECT_TRUE(restorer.restore());
    EXPECT_EQ(defaultSink(), u"second_out"_s);
    EXPECT_FALSE(hasLoopback());
}

TEST_P(OutputDeviceRestorer, AudioBuddyDoesItForAKilledRecorder)
{
    if (!privateTemporaries)
        GTEST_SKIP() << "the file would be the one of this machine";
    const QStringList paths = BROutputDeviceRestorer::UIDFilePaths();
    ASSERT_EQ(paths.size(), 2);
    BROutputDeviceRestorer(sound).writeUID(u"second_out"_s);
    loadLoopback();
    QProcess recorder;
    startRecorder(recorder);
    QProcess buddy;
    buddy.setProcessEnvironment(server.environment());
    buddy.start(audioBuddy, {QString::number(recorder.processId())});
    ASSERT_TRUE(buddy.waitForStarted(kPatienceMs));
    const auto process = static_cast<pid_t>(buddy.processId());
    EXPECT_TRUE(waitUntil([&] { return ::getsid(process) == process; }));
    for (const int signal : {SIGINT, SIGHUP})
        ::kill(process, signal);
    EXPECT_FALSE(buddy.waitForFinished(0));
    EXPECT_EQ(defaultSink(), kVirtualSink);

    // Its parent does not ask how it ended yet: it stays a dead process until then.
    ::kill(static_cast<pid_t>(recorder.processId()), SIGKILL);
    ASSERT_TRUE(buddy.waitForFinished(kPatienceMs));
    EXPECT_EQ(buddy.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(buddy.exitCode(), 0);
    EXPECT_EQ(defaultSink(), u"second_out"_s);
    EXPECT_FALSE(hasLoopback());

    // A process that has gone already counts as ended. The file that all users share is enough.
    setDefault(kVirtualSink);
    ASSERT_TRUE(QFile::remove(paths.first()));
    BROutputDeviceRestorer(sound, QStringList(paths.last())).writeUID(u"second_out"_s);
    const QString id = QString::number(recorder.processId());
    ASSERT_TRUE(recorder.waitForFinished(kPatienceMs));
    buddy.start(audioBuddy, {id});
    ASSERT_TRUE(buddy.waitForFinished(kPatienceMs));
    EXPECT_EQ(defaultSink(), u"second_out"_s);
}

TEST(AudioBuddy, WrongArgumentsGetOneLine)
{
    for (const QStringList &arguments :
         {QStringList(), QStringList(u"0"_s), QStringList(u"-1"_s), QStringList(u"1x"_s),
          QStringList(u"99999999999"_s), QStringList{u"1"_s, u"2"_s}}) {
        QProcess buddy;
        buddy.start(QStringLiteral(AUDIOBUDDY), arguments);
        ASSERT_TRUE(buddy.waitForFinished(kPatienceMs));
        EXPECT_EQ(buddy.exitCode(), 2) << arguments.join(u' ').toStdString();
        EXPECT_EQ(buddy.readAllStandardError().count('\n'), 1);
    }
}

} // namespace
