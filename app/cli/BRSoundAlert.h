#pragma once

#include "foundation/PXAlert.h"
#include "foundation/PXError.h"

#include <QString>

/// What goes wrong with the sound, told at the terminal: kept until the recording begins, when a
/// failure ends the command, and printed as a warning from then on. Main thread, where the audio
/// recorder beeps.
class BRSoundAlert final : public PXAlert {
public:
    void beep(const QString &message) override;

    /// What was kept last, as an error.
    [[nodiscard]] PXError failure() const;
    void printFromNowOn();

private:
    QString _message;
    bool _prints = false;
};
