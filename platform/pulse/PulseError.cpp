#include "platform/pulse/PulseError.h"

#include <pulse/pulseaudio.h>

using namespace Qt::StringLiterals;

namespace {

const QString kStartOne
    = u"Start PulseAudio or PipeWire (with pipewire-pulse), or look at PULSE_SERVER."_s;

PXError error(int code, const QString &description, const QString &suggestion, int trueCode)
{
    return {kPXSoundErrorDomain, code, description, suggestion,
            trueCode ? QVariantMap{{u"trueErrorCode"_s, trueCode}} : QVariantMap()};
}

QString reasonOf(int code)
{
    return QString::fromLocal8Bit(pa_strerror(code));
}

} // namespace

PXError PulseError::cannotReach(int code)
{
    return error(PXSoundCannotReach, u"Could not reach the sound server: "_s + reasonOf(code),
                 kStartOne, code);
}

PXError PulseError::lost()
{
    return error(PXSoundLost, u"The sound server has gone"_s, kStartOne, 0);
}

PXError PulseError::noAnswer()
{
    return error(PXSoundLost, u"The sound server does not answer"_s,
                 u"Start it again, then try again."_s, PA_ERR_TIMEOUT);
}

PXError PulseError::noDevice(const QString &kind, const QString &name)
{
    return error(PXSoundNoDevice, u"There is no sound %1 \"%2\""_s.arg(kind, name),
                 u"\"tolvane devices\" lists what there is."_s, 0);
}

PXError PulseError::suspended(const QString &input)
{
    return error(PXSoundNoDevice, u"The sound input \"%1\" was suspended"_s.arg(input), {}, 0);
}

PXError PulseError::refused(const QString &whatFailed, int code)
{
    return error(PXSoundRequestRefused, whatFailed + u": "_s + reasonOf(code), {}, code);
}
