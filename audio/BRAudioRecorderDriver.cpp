#include "audio/BRAudioRecorder.h"

#include "audio/privileged/PXPrivilegedProtocol.h"
#include "foundation/PXResources.h"

#include <QFileInfo>
#include <QStringList>

#include <algorithm>

using namespace Qt::StringLiterals;

const QString BRAudioRecorder::kInstalledExtensionPath
    = u"/usr/local/lib/tolvane/Extensions/TolvaneAudio.kext"_s;

namespace {

const QString kBrimmetExtensionPath = u"/usr/local/lib/tolvane/Extensions/BrimmetAudio.kext"_s;
const QString kIdentifier = u"com.pexarworks.driver.tolvaneaudio"_s;
const QString kIdentifierOfBrimmet = u"com.pexarworks.driver.brimmetaudio"_s;

const QString kCouldNotLoad = u"Tolvane could not load the kernel extension."_s;
const QString kCouldNotUnload = u"Tolvane could not unload the kernel extension."_s;

constexpr int kDriverError = 2;

PXError driverError(const QString &description, const QString &suggestion)
{
    return {kBRErrorDomain, kDriverError, description, suggestion, {}};
}

/// Runs one command; `whatFailed` is what the user is told when it fails.
PXAuthorized execute(PXAuthentication &authentication, const QString &path,
                     const QStringList &arguments, const QString &whatFailed)
{
    const int status = authentication.executeTask(path, arguments);
    if (status == PXPrivilegedDone)
        return {};
    if (status == PXPrivilegedCancelled)
        return tl::unexpected(std::nullopt);
    return tl::unexpected(
        driverError(whatFailed, PXAuthentication::authorizationErrorString(status)));
}

/// A server that does not run has nothing loaded, and loads what is installed when it starts.
bool isWithoutServer(const PXError &error)
{
    return error.domain == kPXSoundErrorDomain && error.code == PXSoundCannotReach;
}

/// What the running server did, which is the user's own and needs no root.
PXAuthorized resultOf(const PXExpected<void> &done, const QString &whatFailed)
{
    if (done || isWithoutServer(done.error()))
        return {};
    return tl::unexpected(driverError(whatFailed, PXErrorLine(done.error())));
}

} // namespace

bool BRAudioRecorder::isKernelExtensionInstalled(PXSoundPlatform &sound)
{
    const auto inputs = sound.inputDevices();
    return inputs && std::any_of(inputs->begin(), inputs->end(), [](const PXAudioDevice &input) {
               return input.uid == QLatin1StringView(kPXVirtualAudioDeviceUID);
           });
}

PXAuthorized BRAudioRecorder::installKernelExtension(PXAuthentication &authentication,
                                                     PXSoundPlatform &sound)
{
    const QString couldNotInstall = u"Tolvane could not install the kernel extension."_s;
    const auto resource = PXResources::pathForResource(u"TolvaneAudio"_s, u"kext"_s);
    if (!resource)
        return tl::unexpected(
            driverError(couldNotInstall,
                        u"There is no TolvaneAudio.kext in "_s + PXResources::folder() + u'.'));
    // The helper follows no link.
    const QString source = QFileInfo(*resource).canonicalFilePath();
    return execute(authentication, u"/bin/cp"_s, {u"-R"_s, source, kInstalledExtensionPath},
                   couldNotInstall)
        .and_then([&] {
            return execute(authentication, u"/usr/sbin/chown"_s,
                           {u"-R"_s, u"root:wheel"_s, kInstalledExtensionPath},
                           u"Tolvane could not give the kernel extension proper permissions."_s);
        })
        .and_then([&] {
            return execute(authentication, u"/sbin/kextload"_s, {kInstalledExtensionPath},
                           kCouldNotLoad);
        })
        .and_then([&] { return resultOf(sound.loadVirtualOutput(), kCouldNotLoad); });
}

PXAuthorized BRAudioRecorder::uninstallKernelExtension(PXAuthentication &authentication,
                                                       PXSoundPlatform &sound)
{
    return _unloadKernelExtension(kIdentifier, authentication)
        .and_then([&] { return resultOf(sound.unloadVirtualOutput(), kCouldNotUnload); })
        .and_then([&] { return _removeKernelExtension(kInstalledExtensionPath, authentication); });
}

PXAuthorized BRAudioRecorder::replaceBrimmetKernelExtension(PXAuthentication &authentication,
                                                            PXSoundPlatform &sound)
{
    return _unloadKernelExtension(kIdentifierOfBrimmet, authentication)
        .and_then([&] { return _removeKernelExtension(kBrimmetExtensionPath, authentication); })
        .and_then([&] { return installKernelExtension(authentication, sound); });
}

PXAuthorized BRAudioRecorder::_unloadKernelExtension(const QString &identifier,
                                                     PXAuthentication &authentication)
{
    const QString program = u"/sbin/kextunload"_s;
    const QStringList arguments = {u"-b"_s, identifier};
    PXAuthorized unloaded = execute(authentication, program, arguments, kCouldNotUnload);
    if (!unloaded)
        return unloaded;
    // Each takes away one user of an extension that several may use; the last finds none left.
    for (int run = 0; run < 3; ++run)
        authentication.executeTask(program, arguments);
    return {};
}

PXAuthorized BRAudioRecorder::_removeKernelExtension(const QString &path,
                                                     PXAuthentication &authentication)
{
    if (const QFileInfo info(path); !info.exists() && !info.isSymLink())
        return {};
    return execute(authentication, u"/bin/rm"_s, {u"-r"_s, path},
                   u"Tolvane could not uninstall the kernel extension."_s);
}
