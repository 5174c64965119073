#include "tests/ffmpeg/MovieProbe.h"

#include "foundation/PXHandle.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <QFile>
#include <QtEndian>

#include <functional>
#include <memory>
#include <stdexcept>

namespace {

void closeInput(AVFormatContext *context)
{
    avformat_close_input(&context);
}
void freeDecoder(AVCodecContext *context)
{
    avcodec_free_context(&context);
}
void freeFrame(AVFrame *frame)
{
    av_frame_free(&frame);
}
void freePacket(AVPacket *packet)
{
    av_packet_free(&packet);
}
using Input = PXHandle<AVFormatContext, closeInput>;
using Decoder = PXHandle<AVCodecContext, freeDecoder>;
using Frame = PXHandle<AVFrame, freeFrame>;
using Packet = PXHandle<AVPacket, freePacket>;

Input openMovie(const QString &path)
{
    AVFormatContext *context = nullptr;
    if (avformat_open_input(&context, QFile::encodeName(path).constData(), nullptr, nullptr) < 0
        || avformat_find_stream_info(context, nullptr) < 0)
        throw std::runtime_error("no movie: " + path.toStdString());
    return Input(context);
}

void readAtoms(const QString &path, MovieProbe &probe)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw std::runtime_error("cannot open " + path.toStdString());
    const QByteArray bytes = file.readAll();
    for (qint64 position = 0; position + 8 <= bytes.size();) {
        qint64 size = qFromBigEndian<quint32>(bytes.constData() + position);
        if (size == 1 && position + 16 <= bytes.size())
            size = qFromBigEndian<qint64>(bytes.constData() + position + 8);
        probe.atoms << QString::fromLatin1(bytes.mid(position + 4, 4));
        if (size < 8)
            throw std::runtime_error("broken atom in " + path.toStdString());
        position += size;
    }
    // Behind the name: version and flags, two dates, the time scale.
    if (const qsizetype header = bytes.indexOf("mvhd"); header > 0)
        probe.movieTimeScale = qFromBigEndian<qint32>(bytes.constData() + header + 16);
}

QImage toImage(const AVFrame &frame)
{
    const auto format = static_cast<AVPixelFormat>(frame.format);
    QImage image(frame.width, frame.height, QImage::Format_RGB32);
    const PXHandle<SwsContext, sws_freeContext> scaler(sws_getContext(
        frame.width, frame.height, format, frame.width, frame.height, AV_PIX_FMT_BGR0,
        SWS_POINT | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT, nullptr, nullptr, nullptr));
    const int *matrix = sws_getCoefficients(frame.colorspace);
    sws_setColorspaceDetails(scaler.get(), matrix, frame.color_range == AVCOL_RANGE_JPEG, matrix, 1,
                             0, 1 << 16, 1 << 16);
    std::uint8_t *out = image.bits();
    const int bytesPerRow = static_cast<int>(image.bytesPerLine());
    sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, &out, &bytesPerRow);
    return image;
}

} // namespace

MovieProbe MovieProbe::of(const QString &path)
{
    MovieProbe probe;
    readAtoms(path, probe);
    const Input input = openMovie(path);
    probe.tracks = static_cast<int>(input->nb_streams);
    if (probe.tracks == 0)
        return probe;
    const AVStream &stream = *input->streams[0];
    const AVCodecParameters &parameters = *stream.codecpar;
    const auto tag = qToLittleEndian(parameters.codec_tag);
    probe.codec = QString::fromLatin1(reinterpret_cast<const char *>(&tag), 4);
    const char *format = av_get_pix_fmt_name(static_cast<AVPixelFormat>(parameters.format));
    probe.pixelFormat = QString::fromLatin1(format ? format : "");
    probe.width = parameters.width;
    probe.height = parameters.height;
    probe.trackTimeScale = stream.time_base.den / stream.time_base.num;
    if (parameters.color_primaries != AVCOL_PRI_UNSPECIFIED) {
        probe.colours
            = QString::asprintf("%s/%s/%s", av_color_primaries_name(parameters.color_primaries),
                                av_color_transfer_name(parameters.color_trc),
                                av_color_space_name(parameters.color_space));
    }
    const Packet packet(av_packet_alloc());
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        if (packet->stream_index == 0) {
            probe.times.push_back(packet->pts);
            probe.durations.push_back(packet->duration);
            probe.keyFrames.push_back((packet->flags & AV_PKT_FLAG_KEY) != 0);
        }
        av_packet_unref(packet.get());
    }
    return probe;
}

std::vector<QImage> MovieProbe::decode(const QString &path)
{
    const Input input = openMovie(path);
    const AVCodecParameters &parameters = *input->streams[0]->codecpar;
    const AVCodec *codec = avcodec_find_decoder(parameters.codec_id);
    const Decoder decoder(avcodec_alloc_context3(codec));
    avcodec_parameters_to_context(decoder.get(), &parameters);
    if (avcodec_open2(decoder.get(), codec, nullptr) < 0)
        throw std::runtime_error("no decoder for " + path.toStdString());
    std::vector<QImage> images;
    const Packet packet(av_packet_alloc());
    const Frame frame(av_frame_alloc());
    const auto take = [&] {
        while (avcodec_receive_frame(decoder.get(), frame.get()) >= 0)
            images.push_back(toImage(*frame));
    };
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        if (packet->stream_index == 0)
            avcodec_send_packet(decoder.get(), packet.get());
        av_packet_unref(packet.get());
        take();
    }
    avcodec_send_packet(decoder.get(), nullptr);
    take();
    return images;
}
