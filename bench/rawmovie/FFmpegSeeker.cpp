#include "bench/rawmovie/FFmpegSeeker.h"

#include <cmath>
#include <stdexcept>

namespace {

void require(int status, const char *what)
{
    if (status < 0)
        throw std::runtime_error(what);
}

} // namespace

FFmpegSeeker::FFmpegSeeker(const QString &path)
    : _packet(av_packet_alloc()), _frame(av_frame_alloc()), _next(av_frame_alloc())
{
    AVFormatContext *context = nullptr;
    require(avformat_open_input(&context, qUtf8Printable(path), nullptr, nullptr), "no movie");
    _input.reset(context);
    require(avformat_find_stream_info(context, nullptr), "no streams");
    const AVCodec *codec = nullptr;
    const int index = av_find_best_stream(context, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    require(index, "no video");
    _stream = context->streams[index];
    _decoder.reset(avcodec_alloc_context3(codec));
    require(avcodec_parameters_to_context(_decoder.get(), _stream->codecpar), "no parameters");
    _decoder->thread_count = 0;
    require(avcodec_open2(_decoder.get(), codec, nullptr), "no decoder");
}

double FFmpegSeeker::seek(double time)
{
    const double tick = av_q2d(_stream->time_base);
    const auto wanted = static_cast<std::int64_t>(std::floor(time / tick));
    require(av_seek_frame(_input.get(), _stream->index, wanted, AVSEEK_FLAG_BACKWARD), "no seek");
    avcodec_flush_buffers(_decoder.get());
    if (!_decodeNext(*_frame))
        throw std::runtime_error("no picture");
    // A frame's own length saves decoding the one behind it.
    while (_frame->pts + _frame->pkt_duration <= wanted && _decodeNext(*_next))
        std::swap(_frame, _next);
    return static_cast<double>(_frame->pts) * tick;
}

bool FFmpegSeeker::_decodeNext(AVFrame &frame)
{
    for (;;) {
        const int status = avcodec_receive_frame(_decoder.get(), &frame);
        if (status >= 0)
            return true;
        if (status != AVERROR(EAGAIN))
            return false;
        // An empty packet makes the decoder give what it holds back.
        while (av_read_frame(_input.get(), _packet.get()) >= 0) {
            if (_packet->stream_index == _stream->index)
                break;
            av_packet_unref(_packet.get());
        }
        require(avcodec_send_packet(_decoder.get(), _packet.get()), "does not decode");
        av_packet_unref(_packet.get());
    }
}
