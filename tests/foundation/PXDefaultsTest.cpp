#include "foundation/PXDefaults.h"
#include "foundation/PXPropertyList.h"
#include "tests/support/Files.h"

#include <gtest/gtest.h>

#include <QProcess>
#include <QTemporaryDir>

#include <cmath>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

class PXDefaultsTest : public testing::Test {
protected:
    const QTemporaryDir _folder;
    const QString _path = _folder.filePath(u"Tolvane/settings.plist"_s);

    QVariantMap onDisk() const { return PXPropertyList::read(_path).value(); }
};

TEST_F(PXDefaultsTest, NumbersReadAsWhateverIsAskedFor)
{
    const struct {
        QVariant stored;
        int asInt;
        float asFloat;
        bool asBool;
    } cases[] = {
        {100, 100, 100, true},
        {29.97, 29, 29.97F, true},
        {0.3, 0, 0.3F, true},
        {-1.5, -1, -1.5F, true},
        {true, 1, 1, true},
        {false, 0, 0, false},
        {u"15"_s, 15, 15, true},
        {u" 2.5 fps"_s, 2, 2.5F, true},
        {u"+7"_s, 7, 7, false},
        {u"+-7"_s, 0, 0, false},
        {u"1e2e3"_s, 100, 100, true},
        {u"1e999"_s, 2147483647, HUGE_VALF, true},
        {u"1e-999"_s, 0, 0, true},
        {u"infinite"_s, 0, 0, false},
        {QString(200'000, u'-'), 0, 0, false},
        {u"YES"_s, 0, 0, true},
        {u"NO"_s, 0, 0, false},
        {1e300, 2147483647, HUGE_VALF, true},
        {QVariantList{1}, 0, 0, false},
        {QByteArray("1"), 0, 0, false},
    };
    PXDefaults defaults(_path);
    for (const auto &c : cases) {
        ASSERT_TRUE(defaults.setValue(u"key"_s, c.stored));
        EXPECT_EQ(defaults.intValue(u"key"_s), c.asInt) << c.stored.toString().toStdString();
        EXPECT_EQ(defaults.floatValue(u"key"_s), c.asFloat) << c.stored.toString().toStdString();
        EXPECT_EQ(defaults.boolValue(u"key"_s), c.asBool) << c.stored.toString().toStdString();
    }
    for (const auto &[stored, seconds] : {std::pair{0.25, 0.25},
                                          {-1.0, 0.0},
                                          {1e9, 3600.0},
                                          {std::nan(""), 0.0},
                                          {HUGE_VAL, 3600.0}}) {
        ASSERT_TRUE(defaults.setValue(u"key"_s, stored));
        EXPECT_EQ(defaults.secondsValue(u"key"_s), seconds) << stored;
    }
    defaults.setArgumentValue(u"key"_s, 7); // In the type that a list reads it in.
    EXPECT_EQ(defaults.intValue(u"key"_s), 7);
    EXPECT_EQ(defaults.intValue(u"missing"_s), 0);
    EXPECT_THROW((void)defaults.setValue(u"key"_s, QVariant()), std::logic_error);
}

TEST_F(PXDefaultsTest, TheUsersValueLiesOverTheRegisteredOne)
{
    {
        PXDefaults defaults(_path);
        defaults.registerDefaults({{u"captureRate"_s, 30}, {u"hideDesktop"_s, false}});
        EXPECT_FALSE(QFile::exists(_path));
        ASSERT_TRUE(defaults.setValue(u"captureRate"_s, 15));
        EXPECT_EQ(onDisk(), (QVariantMap{{u"captureRate"_s, 15}}));
    }
    PXDefaults defaults(_path);
    defaults.registerDefaults({{u"captureRate"_s, 30}});
    EXPECT_EQ(defaults.intValue(u"captureRate"_s), 15);
    QFile::remove(_path); // Reading does not need the file any more.
    EXPECT_EQ(defaults.intValue(u"captureRate"_s), 15);
    ASSERT_TRUE(defaults.removeValue(u"captureRate"_s));
    EXPECT_EQ(defaults.intValue(u"captureRate"_s), 30);
}

TEST_F(PXDefaultsTest, TwoProgramsWritingAtOnceLoseNothing)
{
    constexpr int kKeys = 100;
    const QStringList prefixes = {u"a"_s, u"b"_s, u"c"_s};
    std::vector<std::unique_ptr<QProcess>> writers;
    for (const QString &prefix : prefixes) {
        writers.push_back(std::make_unique<QProcess>());
        writers.back()->start(QStringLiteral(DEFAULTS_WRITER),
                              {_path, prefix, QString::number(kKeys)});
        ASSERT_TRUE(writers.back()->waitForReadyRead());
    }
    for (const auto &writer : writers) {
        writer->write("go\n");
        ASSERT_TRUE(writer->waitForBytesWritten()); // Else each starts when its end is awaited.
    }
    for (const auto &writer : writers) {
        ASSERT_TRUE(writer->waitForFinished());
        EXPECT_EQ(writer->exitCode(), 0) << writer->readAllStandardError().toStdString();
    }
    const QVariantMap values = onDisk();
    EXPECT_EQ(values.size(), prefixes.size() * kKeys);
    for (const QString &prefix : prefixes) {
        for (int i = 0; i < kKeys; ++i)
            EXPECT_EQ(values.value(u"%1 %2"_s.arg(prefix).arg(i)), i);
    }
}

TEST_F(PXDefaultsTest, ThreadsMayReadWhileOthersWrite)
{
    PXDefaults defaults(_path);
    defaults.registerDefaults({{u"text"_s, u"factory"_s}});
    {
        std::vector<std::jthread> threads;
        threads.reserve(3);
        for (int writer = 0; writer < 2; ++writer) {
            threads.emplace_back([&defaults, writer] {
                for (int i = 0; i < 20; ++i)
                    EXPECT_TRUE(defaults.setValue(u"key %1"_s.arg(writer), i));
            });
        }
        threads.emplace_back([&defaults](const std::stop_token &stop) {
            while (!stop.stop_requested())
                EXPECT_EQ(defaults.stringValue(u"text"_s), u"factory"_s);
        });
    }
    EXPECT_EQ(onDisk(), (QVariantMap{{u"key 0"_s, 19}, {u"key 1"_s, 19}}));
}

TEST_F(PXDefaultsTest, ObserversHearOfOwnAndForeignChangesOnce)
{
    PXDefaults ours(_path);
    PXDefaults theirs(_path);
    QStringList heard;
    const auto observation = ours.addObserver([&](const QString &key) { heard << key; });
    ASSERT_TRUE(ours.setValue(u"mine"_s, 1));
    ASSERT_TRUE(ours.setValue(u"mine"_s, 1)); // No change.
    ASSERT_TRUE(ours.setValue(u"mine"_s, true)); // Equal, but something else in the file.
    EXPECT_EQ(heard, (QStringList{u"mine"_s, u"mine"_s}));
    ASSERT_TRUE(theirs.setValue(u"list"_s, QVariantList{1, std::nan("")}));
    ASSERT_TRUE(ours.synchronize());
    ASSERT_TRUE(ours.synchronize()); // Nothing is not a number, not even itself.
    ASSERT_TRUE(ours.setValue(u"list"_s, QVariantList{true, std::nan("")})); // Equal, again.
    EXPECT_EQ(heard.mid(2), (QStringList{u"list"_s, u"list"_s}));
    ASSERT_TRUE(ours.removeValue(u"list"_s));
    heard.resize(2);
    ASSERT_TRUE(theirs.setValue(u"their"_s, 2));
    ASSERT_TRUE(theirs.removeValue(u"mine"_s));
    EXPECT_EQ(heard.size(), 2);
    ASSERT_TRUE(ours.synchronize());
    EXPECT_EQ(heard, (QStringList{u"mine"_s, u"mine"_s, u"mine"_s, u"their"_s}));
    EXPECT_EQ(ours.intValue(u"their"_s), 2);
    EXPECT_FALSE(ours.value(u"mine"_s).isValid());
}

TEST_F(PXDefaultsTest, DamagedSettingsAreKeptAside)
{
    const QByteArray damaged = "<plist><dict><key>captureRate";
    writeFile(_path, damaged);
    testing::internal::CaptureStderr();
    PXDefaults defaults(_path);
    const QByteArray log = QByteArray::fromStdString(testing::internal::GetCapturedStderr());
    EXPECT_EQ(log.count('\n'), 1) << log.toStdString();
    EXPECT_TRUE(log.contains("settings damaged.plist"));
    writeFile(_path, "bplist00 once more"); // While the program runs, noticed by its next write.
    ASSERT_TRUE(defaults.setValue(u"captureRate"_s, 15));
    EXPECT_EQ(onDisk(), (QVariantMap{{u"captureRate"_s, 15}}));

    EXPECT_EQ(contentsOf(_folder.filePath(u"Tolvane/settings damaged.plist"_s)), damaged);
    EXPECT_TRUE(QFile::exists(_folder.filePath(u"Tolvane/settings damaged 2.plist"_s)));
}

TEST_F(PXDefaultsTest, AnXMLListIsTakenAndBecomesBinary)
{
    writeFile(_path, "<plist><dict><key>captureRate</key><integer>24</integer></dict></plist>");
    PXDefaults defaults(_path);
    EXPECT_EQ(defaults.intValue(u"captureRate"_s), 24);
    ASSERT_TRUE(defaults.setValue(u"arrow"_s, u"\x1c"_s));
    EXPECT_EQ(onDisk(), (QVariantMap{{u"captureRate"_s, 24}, {u"arrow"_s, u"\x1c"_s}}));
}

TEST_F(PXDefaultsTest, WhatCouldNotBeSavedIsSavedWithTheNextWrite)
{
    const QString inTheWay = QFileInfo(_path).path();
    writeFile(inTheWay, "not a folder");
    PXDefaults defaults(_path);
    const auto written = defaults.setValue(u"first"_s, 1);
    ASSERT_FALSE(written);
    EXPECT_EQ(written.error().domain, kPXPOSIXErrorDomain);
    EXPECT_TRUE(written.error().description.contains(inTheWay));
    EXPECT_EQ(defaults.intValue(u"first"_s), 1);
    // One value that cannot be stored at all must not block the others.
    EXPECT_FALSE(defaults.setValue(u"never"_s, u"a\0b"_s));
    QVariant deep = 1;
    for (int level = 0; level < 100; ++level)
        deep = QVariantList{deep};
    EXPECT_FALSE(defaults.setValue(u"never"_s, deep));
    EXPECT_FALSE(defaults.setValue(u"never"_s, QByteArray(17 << 20, 'x')));
    EXPECT_FALSE(defaults.value(u"never"_s).isValid());
    QFile::remove(inTheWay);
    ASSERT_TRUE(defaults.setValue(u"second"_s, 2));
    EXPECT_EQ(onDisk(), (QVariantMap{{u"first"_s, 1}, {u"second"_s, 2}}));
}

TEST_F(PXDefaultsTest, ColoursThatDoNotReadGiveTheFactoryColour)
{
    const PXColor factory = PXColor::calibratedWhite(0.9F, 1);
    const PXColor chosen = PXColor::calibratedRGB(1, 0, 0, 1);
    PXDefaults defaults(_path);
    defaults.registerDefaults({{u"fill"_s, factory.archivedData()}});
    EXPECT_EQ(defaults.colorValue(u"fill"_s), factory);
    ASSERT_TRUE(defaults.setValue(u"fill"_s, chosen.archivedData()));
    EXPECT_EQ(defaults.colorValue(u"fill"_s), chosen);
    ASSERT_TRUE(defaults.setValue(u"fill"_s, u"red"_s));
    EXPECT_EQ(defaults.colorValue(u"fill"_s), factory);
    EXPECT_EQ(onDisk().value(u"fill"_s), u"red"_s);
    EXPECT_FALSE(defaults.colorValue(u"none"_s));
}

} // namespace
