#pragma once

#include "foundation/PXError.h"
#include "foundation/PXHandle.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/buffer.h>
#include <libavutil/frame.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <new>
#include <system_error>

namespace ffmpeg {

inline void freeCodecContext(AVCodecContext *context)
{
    avcodec_free_context(&context);
}
inline void freeFrame(AVFrame *frame)
{
    av_frame_free(&frame);
}
inline void freePacket(AVPacket *packet)
{
    av_packet_free(&packet);
}
inline void freeParameters(AVCodecParameters *parameters)
{
    avcodec_parameters_free(&parameters);
}
inline void freeConverter(SwrContext *context)
{
    swr_free(&context);
}
inline void closeInput(AVFormatContext *context)
{
    avformat_close_input(&context);
}
inline void freePool(AVBufferPool *pool)
{
    av_buffer_pool_uninit(&pool);
}

using CodecContext = PXHandle<AVCodecContext, freeCodecContext>;
using Frame = PXHandle<AVFrame, freeFrame>;
using Packet = PXHandle<AVPacket, freePacket>;
using Parameters = PXHandle<AVCodecParameters, freeParameters>;
using BufferPool = PXHandle<AVBufferPool, freePool>;
using Resampler = PXHandle<SwrContext, freeConverter>;
using Input = PXHandle<AVFormatContext, closeInput>;
using Scaler = PXHandle<SwsContext, sws_freeContext>;

/// `whatFailed` with the library's reason behind it. Where the status is one of the system's
/// (a full disk) the error is in its domain with its code; else in "FFmpeg" with the status.
PXError error(int status, const QString &whatFailed);

/// That there is no memory for the movie. Made on the first call, which is to come early: later
/// there may be no memory to make it.
const PXError &noMemory();

/// What `make` answers; `noMemory()` where it finds no memory, be it for a thread's stack.
template <typename Make> auto withinMemory(Make make) -> decltype(make())
{
    try {
        return make();
    } catch (const std::bad_alloc &) {
        return PXFail(noMemory());
    } catch (const std::system_error &) {
        return PXFail(noMemory());
    }
}

/// Sends the library's own messages to our log instead of standard error. Once is enough.
void routeLog();

} // namespace ffmpeg
