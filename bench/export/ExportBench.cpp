// Exports one capture with us, and the same frames with ffmpeg: raw from memory, and from the
// lossless intermediate that a recording with ffmpeg would have left. Prints wall seconds and
// ratios; runs are interleaved, medians of three.
//
//   tolvane_export_bench [WORKFOLDER [animation|motion|still]]      (default /dev/shm; 600 MB)

#include "capture/framefile/BRFrameStreamer.h"
#include "export/BRFrameCompressor.h"
#include "platform/ffmpeg/FFmpegMediaPlatform.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QProcess>
#include <QTemporaryDir>

#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <random>

using namespace Qt::StringLiterals;

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr int kRuns = 3;

/// A frame: what was painted (y down) since the one before.
using Painter = PXPixelRect (*)(QImage &canvas, int frame);

struct Content {
    const char *name;
    int frames;
    double secondsPerFrame;
    Painter paint;
};

PXPixelRect paintDesktop(QImage &canvas)
{
    canvas.fill(qRgb(40, 60, 90));
    std::mt19937 random(5);
    for (int y = 100; y < 900; y += 14) {
        for (int x = 120; x < 1200; x += 9) {
            if (random() % 5 != 0) {
                const QRgb ink = qRgb(200, static_cast<int>(random() % 256), 200);
                for (int i = 0; i < 20; ++i)
                    canvas.setPixel(x + static_cast<int>(random() % 7),
                                    y + static_cast<int>(random() % 11), ink);
            }
        }
    }
    return {0, 0, kWidth, kHeight};
}

PXPixelRect paintAnimation(QImage &canvas, int frame)
{
    if (frame == 0)
        return paintDesktop(canvas);
    constexpr PXPixelRect rect{700, 400, 640, 360};
    for (int y = 0; y < rect.height; ++y) {
        for (int x = 0; x < rect.width; ++x) {
            canvas.setPixel(
                rect.x + x, rect.y + y,
                qRgb((x + 3 * frame) % 256, (y * 2 + frame) % 256, (x * y / 64 + 5 * frame) % 256));
        }
    }
    return rect;
}

PXPixelRect paintMotion(QImage &canvas, int frame)
{
    for (int y = 0; y < kHeight; ++y) {
        auto *row = reinterpret_cast<QRgb *>(canvas.scanLine(y));
        for (int x = 0; x < kWidth; ++x)
            row[x] = qRgb((x / 2 + 3 * frame) % 256, (y + frame * 2) % 256,
                          ((x ^ y) / 4 + 5 * frame) % 256);
    }
    return {0, 0, kWidth, kHeight};
}

const Content kContents[] = {
    {"animation", 60, 1.0 / 30, paintAnimation},
    {"motion", 60, 1.0 / 30, paintMotion},
    {"still", 2, 600,
     [](QImage &canvas, int frame) {
         return frame == 0 ? paintDesktop(canvas) : paintAnimation(canvas, frame);
     }},
};

/// Writes the content as a capture, and as raw pictures.
void record(const Content &content, const QString &capture, const QString &raw)
{
    auto streamer = BRFrameStreamer::withFilePathForWriting(capture, {kWidth, kHeight},
                                                            BRRawCompression::LZO, 0)
                        .value();
    QFile pictures(raw);
    pictures.open(QIODevice::WriteOnly);
    QImage canvas(kWidth, kHeight, QImage::Format_RGB32);
    for (int i = 0; i < content.frames; ++i) {
        const PXPixelRect changed = content.paint(canvas, i);
        const PXRect rect = PXRectFromPixels(changed, {0, 0, kWidth, kHeight});
        const PXPixelView view{reinterpret_cast<std::byte *>(canvas.scanLine(kHeight - 1)),
                               -canvas.bytesPerLine(), kWidth, kHeight};
        (void)streamer->writeFrameWithDirtyRects(std::array{rect}, i * content.secondsPerFrame);
        (void)streamer->writeDirtyRect(rect, rect, view);
        pictures.write(reinterpret_cast<const char *>(canvas.constBits()), canvas.sizeInBytes());
    }
    (void)streamer->setDuration(content.frames * content.secondsPerFrame);
    (void)streamer->setTotalNumberOfFrames(static_cast<std::uint32_t>(content.frames));
}

