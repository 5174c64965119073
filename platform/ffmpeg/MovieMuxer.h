#pragma once

#include "platform/ffmpeg/FFmpegHandles.h"

#include <QString>

#include <cstdint>
#include <memory>

/// libavformat's "mov" muxer and the file that it writes. One thread at a time. Destroying it
/// closes the file and leaves it as it is. Tracks come first, then the header, packets, the end.
class MovieMuxer final {
public:
    /// Creates or empties the file at `path`. Errors name `nameInErrors`.
    static PXExpected<std::unique_ptr<MovieMuxer>> create(const QString &path,
                                                          const QString &nameInErrors);
    ~MovieMuxer();
    MovieMuxer(const MovieMuxer &) = delete;
    MovieMuxer &operator=(const MovieMuxer &) = delete;

    /// Of the muxer, by the name that it gives them. Before the header.
    void setOption(const char *name, std::int64_t value);
    void setOption(const char *name, const char *value);

    /// A track with these parameters, which are copied, and times in `timeBase`, which the muxer
    /// may change when it writes the header.
    PXExpected<AVStream *> addTrack(const AVCodecParameters &parameters, AVRational timeBase);
    /// Checks that a movie can hold the tracks.
    PXExpected<void> check();
    PXExpected<void> writeHeader();
    /// The same, with room behind it for the index of this many packets. Should more come, the
    /// data are moved back at the end, which takes as long as copying the file.
    PXExpected<void> writeHeaderWithRoomFor(std::uint64_t packets);
    [[nodiscard]] bool hasHeader() const { return _hasHeader; }

    /// Takes the packet's content. Its times are in its track's time base; tracks may be mixed.
    PXExpected<void> write(AVPacket &packet);
    /// Ends a fragment.
    PXExpected<void> endFragment();
    /// Nothing stays in this process's memory.
    PXExpected<void> flush();
    /// Writes what is left and the index.
    PXExpected<void> finish();
    /// The file's size as the system knows it.
    [[nodiscard]] std::uint64_t fileSize();

    /// Raw bytes, for a movie that the muxer cannot write.
    PXExpected<void> writeBytes(const QByteArray &bytes);
    [[nodiscard]] PXError failure(int status) const;

private:
    using Context = PXHandle<AVFormatContext, avformat_free_context>;

    MovieMuxer(QString path, QString nameInErrors, Context context);
    int giveUpReservedRoom();

    QString _path;
    QString _nameInErrors;
    Context _context; ///< Its `pb` is the open file.
    std::uint64_t _expectedPackets = 0;
    std::uint64_t _packets = 0;
    std::int64_t _reservedBytes = 0; ///< For the index, behind the file type.
    bool _hasHeader = false;
};
