#pragma once

#include "foundation/PXError.h"
#include "platform/PXSoundPlatform.h"

#include <QString>
#include <QStringList>

#include <optional>

/// Knows which output the user hears, while recordings have the virtual output in its place, and
/// puts it back: after a recording, and when one could not do so itself because it was killed or
/// crashed. A file that outlives the recording has the output's UID, and another the same where
/// the user has a folder for such things that nobody else can write in: the first one's place may
/// be taken by another user's. "audiobuddy" does the latter when a recorder has ended, a recorder
/// before it begins. Main thread.
class BROutputDeviceRestorer final {
public:
    /// "Tolvane Audio Output Device UID" in $XDG_RUNTIME_DIR, where that folder is the user's
    /// alone, and in /tmp.
    static QStringList UIDFilePaths();

    /// Borrows `sound`. `paths` are the file's and its copies', the best first; everybody may write
    /// in their folders.
    explicit BROutputDeviceRestorer(PXSoundPlatform &sound, QStringList paths = UIDFilePaths());

    /// The default system output; where that is the virtual one, because another recording has
    /// switched to it or a dead one has left it so, the one of the file, else another. Fails where
    /// there is none.
    [[nodiscard]] PXExpected<PXAudioDevice> outputInUse() const;
    /// The output with that UID; where it has gone, another that is not the virtual one.
    [[nodiscard]] std::optional<PXAudioDevice> realOutput(const QString &uid) const;

    /// Keeps the UID of the output in use. Each file takes its place whole and is the user's alone.
    /// Where that cannot be, a log line tells: a recording needs no more.
    void writeUID(const QString &uid) const;
    /// Of the first file that is as `writeUID` writes it; a log line tells of one that is not:
    /// another user's, a link, a folder, too long.
    [[nodiscard]] std::optional<QString> savedUID() const;

    /// When the default output is the virtual one and no other running program records from it:
    /// makes the output with that UID the default, or, where it has gone, another. A choice that
    /// the user made meanwhile stays.
    PXExpected<void> putBack(const std::optional<QString> &uid) const;
    /// Ends what a dead recording left playing on, and puts back the output of the file.
    PXExpected<void> restore() const;

private:
    PXSoundPlatform &_sound;
    const QStringList _paths;
};
