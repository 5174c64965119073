#include "app/BRFactoryDefaults.h"
#include "app/BRApplicationSupport.h"
#include "foundation/PXColor.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXPropertyList.h"
#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QTemporaryDir>

using namespace Qt::StringLiterals;

namespace {

/// A home of its own for each test, so that none touches the user's.
class BRFactoryDefaultsTest : public testing::Test {
protected:
    const QTemporaryDir _home;
    const QString _path = _home.filePath(u"settings.plist"_s);

    void SetUp() override { qputenv("XDG_DATA_HOME", _home.path().toUtf8()); }
    void TearDown() override
    {
        qunsetenv("XDG_DATA_HOME");
        qunsetenv("TOLVANE_RESOURCES");
    }
};

TEST_F(BRFactoryDefaultsTest, TheTableKeepsItsTypes)
{
    const std::vector<BRFactoryDefaults::Entry> table = BRFactoryDefaults::table();
    QVariantMap values;
    for (const auto &entry : table) {
        EXPECT_FALSE(values.contains(entry.key)) << entry.key.toStdString();
        values.insert(entry.key, entry.value);
        if (entry.key.endsWith(u"Color"_s)) {
            const auto color = PXColor::fromArchivedData(entry.value.toByteArray());
            EXPECT_TRUE(color && color->space == PXColorSpace::CalibratedWhite);
        }
        // "hideDesktopWith" is a number that is only ever asked for true or false.
        if (entry.key.startsWith(u"show"_s) || entry.key == u"hideDesktop"_s) {
            EXPECT_EQ(entry.value.typeId(), QMetaType::Bool) << entry.key.toStdString();
        }
    }
    EXPECT_EQ(values.value(u"captureScale"_s).typeId(), QMetaType::Double);
    EXPECT_EQ(values.value(u"moviesFolderPath"_s), _home.filePath(u"Tolvane/Movies"_s));
    EXPECT_EQ(values.value(u"toggleCameraModeShortcut"_s),
              (QVariantMap{{u"modifiers"_s, u"Command-Option-Shift"_s},
                           {u"keyCode"_s, 19U},
                           {u"name"_s, u"Toggle Camera Mode"_s},
                           {u"characters"_s, u"2"_s}}));
    const QVariantList exceptions = values.value(u"keyboardEventExceptions"_s).toList();
    ASSERT_EQ(exceptions.size(), 12);
    EXPECT_EQ(exceptions.at(9),
              (QVariantMap{{u"modifiers"_s, u"Option-Shift"_s},
                           {u"keyCode"_s, 126U},
                           {u"characters"_s, u"\x1e"_s}}));
}

TEST_F(BRFactoryDefaultsTest, TheUsersValueWinsOverTheResourceWhichWinsOverTheTable)
{
    ASSERT_TRUE(PXPropertyList::write({{u"captureRate"_s, 15}, {u"lossyLevel"_s, 2}},
                                      _home.filePath(u"Defaults.plist"_s),
                                      PXPropertyList::Format::XML));
    qputenv("TOLVANE_RESOURCES", _home.path().toUtf8());
    PXDefaults defaults(_path);
    ASSERT_TRUE(defaults.setValue(u"lossyLevel"_s, 4));
    BRFactoryDefaults::registerFactoryDefaults(defaults);
    EXPECT_EQ(defaults.intValue(u"captureRate"_s), 15);
    EXPECT_EQ(defaults.intValue(u"lossyLevel"_s), 4);
    EXPECT_EQ(defaults.intValue(u"captureScale"_s), 100);
    EXPECT_EQ(PXPropertyList::read(_path).value().size(), 1); // Factory values stay in memory.

    ASSERT_TRUE(
        QFile::resize(_home.filePath(u"Defaults.plist"_s), 40)); // Damaged, it leaves the table.
    PXDefaults without(_home.filePath(u"none.plist"_s));
    BRFactoryDefaults::registerFactoryDefaults(without);
    EXPECT_EQ(without.intValue(u"captureRate"_s), 30);
}

TEST_F(BRFactoryDefaultsTest, OldKeysBecomeNewOnes)
{
    const QByteArray color = PXColor::calibratedRGB(1, 0, 0, 1).archivedData();
    const struct {
        const char *name;
        QVariantMap before;
        QVariantMap after;
    } cases[] = {
        {"hiddenShortcuts",
         {{u"showKeyboardShortcuts"_s, false}, {u"keyboardShortcutSize"_s, 48}},
         {{u"showKeyboardCommands"_s, false},
          {u"showKeyboardCharacters"_s, false},
          {u"showKeyboardOtherKeys"_s, false},
          {u"keyboardEventTextSize"_s, 48}}},
        {"shownShortcutsWinOverNewerKeys",
         {{u"showKeyboardShortcuts"_s, true}, {u"showKeyboardCharacters"_s, true}},
         {{u"showKeyboardCommands"_s, true},
          {u"showKeyboardCharacters"_s, false},
          {u"showKeyboardOtherKeys"_s, true}}},
        {"theRestIsRenamed",
         {{u"keyboardShortcutExceptions"_s, QVariantList()},
          {u"keyboardShortcutFillColor"_s, color},
          {u"keyboardShortcutDuration"_s, 2.5},
          {u"keyboardShortcutPosition"_s, 3},
          {u"captureRate"_s, 24}},
         {{u"keyboardEventExceptions"_s, QVariantList()},
          {u"keyboardEventBackgroundColor"_s, color},
          {u"keyboardEventDuration"_s, 2.5},
          {u"keyboardEventPosition"_s, 3},
          {u"captureRate"_s, 24}}},
    };
    for (const auto &c : cases) {
        ASSERT_TRUE(PXPropertyList::write(c.before, _path, PXPropertyList::Format::Binary));
        PXDefaults defaults(_path);
        ASSERT_TRUE(BRFactoryDefaults::takeOverOldKeys(defaults));
        ASSERT_TRUE(BRFactoryDefaults::takeOverOldKeys(defaults)); // At every later launch.
        EXPECT_EQ(PXPropertyList::read(_path).value(), c.after) << c.name;
    }
}

TEST_F(BRFactoryDefaultsTest, SupportFoldersAreMadeAsFarAsTheyShouldBe)
{
    using namespace BRApplicationSupport;
    EXPECT_EQ(pathInApplicationSupportFolder(u"Movies"_s), _home.filePath(u"Tolvane/Movies"_s));
    EXPECT_TRUE(QDir(applicationSupportFolder()).isEmpty());
    EXPECT_EQ(folderInApplicationSupportFolder(u"a/b"_s), _home.filePath(u"Tolvane/a/b"_s));
    EXPECT_TRUE(QDir(_home.filePath(u"Tolvane/a/b"_s)).exists());

    qputenv("XDG_DATA_HOME", _home.filePath(u"missing/share"_s).toUtf8());
    // An account that nobody has used yet.
    EXPECT_EQ(pathInApplicationSupportFolder(u"Movies"_s),
              _home.filePath(u"missing/share/Tolvane/Movies"_s));
    EXPECT_TRUE(QDir(applicationSupportFolder()).isEmpty());

    writeFile(_home.filePath(u"Tolvane/file"_s));
    qputenv("XDG_DATA_HOME", _home.path().toUtf8());
    testing::internal::CaptureStderr();
    EXPECT_FALSE(folderInApplicationSupportFolder(u"file"_s));
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::HasSubstr("Could not create the file folder in the Tolvane application "
                                   "support folder.\n"));
}

} // namespace
