#include "audio/BROutputDeviceRestorer.h"

#include "audio/privileged/PXFileTree.h"
#include "foundation/BRLog.h"
#include "foundation/PXFileManager.h"

#include <QFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr std::size_t kLongestUID = 1024; ///< Bytes.

bool isOurs(const struct stat &status)
{
    return S_ISREG(status.st_mode) && status.st_uid == ::geteuid()
        && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

bool isVirtual(const PXAudioDevice &device)
{
    return device.uid == QLatin1StringView(kPXVirtualAudioDeviceUID);
}

const PXAudioDevice *deviceWithID(const std::vector<PXAudioDevice> &devices, PXAudioDeviceID id)
{
    const auto found
        = std::find_if(devices.begin(), devices.end(),
                       [id](const PXAudioDevice &device) { return device.deviceID == id; });
    return found == devices.end() ? nullptr : &*found;
}

/// The one with that UID, else any but the virtual one; null where there is none.
const PXAudioDevice *realOutput(const std::vector<PXAudioDevice> &outputs,
                                const std::optional<QString> &uid)
{
    const PXAudioDevice *any = nullptr;
    for (const PXAudioDevice &output : outputs) {
        if (isVirtual(output))
            continue;
        if (uid && output.uid == *uid)
            return &output;
        if (!any)
            any = &output;
    }
    return any;
}

void logFailure(const char *what, const QString &path, int errorNumber)
{
    BRLog(BRLogWarning, PXPOSIXError(errorNumber, QLatin1StringView(what) + path).description);
}

void writeFile(const QString &path, const QByteArray &text)
{
    const QByteArray name = QFile::encodeName(path);
    // Root could replace another user's file. It is not his to keep, but neither ours to take.
    struct stat status = {};
    if (::lstat(name.constData(), &status) == 0 && status.st_uid != ::geteuid())
        return logFailure("Could not write ", path, EPERM);
    std::vector<char> fresh(name.begin(), name.end());
    for (const char letter : ".XXXXXX")
        fresh.push_back(letter);
    const PXFileDescriptor file(::mkostemp(fresh.data(), O_CLOEXEC));
    if (!file)
        return logFailure("Could not write ", path, errno);
    const bool isWritten = ::write(file.get(), text.constData(), text.size()) == text.size();
    // A link that somebody put there is replaced, not followed.
    if (!isWritten || ::rename(fresh.data(), name.constData()) != 0) {
        logFailure("Could not write ", path, errno);
        ::unlink(fresh.data());
    }
}

std::optional<QString> readFile(const QString &path)
{
    const PXFileDescriptor file(::open(QFile::encodeName(path).constData(),
                                       O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file) {
        if (errno != ENOENT)
            logFailure("Could not read ", path, errno);
        return std::nullopt;
    }
    struct stat status = {};
    if (::fstat(file.get(), &status) != 0 || !isOurs(status)) {
        logFailure("Could not read ", path, EPERM);
        return std::nullopt;
    }
    QByteArray text(kLongestUID + 1, '\0');
    const ssize_t length = ::read(file.get(), text.data(), text.size());
    text.truncate(std::max<ssize_t>(length, 0));
    const bool isText = std::none_of(text.begin(), text.end(),
                                     [](char letter) { return letter >= 0 && letter < ' '; });
    if (text.isEmpty() || text.size() > static_cast<qsizetype>(kLongestUID) || !isText) {
        BRLog(BRLogWarning, path + u" holds no device's UID"_s);
        return std::nullopt;
    }
    return QString::fromUtf8(text);
}

} // namespace

QStringList BROutputDeviceRestorer::UIDFilePaths()
{
    const QString name = u"/Tolvane Audio Output Device UID"_s;
    QStringList paths{u"/tmp"_s + name};
    if (const auto ours = PXFileManager::runtimeFolder())
        paths.prepend(*ours + name);
    return paths;
}

BROutputDeviceRestorer::BROutputDeviceRestorer(PXSoundPlatform &sound, QStringList paths)
    : _sound(sound), _paths(std::move(paths))
{
}

std::optional<PXAudioDevice> BROutputDeviceRestorer::realOutput(const QString &uid) const
{
    const auto outputs = _sound.outputDevices();
    const PXAudioDevice *const output = outputs ? ::realOutput(*outputs, uid) : nullptr;
    return output ? std::optional(*output) : std::nullopt;
}

void BROutputDeviceRestorer::writeUID(const QString &uid) const
{
    for (const QString &path : _paths)
        writeFile(path, uid.toUtf8());
}

std::optional<QString> BROutputDeviceRestorer::savedUID() const
{
    for (const QString &path : _paths) {
        if (auto uid = readFile(path))
            return uid;
    }
    return std::nullopt;
}

PXExpected<PXAudioDevice> BROutputDeviceRestorer::outputInUse() const
{
    const auto outputs = _sound.outputDevices();
    const auto systemOutput = _sound.defaultSystemOutputDevice();
    if (!outputs || !systemOutput)
        return PXFail(outputs ? systemOutput.error() : outputs.error());
    const PXAudioDevice *const device = deviceWithID(*outputs, *systemOutput);
    if (device && !isVirtual(*device))
        return *device;
    if (const PXAudioDevice *const other = ::realOutput(*outputs, savedUID()))
        return *other;
    PXError error{kPXSoundErrorDomain,
                  PXSoundNoDevice,
                  u"There is no sound output besides the virtual one"_s,
                  {},
                  {}};
    BRLog(BRLogError, error.description);
    return PXFail(std::move(error));
}

PXExpected<void> BROutputDeviceRestorer::putBack(const std::optional<QString> &uid) const
{
    const auto outputs = _sound.outputDevices();
    const auto defaultOutput = _sound.defaultOutputDevice();
    if (!outputs || !defaultOutput)
        return PXFail(outputs ? defaultOutput.error() : outputs.error());
    const PXAudioDevice *const current = deviceWithID(*outputs, *defaultOutput);
    if (!current || !isVirtual(*current))
        return {};
    const auto isUsed = _sound.isVirtualOutputUsedByOthers();
    if (!isUsed)
        return PXFail(isUsed.error());
    const PXAudioDevice *const device = ::realOutput(*outputs, uid);
    // Without any other the virtual one is as good as none.
    if (*isUsed || !device)
        return {};
    BRLog(BRLogInfo, u"The output device is put back: "_s + device->name);
    return _sound.setDefaultOutputDevice(device->deviceID);
}

PXExpected<void> BROutputDeviceRestorer::restore() const
{
    // Whoever is about to record through the driver puts everything back himself.
    const auto lock
        = _sound.lockVirtualOutput(PXFileLock::Mode::Exclusive, PXFileLock::IfHeld::GiveUp);
    if (lock && !*lock)
        return {};
    const auto removed = _sound.removeOrphans();
    const auto restored = putBack(savedUID());
    return restored ? removed : restored;
}
