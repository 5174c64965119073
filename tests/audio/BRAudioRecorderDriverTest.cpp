#include "audio/BRAudioRecorder.h"
#include "audio/PXAuthentication.h"
#include "platform/pulse/PulseSoundPlatform.h"
#include "tests/audio/PrivateFolders.h"
#include "tests/support/Files.h"
#include "tests/support/SoundServer.h"
#include "tests/support/WaitUntil.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

#include <optional>

using namespace Qt::StringLiterals;

namespace {

/// The real helper and its real places, in folders of our own.
class AudioDriver : public testing::Test {
protected:
    void SetUp() override
    {
        if (!PrivateFolders::areAllowed())
            GTEST_SKIP() << "the driver would be the one of this machine";
        folders.emplace(std::vector{u"/etc"_s}, std::vector{u"/usr/local/lib"_s});
    }

    /// A helper that only writes down what it is told, and answers one task with another status.
    [[nodiscard]] QStringList helperFailingAt(int task, int status) const
    {
        const QByteArray log = QFile::encodeName(scratch.filePath(u"log"_s));
        const QString script = scratch.filePath(u"helper"_s);
        writeFile(script,
                  "echo 'tolvane-privileged-helper 1'; task=0; rm -f " + log
                      + "; while read length; do head -c $length | tr '\\0' ' ' >>" + log
                      + "; echo >>" + log + "; task=$((task+1)); if [ $task = "
                      + QByteArray::number(task) + " ]; then echo '" + QByteArray::number(status)
                      + " why'; else echo '0 '; fi; done");
        return {u"/bin/sh"_s, script};
    }
    [[nodiscard]] QStringList tasks() const
    {
        QFile log(scratch.filePath(u"log"_s));
        return log.open(QIODevice::ReadOnly)
            ? QString::fromUtf8(log.readAll()).split(u" \n"_s, Qt::SkipEmptyParts)
            : QStringList();
    }

