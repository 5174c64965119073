#include "app/cli/BRSoundAlert.h"

#include "app/cli/BRTerminal.h"

void BRSoundAlert::beep(const QString &message)
{
    if (!_prints) {
        _message = message;
        return;
    }
    BRTerminal::endProgress();
    BRTerminal::printWarning(message);
    BRTerminal::ringBell();
}

PXError BRSoundAlert::failure() const
{
    return {kBRErrorDomain, 3, _message, {}, {}};
}

void BRSoundAlert::printFromNowOn()
{
    _prints = true;
}
