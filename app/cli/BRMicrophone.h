#pragma once

#include "platform/PXSoundPlatform.h"

#include "foundation/PXError.h"

#include <QString>

namespace BRMicrophone {

/// The unique ID of the microphone to record: `uid` itself, else, where that is empty, the one
/// that the settings chose, else the default input. Fails where there is no such input.
PXExpected<QString> chosen(const QString &uid, PXSoundPlatform &sound);

} // namespace BRMicrophone
