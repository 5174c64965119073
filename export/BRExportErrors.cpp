#include "export/BRExportErrors.h"

#include "export/BRFrameCompressor.h"
#include "foundation/BRLog.h"

#include <QFileInfo>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace {

constexpr int kExportError = 1;
constexpr int kPermissionError = -54; // The old platform's numbers: no permission,
constexpr int kFileBusyError = -47; // the file is in use.

PXError exportError(const QString &description, const QString &suggestion, int trueErrorCode)
{
    return {kBRErrorDomain,
            kExportError,
            description,
            suggestion,
            {{u"trueErrorCode"_s, trueErrorCode}}};
}

PXError sessionError(const QString &suggestion)
{
    return exportError(u"Tolvane could not create a compression session."_s, suggestion, 0);
}

PXError withReason(PXError error, const PXError &reason)
{
    error.userInfo.insert(u"underlyingError"_s, PXErrorLine(reason));
    return error;
}

QString fileNameOf(const QString &path)
{
    return QFileInfo(path).fileName();
}

} // namespace

PXError BRExportErrors::cannotReplace(const QString &outputPath)
{
    return {
        kPXCocoaErrorDomain,
        kPermissionError,
        u"Tolvane could not save the movie."_s,
        u"The movie could not be saved as \"%1\" because the existing file cannot be overwritten. (For example, it may be locked.)"_s
            .arg(fileNameOf(outputPath)),
        {}};
}

PXError BRExportErrors::wrongSessionParameters(const BRCompressionOptions &options)
{
    return sessionError(QString::asprintf(
        "createCompressionSessionWithCodec parameter error. w=%i h=%i c=%i o=%i", options.width,
        options.height, static_cast<int>(options.codec), options.options ? 1 : 0));
}

PXError BRExportErrors::noSession(const PXError &reason)
{
    BRLog(BRLogError, PXErrorLine(reason));
    BRLog(BRLogError,
          "createCompressionSessionWithCodec ICMCompressionSessionCreate() failed with error %i",
          reason.code);
    return withReason(
        sessionError(QString::asprintf(
            "createCompressionSessionWithCodec ICMCompressionSessionCreate error %d", reason.code)),
        reason);
}

PXError BRExportErrors::cannotBeginMovie(const char *call, const PXError &reason)
{
    const QString text = QString::asprintf("%s() failed with error %i", call, reason.code);
    BRLog(BRLogError, text);
    return withReason(
        exportError(u"Tolvane could not begin movie compression."_s, text, reason.code), reason);
}

PXError BRExportErrors::cannotCreateMovie(const QString &path, const PXError &reason)
{
    if (reason.domain != kPXPOSIXErrorDomain || (reason.code != EBUSY && reason.code != ETXTBSY))
        return cannotBeginMovie("CreateMovieStorage", reason);
    BRLog(BRLogError, "CreateMovieStorage() failed with error %i", kFileBusyError);
    return exportError(
        u"\"%1\" already exists and is in use, preventing Tolvane from replacing it with the new movie file."_s
            .arg(fileNameOf(path)),
        u"Choose another file name to save the movie as otherwise Tolvane cannot begin movie compression until the existing file is either not busy or is deleted."_s,
        kFileBusyError);
}

PXError BRExportErrors::cannotMoveMovie(const QString &outputPath)
{
    return {
        kPXCocoaErrorDomain,
        kPermissionError,
        u"Tolvane could not save \"%1\"."_s.arg(fileNameOf(outputPath)),
        u"The movie could not be saved into the \"%1\" folder because Tolvane does not have permission."_s
            .arg(fileNameOf(QFileInfo(outputPath).path())),
        {}};
}

PXError BRExportErrors::nothingEncoded(std::uint32_t frames)
{
    return exportError(u"Tolvane could not compress the movie."_s,
                       u"None of its %1 frames could be encoded."_s.arg(frames), 0);
}
