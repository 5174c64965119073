#include "foundation/PXError.h"

#include <cstring>

using namespace Qt::StringLiterals;

const QString kPXPOSIXErrorDomain = u"NSPOSIXErrorDomain"_s;
const QString kPXCocoaErrorDomain = u"NSCocoaErrorDomain"_s;
const QString kBRErrorDomain = u"com.pexar.brimmet"_s;
const QString kPXDisplayErrorDomain = u"PXDisplayErrorDomain"_s;
const QString kPXSoundErrorDomain = u"PXSoundErrorDomain"_s;

PXError PXPOSIXError(int errorNumber, const QString &whatFailed, const QString &suggestion)
{
    char text[256] = {};
    // The GNU form, which may answer with a constant of its own instead of filling `text`.
    const QString reason = QString::fromLocal8Bit(strerror_r(errorNumber, text, sizeof text));
    return {kPXPOSIXErrorDomain, errorNumber, whatFailed + u": "_s + reason, suggestion, {}};
}

QString PXErrorLine(const PXError &error)
{
    QString line = error.description;
    if (!error.suggestion.isEmpty()) {
        if (!line.endsWith(u'.') && !line.endsWith(u'!') && !line.endsWith(u'?'))
            line += u'.';
        line += u' ' + error.suggestion;
    }
    if (const QString reason = error.userInfo.value(u"underlyingError"_s).toString();
        !reason.isEmpty())
        line += u" ("_s + reason + u')';
    return line.replace(u'\n', u' ');
}