class Quitter final : public BRFrameCompressorDelegate {
public:
    void frameCompressorDidFinishCompression(BRFrameCompressor &, const QString &) override
    {
        QCoreApplication::exit(0);
    }
    void frameCompressorCompressionFailed(BRFrameCompressor &, const PXError &error) override
    {
        (void)std::fprintf(stderr, "%s\n", qUtf8Printable(PXErrorLine(error)));
        QCoreApplication::exit(1);
    }
};

double exportWithUs(const QString &capture, const QString &output, PXEncoderSpeed speed)
{
    FFmpegMediaPlatform platform;
    PXDefaults defaults(output + u".plist"_s);
    Quitter quitter;
    QElapsedTimer timer;
    timer.start();
    BRFrameCompressor compressor(capture, true, platform, defaults);
    compressor.compressionOptions().options->speed = speed;
    compressor.setMovieExportSize({kWidth, kHeight});
    compressor.setDelegate(&quitter);
    if (!compressor.startCompression(output) || QCoreApplication::exec() != 0)
        std::exit(1);
    return static_cast<double>(timer.nsecsElapsed()) / 1e9;
}

double runFFmpeg(const QStringList &arguments)
{
    QElapsedTimer timer;
    timer.start();
    if (QProcess::execute(u"ffmpeg"_s, QStringList{u"-loglevel"_s, u"error"_s, u"-y"_s} + arguments)
        != 0)
        std::exit(1);
    return static_cast<double>(timer.nsecsElapsed()) / 1e9;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void compare(const Content &content, const QString &folder)
{
    const QString capture = folder + u"/capture"_s;
    const QString raw = folder + u"/raw"_s;
    const QString intermediate = folder + u"/qtrle.mov"_s;
    const QString output = folder + u"/out.mov"_s;
    record(content, capture, raw);
    const QStringList fromRaw{u"-f"_s,        u"rawvideo"_s,   u"-pix_fmt"_s, u"bgr0"_s, u"-s"_s,
                              u"1920x1080"_s, u"-framerate"_s, u"30"_s,       u"-i"_s,   raw};
    runFFmpeg(fromRaw + QStringList{u"-c:v"_s, u"qtrle"_s, u"-g"_s, u"300"_s, intermediate});
    for (const PXEncoderSpeed speed : {PXEncoderSpeed::Medium, PXEncoderSpeed::Fast}) {
        const QString preset = speed == PXEncoderSpeed::Medium ? u"medium"_s : u"veryfast"_s;
        // What our session tells the encoder.
        const QStringList encoder{u"-c:v"_s,     u"libx264"_s, u"-preset"_s, preset,
                                  u"-crf"_s,     u"18"_s,      u"-bf"_s,     u"0"_s,
                                  u"-pix_fmt"_s, u"yuv420p"_s, output};
        std::vector<double> ours;
        std::vector<double> fromMemory;
        std::vector<double> fromIntermediate;
        for (int run = 0; run < kRuns; ++run) {
            ours.push_back(exportWithUs(capture, output, speed));
            fromMemory.push_back(runFFmpeg(fromRaw + encoder));
            fromIntermediate.push_back(runFFmpeg(QStringList{u"-i"_s, intermediate} + encoder));
        }
        std::printf(
            "%-10s %-9s ours %.2f s, of raw frames %.2f s (x %.2f), of qtrle %.2f s (x %.2f)\n",
            content.name, qUtf8Printable(preset), median(ours), median(fromMemory),
            median(ours) / median(fromMemory), median(fromIntermediate),
            median(ours) / median(fromIntermediate));
        (void)std::fflush(stdout);
    }
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QTemporaryDir folder((argc > 1 ? QString::fromLocal8Bit(argv[1]) : u"/dev/shm"_s)
                               + u"/tolvane-export-XXXXXX"_s);
    for (const Content &content : kContents) {
        if (argc < 3 || QLatin1String(argv[2]) == QLatin1String(content.name))
            compare(content, folder.path());
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("our peak memory: %ld MiB\n", usage.ru_maxrss / 1024);
}
