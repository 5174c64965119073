#include "platform/ffmpeg/MovieReader.h"

#include <QFile>
#include <QtEndian>

#include <algorithm>
#include <climits>

using namespace Qt::StringLiterals;

namespace {

constexpr int kAACFrames = 1024;
constexpr int kIMAFrames = 64;
// Of the description that a lossless track carries: where its frames a packet stand.
constexpr int kLosslessFramesOffset = 12;

} // namespace

MovieReader::MovieReader(QString path, MovieAtoms atoms) : _path(std::move(path)), _atoms(atoms) { }

PXExpected<std::unique_ptr<MovieReader>> MovieReader::open(const QString &path)
{
    const auto atoms = MovieAtoms::of(path);
    if (!atoms)
        return PXFail(atoms.error());
    std::unique_ptr<MovieReader> reader(new MovieReader(path, *atoms));
    int status = reader->openContext();
    if (status >= 0)
        status = reader->setMissingSizes();
    if (status < 0)
        return PXFail(reader->failure(status));
    reader->_firstTimes.resize(reader->tracks().size(), AV_NOPTS_VALUE);
    return reader;
}

int MovieReader::openContext()
{
    AVFormatContext *made = avformat_alloc_context();
    if (!made)
        return AVERROR(ENOMEM);
    // What the file says, without guesses about what it leaves out: nothing is to be written back
    // that was not there. Nor are the codecs looked into for more, which would decode pictures.
    made->flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;
    const int status
        = avformat_open_input(&made, url().constData(), av_find_input_format("mov"), nullptr);
    if (status >= 0)
        _context.reset(made);
    return status;
}

QByteArray MovieReader::url() const
{
    QByteArray file = "file:" + QFile::encodeName(_path);
    if (!_atoms.isInFragments)
        return file;
    // The library takes the index of all fragments when it opens the file, and would find nonsense
    // in one that is torn.
    return "subfile,,start,0,end," + QByteArray::number(_atoms.wholeBytes) + ",,:" + file;
}

// The size of MPEG-4 pictures the library wants from its decoder, though it is in the index.
int MovieReader::setMissingSizes()
{
    const auto lacksSize = [](const AVStream *track) {
        return track->codecpar->codec_type == AVMEDIA_TYPE_VIDEO && track->codecpar->width == 0;
    };
    const auto all = tracks();
    if (std::none_of(all.begin(), all.end(), lacksSize))
        return 0;
    AVFormatContext *made = nullptr;
    int status
        = avformat_open_input(&made, url().constData(), av_find_input_format("mov"), nullptr);
    const ffmpeg::Input decoded(made);
    if (status >= 0)
        status = avformat_find_stream_info(decoded.get(), nullptr);
    if (status < 0)
        return status;
    for (std::size_t i = 0; i < all.size() && i < decoded->nb_streams; ++i) {
        if (lacksSize(all[i])) {
            all[i]->codecpar->width = decoded->streams[i]->codecpar->width;
            all[i]->codecpar->height = decoded->streams[i]->codecpar->height;
        }
    }
    return 0;
}

std::span<AVStream *const> MovieReader::tracks() const
{
    return {_context->streams, _context->nb_streams};
}

AVStream *MovieReader::firstTrack(AVMediaType type) const
{
    const auto all = tracks();
    const auto found = std::find_if(all.begin(), all.end(), [type](const AVStream *track) {
        return track->codecpar->codec_type == type;
    });
    return found == all.end() ? nullptr : *found;
}

std::int64_t MovieReader::endOf(const AVStream &track) const
{
    const std::int64_t start = track.start_time != AV_NOPTS_VALUE ? track.start_time : 0;
    return track.duration != AV_NOPTS_VALUE ? start + track.duration : 0;
}

std::uint64_t MovieReader::numberOfPackets() const
{
    std::uint64_t packets = 0;
    for (AVStream *track : tracks())
        packets += static_cast<std::uint64_t>(avformat_index_get_entries_count(track));
    return packets;
}

void MovieReader::readOnly(const AVStream &track)
{
    for (AVStream *other : tracks())
        other->discard = other->index == track.index ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
}

PXExpected<bool> MovieReader::next(AVPacket &packet)
{
    const int status = av_read_frame(_context.get(), &packet);
    if (status == AVERROR_EOF)
        return false;
    if (status < 0)
        return PXFail(failure(status));
    AVStream &track = *tracks()[static_cast<std::size_t>(packet.stream_index)];
    if (_atoms.isInFragments)
        setDurationInFragments(track, packet);
    else if (track.start_time > 0)
        setDurationOfLast(track, packet);
    return true;
}

// Of a track that begins later than its movie the library takes the wait off the last packet.
void MovieReader::setDurationOfLast(AVStream &track, AVPacket &packet) const
{
    const AVIndexEntry *last
        = avformat_index_get_entry(&track, avformat_index_get_entries_count(&track) - 1);
    if (last && packet.dts >= last->timestamp)
        packet.duration = std::max<std::int64_t>(0, endOf(track) - packet.dts);
}

// In fragments the library does not tell how long a packet is. All are as long as their codec's
// packets are, save the last, which the track's length cuts.
void MovieReader::setDurationInFragments(const AVStream &track, AVPacket &packet)
{
    std::int64_t &firstTime = _firstTimes.at(static_cast<std::size_t>(track.index));
    if (firstTime == AV_NOPTS_VALUE)
        firstTime = packet.dts;
    const int frames = framesIn(*track.codecpar, packet.size);
    if (frames == 0)
        return;
    const std::int64_t left = firstTime + track.duration - packet.dts;
    const std::int64_t whole
        = av_rescale_q(frames, {1, track.codecpar->sample_rate}, track.time_base);
    packet.duration = std::clamp<std::int64_t>(left, 0, whole);
}

PXError MovieReader::failure(int status) const
{
    return ffmpeg::error(status, u"Could not read the movie %1"_s.arg(_path));
}

bool MovieReader::isPCM(AVCodecID codec)
{
    return codec >= AV_CODEC_ID_FIRST_AUDIO && codec < AV_CODEC_ID_ADPCM_IMA_QT;
}

int MovieReader::framesIn(const AVCodecParameters &sound, int packetSize)
{
    if (isPCM(sound.codec_id)) {
        const int bits = av_get_bits_per_sample(sound.codec_id) * sound.ch_layout.nb_channels;
        return bits >= CHAR_BIT ? packetSize / (bits / CHAR_BIT) : 0;
    }
    if (sound.codec_id == AV_CODEC_ID_AAC)
        return kAACFrames;
    if (sound.codec_id == AV_CODEC_ID_ADPCM_IMA_QT)
        return kIMAFrames;
    constexpr int kEnd = kLosslessFramesOffset + 4;
    if (sound.codec_id == AV_CODEC_ID_ALAC && sound.extradata_size >= kEnd)
        return qFromBigEndian<qint32>(sound.extradata + kLosslessFramesOffset);
    return 0;
}
