#pragma once

#include "platform/PXSoundFile.h"
#include "platform/ffmpeg/MovieMuxer.h"
#include "platform/ffmpeg/SoundConverter.h"

#include <QString>

#include <atomic>
#include <memory>
#include <optional>
#include <vector>

/// Converter, encoder and muxer, one after the other in the caller's thread.
class FFmpegSoundWriter final : public PXSoundWriter {
public:
    static PXExpected<std::unique_ptr<FFmpegSoundWriter>> create(const QString &path,
                                                                 PXSoundFileKind kind,
                                                                 const PXSoundFormat &format,
                                                                 const PXSoundEncoding &encoding);

    [[nodiscard]] PXSoundFormat storedFormat() const override;
    PXExpected<void> write(std::span<const std::byte> samples) override;
    PXExpected<void> writeSilence(std::int64_t frames) override;
    PXExpected<void> finish() override;
    [[nodiscard]] std::uint64_t recordedBytes() const override { return _recordedBytes; }

private:
    FFmpegSoundWriter(PXSoundFileKind kind, const PXSoundFormat &format,
                      ffmpeg::CodecContext encoder, std::unique_ptr<SoundConverter> converter,
                      std::unique_ptr<MovieMuxer> muxer);
    PXExpected<void> addTrack();
    PXExpected<void> convert(std::span<const std::byte> samples);
    PXExpected<void> encodeWaiting(int atLeast);
    PXExpected<void> encode(int frames);
    PXExpected<void> writePackets();
    PXExpected<void> repeatLastPacket(std::int64_t times);
    PXExpected<void> writePacket();
    PXExpected<void> handOverWhenDue();
    PXExpected<void> handOver();
    PXExpected<void> endFile();
    PXExpected<void> remember(PXExpected<void> done);

    PXSoundFileKind _kind;
    PXSoundFormat _format;
    ffmpeg::CodecContext _encoder;
    std::unique_ptr<SoundConverter> _converter;
    std::unique_ptr<MovieMuxer> _muxer;
    AVStream *_track = nullptr; ///< The muxer's.
    ffmpeg::Packet _packet;
    ffmpeg::Packet _lastPacket; ///< As the encoder gave it, at its time in the file.
    int _framesAPacket = 0;
    std::int64_t _framesEncoded = 0;
    std::int64_t _framesRepeated = 0; ///< That the encoder knows nothing of.
    std::int64_t _framesHandedOver = 0; ///< Of both, as far as the system has the file.
    std::vector<std::byte> _mended; ///< Samples without what is no number.
    std::optional<PXError> _failure; ///< The first; nothing is written after it.
    bool _isFinished = false;
    std::atomic<std::uint64_t> _recordedBytes = 0;
};
