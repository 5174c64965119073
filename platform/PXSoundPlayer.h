#pragma once

#include <QString>

/// Plays the program's own short sounds. What cannot be played, for want of a server, an output or
/// a file, is a line in the log and nothing else: nobody waits for a sound, and nothing depends on
/// one. Main thread.
class PXSoundPlayer {
public:
    virtual ~PXSoundPlayer() = default;

    /// A sound is wanted soon: what takes time is done now, so that it then starts at once.
    virtual void prepare() = 0;
    /// Plays the resource "sounds/`name`.wav" beside whatever plays already. Never waits.
    virtual void play(const QString &name) = 0;
    /// Where sounds are played from now on: a `PXAudioDevice::uid`; empty, as at first, is the
    /// default output. While that is the virtual output ours must be told the user's own, or they
    /// end up in the recording.
    virtual void setOutputDevice(const QString &uid) = 0;
};
