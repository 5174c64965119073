#include "platform/ffmpeg/FFmpegHandles.h"

#include "foundation/BRLog.h"

extern "C" {
#include <libavutil/error.h>
#include <libavutil/log.h>
}

#include <cerrno>
#include <mutex>

using namespace Qt::StringLiterals;

namespace {

// Negated errno values are small; the library's own codes are tags of four bytes.
constexpr int kLargestErrno = 4095;

void logMessage(void *source, int level, const char *format, va_list arguments)
{
    // The library's errors are about one frame or one call, which we report ourselves where it
    // counts; what it calls a warning is about its own settings.
    if (level > AV_LOG_WARNING)
        return;
    const int ourLevel = level <= AV_LOG_ERROR ? BRLogError : BRLogInfo;
    if (ourLevel > BRCurrentLogLevel())
        return;
    try {
        const auto *described = source ? *static_cast<const AVClass *const *>(source) : nullptr;
        const QString name
            = described ? QString::fromUtf8(described->item_name(source)) : u"FFmpeg"_s;
        BRLog(ourLevel, name + u": "_s + QString::vasprintf(format, arguments).trimmed());
    } catch (const std::bad_alloc &) {
        BRIgnoreLog(); // Nothing may be thrown through the library, which calls from its threads.
    }
}

} // namespace

PXError ffmpeg::error(int status, const QString &whatFailed)
{
    if (status < 0 && -status <= kLargestErrno)
        return PXPOSIXError(-status, whatFailed);
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(status, text, sizeof text);
    return {u"FFmpeg"_s, status, whatFailed + u": "_s + QString::fromUtf8(text), {}, {}};
}

const PXError &ffmpeg::noMemory()
{
    static const PXError error
        = PXPOSIXError(ENOMEM, u"Could not make the movie"_s,
                       u"Close other programs, or export a smaller picture."_s);
    return error;
}

void ffmpeg::routeLog()
{
    static std::once_flag isRouted;
    std::call_once(isRouted, [] { av_log_set_callback(logMessage); });
}
