// What it costs to write and to stretch sound while it is recorded, in pieces of 20 ms as a sound
// server hands them over; beside a plain copy of the same samples. "core" is the share of one.
//
//   tolvane_sound_bench

#include "platform/ffmpeg/FFmpegMediaPlatform.h"

#include <benchmark/benchmark.h>

#include <QTemporaryDir>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <random>
#include <stdexcept>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr int kRate = 48000;
constexpr int kSeconds = 30;
constexpr std::size_t kSamplesAtATime = 2 * kRate / 50;

enum Content { Silence, Tone, Music };
const char *const kContentNames[] = {"silence", "tone", "music"};

/// Stereo. Silence and a tone are the ends of what an encoder meets; the third has plucked strings,
/// a warbling flute and drums of noise, different on both sides.
std::vector<float> samplesOf(Content content)
{
    std::mt19937 random(1);
    std::uniform_real_distribution<double> noise(-1, 1);
    std::vector<float> samples;
    const auto pluck = [](double frequency, double t, double period) {
        const double since = std::fmod(t, period);
        return std::sin(2 * std::numbers::pi * frequency * t) * std::exp(-3 * since / period);
    };
    for (int i = 0; i < kRate * kSeconds; ++i) {
        const double t = static_cast<double>(i) / kRate;
        double left = 0;
        double right = 0;
        if (content == Tone) {
            left = right = 0.5 * std::sin(2 * std::numbers::pi * 440 * t);
        } else if (content == Music) {
            const double drum = std::exp(-30 * std::fmod(t, 0.25));
            const double flute = std::sin(2 * std::numbers::pi * 3520 * t + 3 * std::sin(31.4 * t));
            left = 0.25 * pluck(220, t, 0.5) + 0.2 * pluck(1318, t + 0.1, 0.25) + 0.1 * flute
                + 0.1 * drum * noise(random);
            right = 0.25 * pluck(277, t, 0.5) + 0.2 * pluck(1760, t + 0.2, 0.25)
                + 0.1 * drum * noise(random);
        }
        samples.push_back(static_cast<float>(left));
        samples.push_back(static_cast<float>(right));
    }
    return samples;
}

template <typename Use> void inPieces(const std::vector<float> &samples, Use use)
{
    auto rest = std::span(samples);
    while (!rest.empty()) {
        const auto piece = rest.first(std::min(rest.size(), kSamplesAtATime));
        use(piece);
        rest = rest.subspan(piece.size());
    }
}

void mustDo(const PXExpected<void> &done)
{
    if (!done)
        throw std::runtime_error(done.error().description.toStdString());
}

void setCore(benchmark::State &state)
{
    state.counters["core"] = benchmark::Counter(
        kSeconds, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void writing(benchmark::State &state, std::uint32_t codec, Content content)
{
    const auto samples = samplesOf(content);
    const QTemporaryDir folder(u"/dev/shm/tolvane-XXXXXX"_s);
    FFmpegMediaPlatform platform;
    PXSoundEncoding encoding;
    encoding.codec = codec;
    while (state.KeepRunning()) {
        auto writer = platform
                          .makeSoundWriter(folder.filePath(u"sound.mov"_s),
                                           PXSoundFileKind::Fragmented, {kRate, 2, 3}, encoding)
                          .value();
        inPieces(samples, [&](auto piece) { mustDo(writer->write(std::as_bytes(piece))); });
        mustDo(writer->finish());
        state.counters["kbit/s"] = static_cast<double>(writer->recordedBytes()) / kSeconds / 125;
    }
    setCore(state);
}

void stretching(benchmark::State &state)
{
    const auto samples = samplesOf(Music);
    auto stretcher = FFmpegMediaPlatform().makeSoundStretcher({kRate, 2, 3}).value();
    while (state.KeepRunning()) {
        double ratio = 200e-6;
        inPieces(samples, [&](auto piece) {
            stretcher->setStretch(ratio = -ratio);
            benchmark::DoNotOptimize(stretcher->process(piece).value());
        });
    }
    setCore(state);
}

void copying(benchmark::State &state)
{
    const auto samples = samplesOf(Music);
    std::vector<float> copy(kSamplesAtATime);
    while (state.KeepRunning()) {
        inPieces(samples, [&](auto piece) {
            std::memcpy(copy.data(), piece.data(), piece.size_bytes());
            benchmark::DoNotOptimize(copy.data());
            benchmark::ClobberMemory();
        });
    }
    setCore(state);
}

} // namespace

int main(int argc, char **argv)
{
    for (const auto &codec : {"aac ", "sowt"}) {
        for (const Content content : {Silence, Tone, Music}) {
            const std::string name = std::string("write/") + codec + '/' + kContentNames[content];
            benchmark::RegisterBenchmark(name.c_str(), writing,
                                         PXFourCharCodeFromString(QString::fromLatin1(codec)),
                                         content)
                ->Unit(benchmark::kMillisecond);
        }
    }
    benchmark::RegisterBenchmark("stretch", stretching)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("copy", copying)->Unit(benchmark::kMillisecond);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
