#include "app/cli/BRMicrophone.h"

#include "foundation/PXDefaults.h"

#include <algorithm>
#include <cerrno>

using namespace Qt::StringLiterals;

PXExpected<QString> BRMicrophone::chosen(const QString &uid, PXSoundPlatform &sound)
{
    const QString suggestion = u"See what there is with \"tolvane devices\"."_s;
    const auto inputs = sound.inputDevices();
    if (!inputs)
        return PXFail(inputs.error());
    QString wanted = uid;
    if (wanted.isEmpty())
        wanted = PXDefaults::standardUserDefaults().stringValue(u"chosenMicrophoneDevice"_s);
    if (wanted.isEmpty()) {
        const auto standard = sound.defaultInputDevice();
        if (!standard)
            return PXFail(standard.error());
        const auto found
            = std::find_if(inputs->begin(), inputs->end(),
                           [&](const PXAudioDevice &input) { return input.deviceID == *standard; });
        // A monitor is the default input of a computer without a microphone.
        if (found == inputs->end() || found->monitoredOutput != kPXNoAudioDevice)
            return PXFail(PXPOSIXError(ENODEV, u"There is no microphone"_s, suggestion));
        return found->uid;
    }
    const bool isThere
        = std::any_of(inputs->begin(), inputs->end(), [&](const PXAudioDevice &input) {
              return input.uid == wanted && input.monitoredOutput == kPXNoAudioDevice;
          });
    if (!isThere)
        return PXFail(
            PXPOSIXError(ENODEV, u"There is no microphone \"%1\""_s.arg(wanted), suggestion));
    return wanted;
}
