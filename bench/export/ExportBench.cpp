// Exports one capture with us, and the same frames with ffmpeg: raw from memory, and from the
// lossless intermediate that a recording with ffmpeg would have left. Prints wall seconds and
// ratios; runs are interleaved, medians of three. With "memory": the peak memory of our exports
// of captures that are ever longer.
//
//   tolvane_export_bench [WORKFOLDER [animation|motion|still|memory]]  (default /dev/shm; 600 MB)

#include "bench/export/ExportContents.h"
#include "bench/export/OwnExport.h"
#include "bench/export/PeakMemory.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr int kRuns = 3;

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

void compare(const ExportContent &content, const QString &folder)
{
    const QString capture = folder + u"/capture"_s;
    const QString raw = folder + u"/raw"_s;
    const QString intermediate = folder + u"/qtrle.mov"_s;
    const QString output = folder + u"/out.mov"_s;
    content.record(1, capture, raw);
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
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() == 4 && arguments[1] == u"--peak"_s) {
        exportAndPrintPeak(arguments[2], arguments[3]);
        return 0;
    }
    const QTemporaryDir folder(arguments.value(1, u"/dev/shm"_s) + u"/tolvane-export-XXXXXX"_s);
    const QString chosen = arguments.value(2);
    for (const ExportContent &content : ExportContent::all()) {
        if (chosen.isEmpty() || chosen == QLatin1String(content.name))
            compare(content, folder.path());
    }
    if (chosen.isEmpty() || chosen == u"memory"_s)
        comparePeakMemory(folder.path());
}
