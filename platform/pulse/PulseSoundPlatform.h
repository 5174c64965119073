#pragma once

#include "platform/PXSoundPlatform.h"
#include "platform/pulse/PulseLoopbacks.h"
#include "platform/pulse/PulseServer.h"

#include <QObject>
#include <QString>

#include <atomic>
#include <memory>

class PulseDeviceWatch;

/// The sound server of the session: PulseAudio, or PipeWire, which speaks its protocol.
/// Outlives what it makes.
class PulseSoundPlatform final : public PXSoundPlatform {
public:
    /// Does nothing yet. Empty: the server that the environment names, as for every program;
    /// else "unix:/run/…/native". No server is ever started.
    explicit PulseSoundPlatform(const QString &serverName = {});
    ~PulseSoundPlatform() override;

    PXExpected<std::vector<PXAudioDevice>> inputDevices() override;
    PXExpected<std::vector<PXAudioDevice>> outputDevices() override;
    PXObservation addDevicesObserver(std::function<void()> function) override;

    PXExpected<PXAudioDeviceID> defaultInputDevice() override;
    PXExpected<PXAudioDeviceID> defaultOutputDevice() override;
    PXExpected<void> setDefaultOutputDevice(PXAudioDeviceID device) override;
    PXExpected<PXAudioDeviceID> defaultSystemOutputDevice() override;
    PXExpected<void> setDefaultSystemOutputDevice(PXAudioDeviceID device) override;

    PXExpected<std::unique_ptr<PXSoundInput>>
    openInput(const QString &uid, const std::optional<PXSoundFormat> &format) override;
    PXExpected<std::unique_ptr<PXAudioPreviewOutput>>
    makeAudioPreviewOutput(const QString &inputUID, const QString &outputUID,
                           double volume) override;

    PXExpected<void> loadVirtualOutput() override;
    PXExpected<void> unloadVirtualOutput() override;
    PXExpected<std::unique_ptr<PXFileLock>> lockVirtualOutput(PXFileLock::Mode mode,
                                                              PXFileLock::IfHeld ifHeld) override;
    PXExpected<bool> isVirtualOutputUsedByOthers() override;
    PXExpected<void> removeOrphans() override;

private:
    PXExpected<bool> _isVirtualOutputRecorded(PulseLoopbacks::Ours ours);
    [[nodiscard]] QString _lockPath(const QString &purpose) const;
    PXExpected<PulseServer::Defaults> _defaultsOfNow();
    void _tellThatDevicesDidChange();

    const std::unique_ptr<PulseServer> _server;
    const std::unique_ptr<PulseLoopbacks> _loopbacks;
    PXObservers<> _observers;
    std::atomic<bool> _newsAreOnTheWay = false; ///< Devices come by the dozen.
    QObject _context; ///< Of the posts to the main thread.
    std::unique_ptr<PulseDeviceWatch> _watch; ///< Once there was an observer.
};
