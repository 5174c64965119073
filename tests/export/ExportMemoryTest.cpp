#include "capture/framefile/BRFrameStreamer.h"
#include "tests/ffmpeg/MovieProbe.h"
#include "tests/support/Sanitizers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <sys/resource.h>

#include <random>
#include <vector>

using namespace Qt::StringLiterals;
using testing::ElementsAre;

namespace {

struct MemoryCase {
    const char *name;
    const char *codec;
    const char *size;
};

void PrintTo(const MemoryCase &c, std::ostream *out)
{
    *out << c.name;
}

/// The real program, exporting with less and less short memory.
class ExportWithLittleMemory : public testing::TestWithParam<MemoryCase> {
protected:
    struct Outcome {
        int status;
        QStringList messages; ///< Ours; the encoder's libraries have words of their own.
    };

    void SetUp() override
    {
        if (kIsSanitized)
            GTEST_SKIP() << "a sanitizer needs more addresses than any limit leaves";
        auto streamer = BRFrameStreamer::withFilePathForWriting(path(u"capture"_s), {320, 240},
                                                                BRRawCompression::LZO, 0)
                            .value();
        std::mt19937 random(3);
        std::vector<std::uint32_t> pixels(std::size_t{320} * 240);
        const PXRect rect{0, 0, 320, 240};
        for (std::uint32_t i = 0; i < kFrames; ++i) {
            for (std::uint32_t &pixel : pixels)
                pixel = random() & 0x3F3F3FU;
            ASSERT_TRUE(streamer->writeFrameWithDirtyRects({&rect, 1}, i / 10.0));
            ASSERT_TRUE(streamer->writeDirtyRect(
                rect, rect,
                {reinterpret_cast<std::byte *>(pixels.data()), kBytesPerRow, 320, 240}));
        }
        ASSERT_TRUE(streamer->setDuration(kFrames / 10.0));
        ASSERT_TRUE(streamer->setTotalNumberOfFrames(kFrames));
    }

    [[nodiscard]] QString path(const QString &name) const { return _home.filePath(name); }
    [[nodiscard]] QString output() const { return _folder.filePath(u"movie.mov"_s); }
    [[nodiscard]] QStringList files() const
    {
        return QDir(_folder.path())
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
    }

    [[nodiscard]] Outcome run(const QStringList &arguments, rlim_t memory) const
    {
        QProcess process;
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"XDG_CONFIG_HOME"_s, path(u"config"_s));
        process.setProcessEnvironment(environment);
        process.setChildProcessModifier([memory] {
            const rlimit limit{memory, memory};
            setrlimit(RLIMIT_AS, &limit);
        });
        process.start(QStringLiteral(TOLVANE_PROGRAM), arguments);
        EXPECT_TRUE(process.waitForFinished(kPatienceMs));
        EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
        const QStringList lines
            = QString::fromUtf8(process.readAllStandardError()).split(u'\n', Qt::SkipEmptyParts);
        return {process.exitCode(), lines.filter(u"tolvane: "_s)};
    }

    static constexpr std::ptrdiff_t kBytesPerRow = 1280;
    static constexpr int kPatienceMs = 60'000;
    static constexpr std::uint32_t kFrames = 12;
    static constexpr rlim_t kStep = rlim_t{16} << 20;
    QTemporaryDir _home;
    QTemporaryDir _folder;
};

INSTANTIATE_TEST_SUITE_P(Codecs, ExportWithLittleMemory,
                         testing::Values(MemoryCase{"H264", "avc1", "2000x1500"},
                                         MemoryCase{"MPEG4", "mp4v", "2000x1500"},
                                         MemoryCase{"JPEG", "jpeg", "2000x1500"},
                                         MemoryCase{"Raw", "raw ", "3000x2000"}),
                         [](const auto &row) { return std::string(row.param.name); });

// From where the program can just run to where the export succeeds.
TEST_P(ExportWithLittleMemory, SaysSoInALineAndTheOldFileComesBack)
{
    rlim_t memory = kStep;
    while (run({u"info"_s, path(u"capture"_s)}, memory).status != 0)
        memory += kStep;
    int failuresWhileEncoding = 0;
    for (;; memory += kStep) {
        QFile old(output());
        ASSERT_TRUE(old.open(QIODevice::WriteOnly));
        old.write("the movie of yesterday");
        old.close();
        const Outcome outcome
            = run({u"export"_s, path(u"capture"_s), u"-o"_s, output(), u"--no-audio"_s,
                   u"--video-codec"_s, QString::fromLatin1(GetParam().codec), u"--size"_s,
                   QString::fromLatin1(GetParam().size)},
                  memory);
        EXPECT_THAT(files(), ElementsAre(u"movie.mov"_s)) << memory;
        if (outcome.status == 0 || testing::Test::HasFailure())
            break;
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.messages.size(), 1) << outcome.messages.join(u'\n').toStdString();
        ASSERT_TRUE(old.open(QIODevice::ReadOnly));
        EXPECT_EQ(old.readAll(), "the movie of yesterday") << memory;
        failuresWhileEncoding
            += outcome.messages.join(u' ').contains(u"Could not make the movie"_s);
    }
    EXPECT_GT(failuresWhileEncoding, 0);
    EXPECT_EQ(MovieProbe::of(output()).times.size(), kFrames) << "none is lost on the way";
}

} // namespace
