#pragma once

#include "platform/PXCompressionSession.h"

/// What a delegate hears of a frame: all but its bytes, which would pile up while the main thread
/// is busy.
class BRFrameWithoutData final : public PXEncodedFrame {
public:
    explicit BRFrameWithoutData(const PXEncodedFrame &frame)
        : _displayTime(frame.displayTime()),
          _decodeDuration(frame.decodeDuration()),
          _isKeyFrame(frame.isKeyFrame())
    {
    }

    [[nodiscard]] std::int64_t displayTime() const override { return _displayTime; }
    [[nodiscard]] std::int64_t decodeDuration() const override { return _decodeDuration; }
    [[nodiscard]] bool isKeyFrame() const override { return _isKeyFrame; }
    [[nodiscard]] std::span<const std::byte> data() const override { return {}; }

private:
    std::int64_t _displayTime;
    std::int64_t _decodeDuration;
    bool _isKeyFrame;
};
