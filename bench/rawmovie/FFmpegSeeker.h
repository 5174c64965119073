#pragma once

#include "platform/ffmpeg/FFmpegHandles.h"

#include <QString>

/// Seeks in a movie as players that use ffmpeg's libraries do, with as many threads as these
/// choose. What cannot be read throws std::runtime_error.
class FFmpegSeeker final {
public:
    explicit FFmpegSeeker(const QString &path);

    /// Goes back to a key frame and decodes up to the picture that is shown at `time`, which stays
    /// as the decoder made it. Answers when that picture begins.
    double seek(double time);

private:
    /// The next picture in order; false behind the last.
    bool _decodeNext(AVFrame &frame);

    ffmpeg::Input _input;
    ffmpeg::CodecContext _decoder;
    ffmpeg::Packet _packet;
    ffmpeg::Frame _frame;
    ffmpeg::Frame _next;
    AVStream *_stream = nullptr;
};
