#include "bench/export/PeakMemory.h"

#include "bench/export/ExportContents.h"
#include "bench/export/OwnExport.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr std::array kLengths{1, 4, 16};
constexpr std::size_t kRuns = 3;

double peakOfExport(const QString &capture, const QString &output)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(QCoreApplication::applicationFilePath(), {u"--peak"_s, capture, output});
    if (!process.waitForFinished(-1) || process.exitCode() != 0)
        std::exit(1);
    return process.readAllStandardOutput().trimmed().toDouble() / 1024;
}

} // namespace

void comparePeakMemory(const QString &folder)
{
    const auto capture = [&](int length) { return folder + u"/capture%1"_s.arg(length); };
    for (const int length : kLengths)
        ExportContent::animation().record(length, capture(length));
    std::array<std::vector<double>, kLengths.size()> peaks;
    for (std::size_t run = 0; run < kRuns; ++run) {
        for (std::size_t i = 0; i < kLengths.size(); ++i)
            peaks[i].push_back(peakOfExport(capture(kLengths[i]), folder + u"/out.mov"_s));
    }
    std::printf("memory    ");
    for (std::size_t i = 0; i < kLengths.size(); ++i) {
        std::sort(peaks[i].begin(), peaks[i].end());
        std::printf(" %dx %.0f MiB (x %.2f)", kLengths[i], peaks[i][kRuns / 2],
                    peaks[i][kRuns / 2] / peaks[0][kRuns / 2]);
    }
    std::printf("\n");
}

void exportAndPrintPeak(const QString &capture, const QString &output)
{
    exportWithUs(capture, output, PXEncoderSpeed::Medium);
    // Not what getrusage tells: that counts the process from which this one was made as well.
    QFile status(u"/proc/self/status"_s);
    if (!status.open(QIODevice::ReadOnly))
        std::exit(1);
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            std::printf("%lld\n", line.mid(6).trimmed().split(' ').first().toLongLong());
    }
}
