#pragma once

#include "platform/PXSoundPlatform.h"

#include "foundation/PXError.h"

#include <QString>

/// Questions about the sound server's devices. Main thread; an unknown device gives an error that
/// names it.
namespace BRAudioDevices {

/// Where alert sounds go.
PXExpected<PXAudioDeviceID> systemAudioOutputDeviceID(PXSoundPlatform &sound);
/// Makes it the default output: what plays goes there.
PXExpected<void> setSystemAudioOutputDeviceID(PXSoundPlatform &sound, PXAudioDeviceID device);

/// Of an output; where no output has that unique ID, of an input.
PXExpected<PXAudioDeviceID> audioDeviceIDForUID(PXSoundPlatform &sound, const QString &uid);
PXExpected<QString> UIDOfAudioDeviceWithID(PXSoundPlatform &sound, PXAudioDeviceID device);
PXExpected<QString> nameOfAudioDeviceWithID(PXSoundPlatform &sound, PXAudioDeviceID device);

/// The input that records what plays to the default output.
PXExpected<PXAudioDevice> monitorOfDefaultOutput(PXSoundPlatform &sound);

} // namespace BRAudioDevices