    QTemporaryDir scratch;
    std::optional<PrivateFolders> folders;
    const QString installed = BRAudioRecorder::kInstalledExtensionPath;
    const QString brimmet = u"/usr/local/lib/tolvane/Extensions/BrimmetAudio.kext"_s;
};

class AudioDriverInServer : public AudioDriver,
                            public testing::WithParamInterface<SoundServer::Kind> { };

INSTANTIATE_TEST_SUITE_P(Servers, AudioDriverInServer, testing::ValuesIn(SoundServer::installed()),
                         testing::PrintToStringParamName());

TEST_P(AudioDriverInServer, ComesBackWithTheServerUntilItIsUninstalled)
{
    SoundServer server(GetParam(), u"/etc/pulse/default.pa.d"_s);
    PulseSoundPlatform sound(server.name());
    PXAuthentication authentication({QStringLiteral(PRIVILEGED_HELPER)});
    EXPECT_FALSE(BRAudioRecorder::isKernelExtensionInstalled(sound));
    ASSERT_TRUE(BRAudioRecorder::installKernelExtension(authentication, sound));
    EXPECT_TRUE(BRAudioRecorder::isKernelExtensionInstalled(sound));

    server.kill();
    EXPECT_FALSE(BRAudioRecorder::isKernelExtensionInstalled(sound));
    server.start();
    EXPECT_TRUE(waitUntil([&] { return BRAudioRecorder::isKernelExtensionInstalled(sound); }));
    EXPECT_TRUE(server.pactl({u"list"_s, u"sinks"_s}).contains(u"tolvane.virtual = \"1\""_s));

    ASSERT_TRUE(BRAudioRecorder::uninstallKernelExtension(authentication, sound));
    EXPECT_FALSE(BRAudioRecorder::isKernelExtensionInstalled(sound));
    EXPECT_FALSE(QFileInfo::exists(installed));
    server.kill();
    server.start();
    EXPECT_TRUE(sound.inputDevices());
    EXPECT_FALSE(BRAudioRecorder::isKernelExtensionInstalled(sound));
}

TEST_F(AudioDriver, ReplacesItsPredecessor)
{
    writeFile(brimmet + u"/default.pa.d/brimmet.pa"_s);
    writeFile(u"/etc/pulse/default.pa.d/other.pa"_s);
    const QString link = u"/etc/pulse/default.pa.d/brimmet.pa"_s;
    ASSERT_TRUE(QFile::link(brimmet + u"/default.pa.d/brimmet.pa"_s, link));
    PulseSoundPlatform nowhere(u"unix:/nowhere"_s);
    PXAuthentication authentication({QStringLiteral(PRIVILEGED_HELPER)});
    EXPECT_TRUE(BRAudioRecorder::replaceBrimmetKernelExtension(authentication, nowhere));
    EXPECT_FALSE(QFileInfo::exists(brimmet) || QFileInfo(link).isSymLink());
    EXPECT_TRUE(QFileInfo::exists(installed + u"/Info.plist"_s));
    EXPECT_TRUE(QFileInfo(u"/etc/pulse/default.pa.d/tolvane-audio.pa"_s).isSymLink());
    EXPECT_TRUE(QFileInfo::exists(u"/etc/pulse/default.pa.d/other.pa"_s));
    // Where there is none, nothing is in the way.
    EXPECT_TRUE(BRAudioRecorder::replaceBrimmetKernelExtension(authentication, nowhere));
    EXPECT_TRUE(BRAudioRecorder::uninstallKernelExtension(authentication, nowhere));
    EXPECT_TRUE(BRAudioRecorder::uninstallKernelExtension(authentication, nowhere));
}

TEST_F(AudioDriver, FailuresAreToldInTheirWords)
{
    using Operation = PXAuthorized (*)(PXAuthentication &, PXSoundPlatform &);
    const Operation install = BRAudioRecorder::installKernelExtension;
    const Operation uninstall = BRAudioRecorder::uninstallKernelExtension;
    const Operation replace = BRAudioRecorder::replaceBrimmetKernelExtension;
    const QString couldNotInstall = u"Tolvane could not install the kernel extension."_s;
    const QString couldNotOwn
        = u"Tolvane could not give the kernel extension proper permissions."_s;
    const QString couldNotLoad = u"Tolvane could not load the kernel extension."_s;
    const QString couldNotUnload = u"Tolvane could not unload the kernel extension."_s;
    const QString couldNotRemove = u"Tolvane could not uninstall the kernel extension."_s;
    const QString why = u"something else went wrong"_s;
    const struct {
        const char *name;
        Operation operation;
        int failingTask;
        int status;
        QString description; ///< Empty: no error.
        QString suggestion;
        qsizetype tasks;
    } cases[] = {
        {"installs", install, 0, 0, {}, {}, 3},
        {"copy", install, 1, -60008, couldNotInstall, why, 1},
        {"owner", install, 2, -60031, couldNotOwn, u"cannot execute privileged tool"_s, 2},
        {"load", install, 3, -60008, couldNotLoad, why, 3},
        {"cancelledCopy", install, 1, -60006, {}, {}, 1},
        {"unknownStatus", install, 1, -1, couldNotInstall, {}, 1},
        {"uninstalls", uninstall, 0, 0, {}, {}, 5},
        {"unload", uninstall, 1, -60008, couldNotUnload, why, 1},
        {"cancelledUnload", uninstall, 1, -60006, {}, {}, 1},
        {"laterUnloadsDoNotMatter", uninstall, 3, -60008, {}, {}, 5},
        {"remove", uninstall, 5, -60008, couldNotRemove, why, 5},
        {"replaces", replace, 0, 0, {}, {}, 8},
        {"removeBrimmet", replace, 5, -60008, couldNotRemove, why, 5},
        {"copyAfterBrimmet", replace, 6, -60008, couldNotInstall, why, 6},
    };
    writeFile(installed + u"/Info.plist"_s);
    writeFile(brimmet + u"/Info.plist"_s);
    PulseSoundPlatform nowhere(u"unix:/nowhere"_s);
    for (const auto &c : cases) {
        PXAuthentication authentication(helperFailingAt(c.failingTask, c.status));
        const PXAuthorized done = c.operation(authentication, nowhere);
        const bool isSilent = c.status == -60006;
        EXPECT_EQ(done.has_value(), c.description.isEmpty() && !isSilent) << c.name;
        EXPECT_EQ(tasks().size(), c.tasks) << c.name;
        if (done)
            continue;
        const PXError error = done.error().value_or(PXError());
        EXPECT_EQ(done.error().has_value(), !isSilent) << c.name;
        EXPECT_EQ(error.description, c.description) << c.name;
        EXPECT_EQ(error.suggestion, c.suggestion) << c.name;
        EXPECT_EQ(error.domain, isSilent ? QString() : u"com.pexar.brimmet"_s) << c.name;
        EXPECT_EQ(error.code, isSilent ? 0 : 2) << c.name;
    }
}

} // namespace
