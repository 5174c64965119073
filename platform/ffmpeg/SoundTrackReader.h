#pragma once

#include "platform/ffmpeg/MovieReader.h"
#include "platform/ffmpeg/SoundConverter.h"

#include <QString>

#include <cstdint>
#include <memory>

/// Decodes one sound track of a movie from the movie's beginning: silence until the track begins,
/// and where packets are missing or cannot be decoded. Reads the file on its own, so that
/// several tracks can be read side by side however far apart they lie in it.
class SoundTrackReader final {
public:
    /// The track with that index; null where it cannot be decoded.
    static PXExpected<std::unique_ptr<SoundTrackReader>> open(const QString &path, int index);

    /// As it is stored.
    [[nodiscard]] SoundConverter::Shape shape() const;
    /// Of a sample as it is stored; 16 where the codec has no such size.
    [[nodiscard]] int bitsPerSample() const;

    /// What `read` gives, interleaved. Before it. Fails where the library cannot convert to it.
    PXExpected<void> setOutput(const SoundConverter::Shape &shape);
    /// Up to `frames` frames, fewer only at the end of the track.
    PXExpected<int> read(std::uint8_t *samples, int frames);

private:
    SoundTrackReader(std::unique_ptr<MovieReader> reader, AVStream &track,
                     ffmpeg::CodecContext decoder);
    PXExpected<void> goOn();
    PXExpected<void> readPacket();
    int convertFrame();
    int convertPart(int first, int last);

    std::unique_ptr<MovieReader> _reader;
    AVStream &_track; ///< The reader's.
    ffmpeg::CodecContext _decoder;
    int _channels = 0;
    std::unique_ptr<SoundConverter> _converter;
    ffmpeg::Packet _packet;
    ffmpeg::Frame _frame; ///< Without samples once it is converted.
    std::int64_t _position = 0; ///< Frames since the movie's beginning, at the track's rate.
    std::int64_t _end = 0; ///< Where the packet that is decoded ends, as `_position`.
    bool _isAtEnd = false;
};
