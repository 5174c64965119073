#pragma once

#include "platform/PXSoundInput.h"

#include "foundation/PXError.h"
#include "foundation/PXFileLock.h"
#include "foundation/PXObservation.h"

#include <QString>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

/// The server's number of a device for as long as it is there; outputs and inputs never share one.
using PXAudioDeviceID = std::uint32_t;
inline constexpr PXAudioDeviceID kPXNoAudioDevice = 0;

/// The virtual output that captures what the computer plays: as an output it is played to, as an
/// input it gives what was played to it. Its unique ID is the same for both.
inline constexpr char kPXVirtualAudioDeviceUID[] = "com_PexarWorks_driver_BRAudioEngine:0";

struct PXAudioDevice {
    PXAudioDeviceID deviceID = kPXNoAudioDevice;
    QString uid; ///< Stays the same from start to start.
    QString name; ///< For people.
    /// For an input that records an output: that output's ID. Such an input is no microphone.
    PXAudioDeviceID monitoredOutput = kPXNoAudioDevice;
};

/// Sends what an input records on to an output until it is destroyed.
class PXAudioPreviewOutput {
public:
    virtual ~PXAudioPreviewOutput() = default;
    /// It ends when its output goes, or the server.
    [[nodiscard]] virtual bool isPlaying() = 0;
    /// Destroying it ends nothing from now on: others go on with it.
    virtual void leaveToOthers() = 0;
};

/// One door to the sound server. Main thread. Calls ask the server and may wait for it, for a few
/// seconds at most; where there is none they fail, and find one that was started since.
class PXSoundPlatform {
public:
    virtual ~PXSoundPlatform() = default;

    /// Microphones, line inputs and the monitors of all outputs.
    [[nodiscard]] virtual PXExpected<std::vector<PXAudioDevice>> inputDevices() = 0;
    [[nodiscard]] virtual PXExpected<std::vector<PXAudioDevice>> outputDevices() = 0;
    /// `function` is called on the main thread soon after devices came or went, or the default
    /// output or input changed.
    virtual PXObservation addDevicesObserver(std::function<void()> function) = 0;

    /// `kPXNoAudioDevice` where the server has none.
    [[nodiscard]] virtual PXExpected<PXAudioDeviceID> defaultInputDevice() = 0;
    [[nodiscard]] virtual PXExpected<PXAudioDeviceID> defaultOutputDevice() = 0;
    /// What already plays moves along. When this returns `defaultOutputDevice()` says the new one.
    [[nodiscard]] virtual PXExpected<void> setDefaultOutputDevice(PXAudioDeviceID device) = 0;
    /// Where alert sounds go: the default output unless the user's rule says otherwise.
    [[nodiscard]] virtual PXExpected<PXAudioDeviceID> defaultSystemOutputDevice() = 0;
    /// Makes, or changes, that rule.
    [[nodiscard]] virtual PXExpected<void> setDefaultSystemOutputDevice(PXAudioDeviceID device) = 0;

    /// Opens the input with that unique ID; nothing flows yet. The server converts to `format`
    /// where one is given. Fails with a description that names the device where there is none.
    [[nodiscard]] virtual PXExpected<std::unique_ptr<PXSoundInput>>
    openInput(const QString &uid, const std::optional<PXSoundFormat> &format = {}) = 0;

    /// Plays what the input records to the output, less than 60 ms later, at that volume (1.0 is
    /// unchanged). One that another program made is shared. It goes on when this program dies;
    /// destroying it ends it unless others still record the input.
    [[nodiscard]] virtual PXExpected<std::unique_ptr<PXAudioPreviewOutput>>
    makeAudioPreviewOutput(const QString &inputUID, const QString &outputUID, double volume) = 0;

    /// Loads the virtual output into the running server, which forgets it when it ends, and turns
    /// it to full volume, also when it is there already. Needs no rights.
    [[nodiscard]] virtual PXExpected<void> loadVirtualOutput() = 0;
    /// Harmless when there is none. What plays to it moves to another output.
    [[nodiscard]] virtual PXExpected<void> unloadVirtualOutput() = 0;
    /// Who uses the virtual output holds a shared lock, from before it makes that the default
    /// output until the user's is back; who undoes what others left takes an exclusive one, and
    /// gives up where that is held. One for each server and user.
    [[nodiscard]] virtual PXExpected<std::unique_ptr<PXFileLock>>
    lockVirtualOutput(PXFileLock::Mode mode, PXFileLock::IfHeld ifHeld) = 0;
    /// Whether another program, which is still running, records from the virtual output.
    [[nodiscard]] virtual PXExpected<bool> isVirtualOutputUsedByOthers() = 0;
    /// Ends what is played on from the virtual output when no running program records from it.
    [[nodiscard]] virtual PXExpected<void> removeOrphans() = 0;
};
