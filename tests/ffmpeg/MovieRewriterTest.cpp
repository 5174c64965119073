#include "platform/ffmpeg/FFmpegMediaPlatform.h"

#include "tests/ffmpeg/MovieMaker.h"
#include "tests/ffmpeg/MovieProbe.h"
#include "tests/ffmpeg/SoundMaker.h"
#include "tests/ffmpeg/SoundProbe.h"
#include "tests/support/FileSizeLimit.h"
#include "tests/support/Files.h"
#include "tests/support/Sanitizers.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

#include <cerrno>
#include <stop_token>

using namespace Qt::StringLiterals;

namespace {

/// Pictures at uneven times that last 2 + 1/3 s, in that codec; the last for 3 ticks.
QString makeVideo(MovieMaker &maker)
{
    QImage image(64, 48, QImage::Format_RGB32);
    image.fill(qRgb(20, 90, 160));
    for (const std::int64_t time : {0, 50, 107, 3000, 6994, 6997}) {
        image.setPixel(static_cast<int>(time % 64), 3, qRgb(255, 255, 255));
        EXPECT_TRUE(maker.add(image, time));
    }
    return maker.finish();
}

QStringList everythingBeside(const QString &path)
{
    return everythingIn(QFileInfo(path).path());
}

/// How the first track is described, without the bit rates of MPEG-4, which the reader does not
/// tell and the muxer works out anew.
QByteArray description(const QString &path)
{
    QByteArray bytes
        = SoundProbe::atoms(path, {"stsd", "stts", "stss", "stsz", "ctts", "elst", "hdlr"});
    constexpr qsizetype kRates = 26;
    if (const qsizetype found = bytes.indexOf("esds"); found >= 0)
        bytes.replace(found + kRates, 8, QByteArray(8, '\0'));
    return bytes;
}

class EveryVideoCodec : public testing::TestWithParam<const char *> { };

} // namespace

TEST_P(EveryVideoCodec, SurvivesTheInsertedSoundAsItIs)
{
    if (kIsThreadSanitized && QByteArrayView(GetParam()) == "hvc1")
        GTEST_SKIP() << "libx265's own threads agree by atomics that are not seen";
    MovieMaker maker(optionsFor(GetParam(), 64, 48));
    const QString path = makeVideo(maker);
    const QByteArray described = description(path);
    const QByteArray packets = SoundProbe::videoPackets(path);
    const MovieProbe before = MovieProbe::of(path);

    const QTemporaryDir folder;
    FFmpegMediaPlatform platform;
    const auto played = chirp(48000, 2, 48000 * 4);
    for (const auto &codec : {"aac ", "sowt"}) {
        const QString sound = folder.filePath(u"sound.mov"_s);
        makeSoundFile(sound, {codec}, played);
        ASSERT_TRUE(platform.insertSoundTrack(sound, path));
        ASSERT_TRUE(platform.flattenMovie(path));
    }
    EXPECT_EQ(description(path), described);
    EXPECT_EQ(SoundProbe::videoPackets(path), packets);
    const MovieProbe after = MovieProbe::of(path);
    EXPECT_EQ(after.codec, before.codec);
    EXPECT_EQ(after.colours, before.colours);
    EXPECT_EQ(after.times, before.times);
    EXPECT_EQ(after.durations, before.durations);
    EXPECT_EQ(after.keyFrames, before.keyFrames);
    EXPECT_EQ(after.trackTimeScale, 3000);
    EXPECT_EQ(after.movieTimeScale, 3000);
    EXPECT_LT(after.atoms.indexOf(u"moov"_s), after.atoms.indexOf(u"mdat"_s));
    EXPECT_EQ(everythingBeside(path), QStringList(QFileInfo(path).fileName()));

    // 7000 / 3000 s at 48 kHz.
    const auto tracks = SoundProbe::tracks(path);
    ASSERT_EQ(tracks.size(), 3U);
    for (int i = 0; i < 2; ++i) {
        const auto &track = tracks[static_cast<std::size_t>(i) + 1];
        EXPECT_EQ(track.duration, 7000 * 16);
        EXPECT_TRUE(track.isEnabled);
        const auto heard = channelOf<float>(SoundProbe::decode(path, i), 2, 0);
        for (const int place : {0, 7000 * 16 - 5000}) {
            const Lag lag = lagOf(heard, chirp(48000, 1, 48000 * 4), place);
            EXPECT_LE(std::abs(lag.frames), i == 0 ? 1 : 0);
            EXPECT_GT(lag.likeness, 0.999);
        }
    }
    EXPECT_EQ(extract<float>(path).size(), 2U * 7000 * 16);
}

INSTANTIATE_TEST_SUITE_P(Table, EveryVideoCodec,
                         testing::Values("avc1", "hvc1", "apch", "ap4h", "mp4v", "jpeg", "png ",
                                         "rle ", "raw "),
                         [](const auto &row) {
                             return QByteArray(row.param).trimmed().toStdString();
                         });

