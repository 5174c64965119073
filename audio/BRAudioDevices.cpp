#include "audio/BRAudioDevices.h"

#include <algorithm>
#include <cerrno>

using namespace Qt::StringLiterals;

namespace {

/// The first of the outputs, then of the inputs, that `is` says yes to.
template <typename Predicate>
PXExpected<PXAudioDevice> findDevice(PXSoundPlatform &sound, const QString &name, Predicate is)
{
    const auto first = [&](const std::vector<PXAudioDevice> &devices) -> const PXAudioDevice * {
        const auto found = std::find_if(devices.begin(), devices.end(), is);
        return found == devices.end() ? nullptr : &*found;
    };
    const auto outputs = sound.outputDevices();
    if (!outputs)
        return PXFail(outputs.error());
    if (const auto *device = first(*outputs))
        return *device;
    const auto inputs = sound.inputDevices();
    if (!inputs)
        return PXFail(inputs.error());
    if (const auto *device = first(*inputs))
        return *device;
    return PXFail(PXPOSIXError(ENODEV, u"There is no sound device "_s + name));
}

PXExpected<PXAudioDevice> deviceWithID(PXSoundPlatform &sound, PXAudioDeviceID deviceID)
{
    return findDevice(sound, QString::number(deviceID),
                      [&](const PXAudioDevice &device) { return device.deviceID == deviceID; });
}

} // namespace

namespace BRAudioDevices {

PXExpected<PXAudioDeviceID> systemAudioOutputDeviceID(PXSoundPlatform &sound)
{
    return sound.defaultSystemOutputDevice();
}

PXExpected<void> setSystemAudioOutputDeviceID(PXSoundPlatform &sound, PXAudioDeviceID device)
{
    return sound.setDefaultOutputDevice(device);
}

PXExpected<PXAudioDeviceID> audioDeviceIDForUID(PXSoundPlatform &sound, const QString &uid)
{
    return findDevice(sound, u"\"%1\""_s.arg(uid),
                      [&](const PXAudioDevice &device) { return device.uid == uid; })
        .map([](const PXAudioDevice &device) { return device.deviceID; });
}

PXExpected<QString> UIDOfAudioDeviceWithID(PXSoundPlatform &sound, PXAudioDeviceID device)
{
    return deviceWithID(sound, device).map([](const PXAudioDevice &found) { return found.uid; });
}

PXExpected<QString> nameOfAudioDeviceWithID(PXSoundPlatform &sound, PXAudioDeviceID device)
{
    return deviceWithID(sound, device).map([](const PXAudioDevice &found) { return found.name; });
}

PXExpected<PXAudioDevice> monitorOfDefaultOutput(PXSoundPlatform &sound)
{
    const auto output = sound.defaultOutputDevice();
    if (!output)
        return PXFail(output.error());
    const auto inputs = sound.inputDevices();
    if (!inputs)
        return PXFail(inputs.error());
    const auto monitor
        = std::find_if(inputs->begin(), inputs->end(), [&](const PXAudioDevice &input) {
              return *output != kPXNoAudioDevice && input.monitoredOutput == *output;
          });
    if (monitor == inputs->end())
        return PXFail(PXPOSIXError(ENODEV, u"The computer has no sound output"_s));
    return *monitor;
}

} // namespace BRAudioDevices
