#include "tests/ffmpeg/MovieProbe.h"

#include "tests/ffmpeg/SoundProbe.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtEndian>

#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

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

} // namespace

MovieProbe MovieProbe::of(const QString &path)
{
    MovieProbe probe;
    readAtoms(path, probe);
    const QJsonObject all
        = QJsonDocument::fromJson(
              SoundProbe::run(u"ffprobe"_s,
                              {u"-v"_s, u"error"_s, u"-show_streams"_s, u"-show_packets"_s,
                               u"-of"_s, u"json"_s, u"file:"_s + path}))
              .object();
    const QJsonArray streams = all[u"streams"_s].toArray();
    probe.tracks = static_cast<int>(streams.size());
    const QJsonObject stream = streams.first().toObject();
    probe.codec = stream[u"codec_tag_string"_s].toString();
    probe.pixelFormat = stream[u"pix_fmt"_s].toString();
    probe.width = stream[u"width"_s].toInt();
    probe.height = stream[u"height"_s].toInt();
    probe.trackTimeScale = stream[u"time_base"_s].toString().section(u'/', 1).toInt();
    if (stream.contains(u"color_primaries"_s))
        probe.colours = QStringList{stream[u"color_primaries"_s].toString(),
                                    stream[u"color_transfer"_s].toString(),
                                    stream[u"color_space"_s].toString()}
                            .join(u'/');
    for (const auto &value : all[u"packets"_s].toArray()) {
        const QJsonObject packet = value.toObject();
        if (packet[u"stream_index"_s].toInt() != 0)
            continue;
        probe.times.push_back(packet[u"pts"_s].toInteger());
        probe.durations.push_back(packet[u"duration"_s].toInteger());
        probe.keyFrames.push_back(packet[u"flags"_s].toString().startsWith(u'K'));
    }
    return probe;
}

std::vector<QImage> MovieProbe::decode(const QString &path)
{
    const MovieProbe probe = of(path);
    const QByteArray bytes = SoundProbe::run(
        u"ffmpeg"_s,
        {u"-v"_s, u"error"_s, u"-i"_s, u"file:"_s + path, u"-map"_s, u"0:0"_s, u"-fps_mode"_s,
         u"passthrough"_s, u"-f"_s, u"rawvideo"_s, u"-pix_fmt"_s, u"bgr0"_s, u"-sws_flags"_s,
         u"neighbor+accurate_rnd+full_chroma_int"_s, u"-"_s});
    const auto size = qsizetype{4} * probe.width * probe.height;
    std::vector<QImage> images;
    for (qsizetype i = 0; i + size <= bytes.size(); i += size)
        images.push_back(QImage(reinterpret_cast<const uchar *>(bytes.constData()) + i, probe.width,
                                probe.height, QImage::Format_RGB32)
                             .copy());
    return images;
}