TEST(MovieRewriter, ANewFileIsLikeTheOneThatItReplaces)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(u"sound.mov"_s);
    const QString link = folder.filePath(u"link.mov"_s);
    makeSoundFile(path, {"alac", 44100, 1, PXSoundFileKind::Fragmented}, chirp(44100, 1, 50000));
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadOther);
    QFile::link(path, link);
    FFmpegMediaPlatform platform;
    ASSERT_TRUE(platform.flattenMovie(link));
    EXPECT_TRUE(QFileInfo(link).isSymLink());
    EXPECT_EQ(QFileInfo(path).permissions() & (QFile::ReadOther | QFile::ReadGroup),
              QFile::ReadOther);
    // A second time there is nothing to do.
    const auto before = QFileInfo(path).fileTime(QFileDevice::FileMetadataChangeTime);
    ASSERT_TRUE(platform.flattenMovie(path));
    EXPECT_EQ(QFileInfo(path).fileTime(QFileDevice::FileMetadataChangeTime), before);
}

TEST(MovieRewriter, LeavesTheTargetWhereThereIsNothingToInsert)
{
    const QTemporaryDir folder;
    const QString sound = folder.filePath(u"sound.mov"_s);
    const QString silent = folder.filePath(u"silent.mov"_s);
    FFmpegMediaPlatform platform;
    makeSoundFile(sound, {"aac "}, chirp(48000, 2, 48000));
    makeSoundFile(silent, {"aac ", 48000, 2, PXSoundFileKind::Fragmented}, std::vector<float>());
    MovieMaker maker(optionsFor("avc1", 64, 48));
    const QString empty = maker.finish(); // A track without pictures: it lasts for nothing.
    const QByteArray before = contentsOf(empty);
    EXPECT_TRUE(platform.insertSoundTrack(sound, empty));
    EXPECT_TRUE(platform.flattenMovie(empty));
    EXPECT_EQ(contentsOf(empty), before);
    const QByteArray soundBefore = contentsOf(sound);
    EXPECT_TRUE(platform.insertSoundTrack(silent, sound));
    EXPECT_EQ(contentsOf(sound), soundBefore);
}

TEST(MovieRewriter, NamesTheFileThatItCannotUse)
{
    const QTemporaryDir folder;
    const QString good = folder.filePath(u"good.mov"_s);
    FFmpegMediaPlatform platform;
    makeSoundFile(good, {"aac "}, chirp(48000, 2, 48000));
    ASSERT_TRUE(platform.insertSoundTrack(good, good)); // Its index is in front now.
    MovieMaker maker(optionsFor("raw ", 64, 48));
    const QByteArray video = contentsOf(makeVideo(maker));
    const QByteArray whole = contentsOf(good);
    const struct {
        const char *name;
        std::optional<QByteArray> bytes; ///< None is a folder.
        bool canBeATarget;
    } cases[] = {
        {"nothing", QByteArray(), false},
        {"text", QByteArray("This is no movie, but long enough to look like an atom."), false},
        {"zeros", QByteArray(5000, '\0'), false},
        {"cut in the data", whole.first(whole.size() - 700), false},
        {"cut in the index", whole.first(500), false},
        {"picture without sound", video, true},
        {"folder", {}, false},
    };
    for (const auto &row : cases) {
        const QString bad = folder.filePath(u"bad: "_s + QLatin1String(row.name));
        if (row.bytes) {
            writeFile(bad, *row.bytes);
        } else {
            QDir().mkdir(bad);
        }
        const auto check = [&](const auto &outcome) {
            ASSERT_FALSE(outcome) << row.name;
            EXPECT_TRUE(outcome.error().description.contains(bad))
                << outcome.error().description.toStdString();
        };
        check(platform.makeSoundExtraction(bad));
        check(platform.insertSoundTrack(bad, good));
        if (!row.canBeATarget) {
            check(platform.insertSoundTrack(good, bad));
            check(platform.flattenMovie(bad));
        }
        EXPECT_EQ(contentsOf(good), whole) << row.name;
    }
    EXPECT_FALSE(platform.flattenMovie(folder.filePath(u"missing.mov"_s)));
}

TEST(MovieRewriter, AStopAndAFullDiskLeaveTheTargetAndNothingElse)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(u"movie.mov"_s);
    FFmpegMediaPlatform platform;
    makeSoundFile(path, {"sowt", 48000, 2, PXSoundFileKind::Fragmented}, chirp(48000, 2, 96000));
    const QByteArray before = contentsOf(path);
    std::stop_source stopped;
    stopped.request_stop();
    const struct {
        const char *name;
        rlim_t mostBytes;
        std::stop_token stop;
        int code;
    } cases[] = {{"stop", RLIM_INFINITY, stopped.get_token(), ECANCELED},
                 {"nothing", 0, {}, EFBIG},
                 {"header", 100, {}, EFBIG},
                 {"begin", 5000, {}, EFBIG},
                 {"middle", 200'000, {}, EFBIG},
                 {"end", 380'000, {}, EFBIG}};
    for (const auto &row : cases) {
        PXExpected<void> outcomes[2];
        {
            const FileSizeLimit disk(row.mostBytes);
            outcomes[0] = platform.flattenMovie(path, row.stop);
            outcomes[1] = platform.insertSoundTrack(path, path, row.stop);
        }
        for (const auto &outcome : outcomes) {
            ASSERT_FALSE(outcome) << row.name;
            EXPECT_EQ(outcome.error().code, row.code) << row.name;
        }
        EXPECT_EQ(contentsOf(path), before) << row.name;
        EXPECT_EQ(everythingBeside(path), QStringList(u"movie.mov"_s)) << row.name;
    }
    EXPECT_TRUE(platform.flattenMovie(path));
}
