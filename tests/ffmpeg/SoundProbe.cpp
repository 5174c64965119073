#include "tests/ffmpeg/SoundProbe.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtEndian>

#include <cstring>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

/// The atoms of those names at any depth of the ways in between.
QByteArray collect(QByteArrayView bytes, const QList<QByteArray> &names)
{
    QByteArray found;
    while (bytes.size() >= 8) {
        const qsizetype size = qFromBigEndian<quint32>(bytes.data());
        if (size < 8 || size > bytes.size())
            return found;
        const QByteArray type = bytes.sliced(4, 4).toByteArray();
        if (names.contains(type))
            found += bytes.first(size).toByteArray();
        else if (QByteArrayList{"trak", "edts", "mdia", "minf", "stbl"}.contains(type))
            found += collect(bytes.sliced(8, size - 8), names);
        if (type == "trak")
            return found; // The first one.
        bytes = bytes.sliced(size);
    }
    return found;
}

} // namespace

namespace SoundProbe {

QByteArray run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(-1) || process.exitCode() != 0) {
        throw std::runtime_error((program + u": "_s).toStdString()
                                 + process.readAllStandardError().toStdString());
    }
    return process.readAllStandardOutput();
}

std::vector<Track> tracks(const QString &path)
{
    const QByteArray json
        = run(u"ffprobe"_s,
              {u"-v"_s, u"error"_s, u"-show_streams"_s, u"-of"_s, u"json"_s, u"file:"_s + path});
    std::vector<Track> found;
    for (const auto &value : QJsonDocument::fromJson(json)[u"streams"_s].toArray()) {
        const QJsonObject stream = value.toObject();
        found.push_back({stream[u"codec_type"_s].toString(),
                         stream[u"codec_tag_string"_s].toString(),
                         stream[u"sample_rate"_s].toString().toInt(), stream[u"channels"_s].toInt(),
                         static_cast<std::int64_t>(stream[u"duration_ts"_s].toDouble()),
                         stream[u"time_base"_s].toString().section(u'/', 1).toInt(),
                         stream[u"disposition"_s][u"default"_s].toInt() == 1,
                         stream[u"bit_rate"_s].toString().toLongLong()});
    }
    return found;
}

std::vector<float> decode(const QString &path, int track)
{
    const QByteArray bytes = run(u"ffmpeg"_s,
                                 {u"-v"_s, u"error"_s, u"-i"_s, u"file:"_s + path, u"-map"_s,
                                  u"0:a:%1"_s.arg(track), u"-f"_s, u"f32le"_s, u"-"_s});
    std::vector<float> samples(static_cast<std::size_t>(bytes.size()) / sizeof(float));
    std::memcpy(samples.data(), bytes.constData(), samples.size() * sizeof(float));
    return samples;
}

QByteArray videoPackets(const QString &path)
{
    return run(u"ffmpeg"_s,
               {u"-v"_s, u"error"_s, u"-i"_s, u"file:"_s + path, u"-map"_s, u"0:v"_s, u"-c"_s,
                u"copy"_s, u"-f"_s, u"framehash"_s, u"-"_s});
}

QByteArray atoms(const QString &path, const QList<QByteArray> &names)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw std::runtime_error("cannot open " + path.toStdString());
    const QByteArray bytes = file.readAll();
    const qsizetype moov = bytes.indexOf("moov") - 4;
    if (moov < 0)
        throw std::runtime_error("no index in " + path.toStdString());
    const qsizetype size = qFromBigEndian<quint32>(bytes.constData() + moov);
    return collect(QByteArrayView(bytes).sliced(moov + 8, size - 8), names);
}

} // namespace SoundProbe
