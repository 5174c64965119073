#pragma once

#include "foundation/PXError.h"

#include <QString>

/// The errors of this folder, all of kPXSoundErrorDomain.
namespace PulseError {

/// "Could not reach the sound server: Connection refused". `code` is libpulse's.
PXError cannotReach(int code);
PXError lost();
/// It is there but silent.
PXError noAnswer();
/// "There is no sound output "NAME"", when `kind` is "output".
PXError noDevice(const QString &kind, const QString &name);
/// The input is there, but sleeps.
PXError suspended(const QString &input);
/// "Could not list the sound outputs: Access denied".
PXError refused(const QString &whatFailed, int code);

} // namespace PulseError
