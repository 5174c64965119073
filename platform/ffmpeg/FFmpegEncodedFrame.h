#pragma once

#include "platform/PXCompressionSession.h"
#include "platform/ffmpeg/FFmpegHandles.h"

#include <algorithm>
#include <new>
#include <utility>

/// A packet, or nothing for a frame whose picture a later one replaced.
class FFmpegEncodedFrame final : public PXEncodedFrame {
public:
    FFmpegEncodedFrame(std::int64_t displayTime, std::int64_t decodeDuration, ffmpeg::Packet packet)
        : _displayTime(displayTime), _decodeDuration(decodeDuration), _packet(std::move(packet))
    {
    }

    [[nodiscard]] std::int64_t displayTime() const override { return _displayTime; }
    [[nodiscard]] std::int64_t decodeDuration() const override { return _decodeDuration; }
    [[nodiscard]] bool isKeyFrame() const override
    {
        return _packet && (_packet->flags & AV_PKT_FLAG_KEY) != 0;
    }
    [[nodiscard]] std::span<const std::byte> data() const override
    {
        if (!_packet)
            return {};
        return std::as_bytes(
            std::span(_packet->data, static_cast<std::size_t>(std::max(0, _packet->size))));
    }
    /// Null where there is none.
    [[nodiscard]] const AVPacket *packet() const { return _packet.get(); }

private:
    std::int64_t _displayTime;
    std::int64_t _decodeDuration;
    ffmpeg::Packet _packet;
};

/// An encoder's parameters, for the muxer.
class FFmpegTrackFormat final : public PXTrackFormat {
public:
    explicit FFmpegTrackFormat(const AVCodecContext &encoder)
        : _parameters(avcodec_parameters_alloc())
    {
        if (!_parameters || avcodec_parameters_from_context(_parameters.get(), &encoder) < 0)
            throw std::bad_alloc();
    }

    [[nodiscard]] int width() const override { return _parameters->width; }
    [[nodiscard]] int height() const override { return _parameters->height; }
    [[nodiscard]] const AVCodecParameters &parameters() const { return *_parameters; }

private:
    ffmpeg::Parameters _parameters;
};
