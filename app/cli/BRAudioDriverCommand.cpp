#include "app/cli/BRAudioDriverCommand.h"

#include "app/cli/BRExitStatus.h"
#include "app/cli/BRTerminal.h"
#include "audio/BRAudioRecorder.h"
#include "audio/PXAuthentication.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

int statusOf(const PXAuthorized &result)
{
    if (result)
        return BRExitDone;
    if (result.error())
        BRTerminal::printError(*result.error());
    return BRExitFailed;
}

} // namespace

int BRRunAudioDriverInstall(PXSoundPlatform &sound)
{
    const int status = statusOf(
        BRAudioRecorder::installKernelExtension(PXAuthentication::sharedInstance(), sound));
    if (status == BRExitDone && !BRAudioRecorder::isKernelExtensionInstalled(sound))
        BRTerminal::printWarning(
            u"the audio driver is installed; your sound server loads it when it starts"_s);
    return status;
}

int BRRunAudioDriverUninstall(PXSoundPlatform &sound)
{
    return statusOf(
        BRAudioRecorder::uninstallKernelExtension(PXAuthentication::sharedInstance(), sound));
}

int BRRunAudioDriverStatus(PXSoundPlatform &sound, bool asJSON)
{
    // What is on the disk can be told without a server, which then has loaded nothing.
    const auto inputs = sound.inputDevices();
    if (!inputs && inputs.error().code != PXSoundCannotReach) {
        BRTerminal::printError(inputs.error());
        return BRExitStatusOfError(inputs.error(), BRAccess::Reading);
    }
    const std::pair<QString, bool> facts[] = {
        {u"installed"_s, QFileInfo(BRAudioRecorder::kInstalledExtensionPath).isDir()},
        {u"loaded"_s, BRAudioRecorder::isKernelExtensionInstalled(sound)},
    };
    QJsonObject object;
    for (const auto &[key, isTrue] : facts) {
        object.insert(key, isTrue);
        if (!asJSON)
            BRTerminal::print(u"%1: %2"_s.arg(key, -9).arg(isTrue ? u"yes"_s : u"no"_s));
    }
    if (asJSON)
        BRTerminal::print(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)));
    return BRExitDone;
}
