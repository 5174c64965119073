#include "platform/ffmpeg/FrameEncoder.h"

#include "platform/ffmpeg/FFmpegEncodedFrame.h"

#include <algorithm>
#include <cerrno>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

PXError noFrameError()
{
    return {u"FFmpeg"_s, AVERROR_BUG, u"The encoder gave nothing for a frame"_s, {}, {}};
}

} // namespace

FrameEncoder::FrameEncoder(AVCodecContext &context, const PXCompressionSession::Output &output)
    : _context(context), _output(output)
{
}

void FrameEncoder::encode(ffmpeg::Frame frame)
{
    if (_pending) {
        const std::int64_t duration = frame->pts - _pending->pts;
        if (duration > 0) {
            send(duration);
        } else {
            _inEncoder.push_back({_pending->pts, 0});
            handOutReplacedFrames();
        }
    }
    _pending = std::move(frame);
}

PXExpected<void> FrameEncoder::complete(double soleFrameDuration)
{
    if (_pending) {
        send(durationOfLastFrame(soleFrameDuration));
        _pending.reset();
    }
    int status = noted(avcodec_send_frame(&_context, nullptr));
    if (status >= 0)
        status = receive();
    while (!_inEncoder.empty()) {
        _inEncoder.pop_front();
        _output(PXFail(noFrameError()));
        handOutReplacedFrames();
    }
    if (status < 0 && status != AVERROR_EOF)
        return PXFail(ffmpeg::error(status, u"Could not finish encoding"_s));
    return {};
}

std::int64_t FrameEncoder::durationOfLastFrame(double soleFrameDuration) const
{
    if (_lastDuration)
        return *_lastDuration;
    const double seconds
        = std::isfinite(soleFrameDuration) ? std::clamp(soleFrameDuration, 0.0, 86400.0) : 0.0;
    return std::max<std::int64_t>(1, std::llround(seconds * kPXCompressionTimeScale));
}

void FrameEncoder::send(std::int64_t duration)
{
    _lastDuration = duration;
    if (const int status = noted(avcodec_send_frame(&_context, _pending.get())); status < 0) {
        _output(PXFail(ffmpeg::error(status, u"Could not encode a frame"_s)));
        _pending.reset();
        return;
    }
    _inEncoder.push_back({_pending->pts, duration});
    // Not held any longer than the encoder holds it: the next change then needs no copy.
    _pending.reset();
    receive();
}

int FrameEncoder::receive()
{
    while (true) {
        ffmpeg::Packet packet(av_packet_alloc());
        if (!packet)
            return noted(AVERROR(ENOMEM));
        if (const int status = noted(avcodec_receive_packet(&_context, packet.get())); status < 0)
            return status;
        handOut(std::move(packet));
    }
}

// libx264 and libx265 give no reason, nor do the library's oldest encoders, which answer -1: what
// fails in them while they encode is an allocation, or follows from one.
int FrameEncoder::noted(int status)
{
    if (!_failure && (status == AVERROR(ENOMEM) || status == AVERROR_EXTERNAL || status == -1))
        _failure = ffmpeg::noMemory();
    return status;
}

void FrameEncoder::handOut(ffmpeg::Packet packet)
{
    // A frame that the encoder left out has no packet.
    while (!_inEncoder.empty() && _inEncoder.front().displayTime < packet->pts) {
        _inEncoder.pop_front();
        _output(PXFail(noFrameError()));
        handOutReplacedFrames();
    }
    if (_inEncoder.empty())
        return;
    const Waiting frame = _inEncoder.front();
    _inEncoder.pop_front();
    _output(
        std::make_shared<FFmpegEncodedFrame>(frame.displayTime, frame.duration, std::move(packet)));
    handOutReplacedFrames();
}

void FrameEncoder::handOutReplacedFrames()
{
    while (!_inEncoder.empty() && _inEncoder.front().duration == 0) {
        const std::int64_t displayTime = _inEncoder.front().displayTime;
        _inEncoder.pop_front();
        _output(std::make_shared<FFmpegEncodedFrame>(displayTime, 0, nullptr));
    }
}
