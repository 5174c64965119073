#include "foundation/PXFileManager.h"
#include "foundation/FSByteFormatter.h"
#include "tests/support/Files.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

using namespace Qt::StringLiterals;

namespace {

TEST(PXFileManager, UniquePathsKeepTheirExtension)
{
    const struct {
        QString desired;
        QStringList taken;
        QString unique;
    } cases[] = {
        {u"free.mov"_s, {}, u"free.mov"_s},
        {u"a.mov"_s, {u"a.mov"_s}, u"a 2.mov"_s},
        {u"b.mov"_s, {u"b.mov"_s, u"b 2.mov"_s, u"b 4.mov"_s}, u"b 3.mov"_s},
        {u"plain"_s, {u"plain"_s}, u"plain 2"_s},
        {u".hidden"_s, {u".hidden"_s}, u".hidden 2"_s},
        {u"v1.2/plain"_s, {u"v1.2/plain"_s}, u"v1.2/plain 2"_s},
        {u"a.tar.gz"_s, {u"a.tar.gz"_s}, u"a.tar 2.gz"_s},
    };
    const QTemporaryDir folder;
    QDir(folder.path()).mkdir(u"v1.2"_s);
    for (const auto &c : cases) {
        for (const QString &name : c.taken)
            writeFile(folder.filePath(name));
        EXPECT_EQ(PXFileManager::uniquePathForFileWithDesiredPath(folder.filePath(c.desired)),
                  folder.filePath(c.unique));
    }
    // A file written through a dangling link would appear somewhere else.
    QFile::link(u"nowhere"_s, folder.filePath(u"link"_s));
    EXPECT_EQ(PXFileManager::uniquePathForFileWithDesiredPath(folder.filePath(u"link"_s)),
              folder.filePath(u"link 2"_s));
}

TEST(PXFileManager, CreatesFoldersUpToTheFirstFailure)
{
    const QTemporaryDir folder;
    const QString deep = folder.filePath(u"a/b//c/"_s);
    EXPECT_TRUE(PXFileManager::createAllDirectoriesForPath(deep));
    EXPECT_TRUE(PXFileManager::createAllDirectoriesForPath(deep));
    EXPECT_TRUE(QDir(folder.filePath(u"a/b/c"_s)).exists());

    EXPECT_TRUE(PXFileManager::createAllDirectoriesForPath({})); // Nothing to make.

    writeFile(folder.filePath(u"a/file"_s));
    const QString blocked = folder.filePath(u"a/file/c"_s);
    const auto made = PXFileManager::createAllDirectoriesForPath(blocked);
    ASSERT_FALSE(made);
    EXPECT_EQ(made.error().code, EEXIST);
    EXPECT_TRUE(made.error().description.contains(folder.filePath(u"a/file"_s)));

    const QString tooLong = folder.filePath(u"d/"_s + QString(300, u'x') + u"/e"_s);
    EXPECT_EQ(PXFileManager::createAllDirectoriesForPath(tooLong).error().code, ENAMETOOLONG);
    EXPECT_TRUE(QDir(folder.filePath(u"d"_s)).exists());
}

TEST(PXFileManager, StepsBackAreTakenBehindLinks)
{
    const QTemporaryDir folder;
    QDir(folder.path()).mkpath(u"a/b"_s);
    QFile::link(u"a/b"_s, folder.filePath(u"link"_s));
    const QString here = QDir::currentPath();
    const struct {
        QString path;
        QString resolved;
    } cases[] = {
        {u"x/./y//"_s, here + u"/x/y"_s},
        {u"/../.."_s, u"/"_s},
        {folder.filePath(u"link/x"_s), folder.filePath(u"link/x"_s)},
        {folder.filePath(u"link/../x"_s), folder.filePath(u"a/x"_s)},
        {folder.filePath(u"link/../../x"_s), folder.filePath(u"x"_s)},
        {folder.filePath(u"missing/../link/../x"_s), folder.filePath(u"a/x"_s)},
    };
    for (const auto &c : cases)
        EXPECT_EQ(PXFileManager::resolvedPath(c.path), c.resolved);
    EXPECT_TRUE(PXFileManager::createAllDirectoriesForPath(folder.filePath(u"link/../x"_s)));
    EXPECT_EQ(QDir(folder.path()).entryList(QDir::Dirs | QDir::NoDotAndDotDot),
              (QStringList{u"a"_s, u"link"_s}));
}

TEST(FSByteFormatter, RoundsBeforeItChoosesTheUnit)
{
    const FSByteFormatter english(QLocale(QLocale::English, QLocale::UnitedStates));
    const struct {
        quint64 bytes;
        QString text;
    } cases[] = {
        {0, u"0 bytes"_s},
        {999, u"999 bytes"_s},
        {1'000, u"1.0 kB"_s},
        {999'949, u"999.9 kB"_s},
        {999'950, u"1.0 MB"_s},
        {1'550'000, u"1.6 MB"_s},
        {4'300'000'000, u"4.3 GB"_s},
        {18'446'744'073'709'551'615U, u"9.2 EB"_s},
    };
    for (const auto &c : cases)
        EXPECT_EQ(english.stringForObjectValue(c.bytes), c.text);
    const FSByteFormatter german(QLocale(QLocale::German, QLocale::Germany));
    EXPECT_EQ(german.stringForObjectValue(2'500'000), u"2,5 MB"_s);
}

} // namespace
