#include "bench/export/OwnExport.h"

#include "bench/export/ExportContents.h"
#include "export/BRFrameCompressor.h"
#include "platform/ffmpeg/FFmpegMediaPlatform.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <cstdio>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

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

} // namespace

double exportWithUs(const QString &capture, const QString &output, PXEncoderSpeed speed)
{
    FFmpegMediaPlatform platform;
    PXDefaults defaults(output + u".plist"_s);
    Quitter quitter;
    QElapsedTimer timer;
    timer.start();
    BRFrameCompressor compressor(capture, true, platform, defaults);
    compressor.compressionOptions().options->speed = speed;
    compressor.setMovieExportSize({kBenchWidth, kBenchHeight});
    compressor.setDelegate(&quitter);
    if (!compressor.startCompression(output) || QCoreApplication::exec() != 0)
        std::exit(1);
    return static_cast<double>(timer.nsecsElapsed()) / 1e9;
}
