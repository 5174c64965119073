#include "audio/PXFileManagerAdditions.h"
#include "tests/support/Files.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

class FileManager : public testing::Test {
protected:
    [[nodiscard]] QString at(const QString &name) const { return _folder.filePath(name); }
    void write(const QString &name, const QByteArray &contents) const
    {
        writeFile(at(name), contents);
    }
    [[nodiscard]] QByteArray read(const QString &name) const { return contentsOf(at(name)); }
    [[nodiscard]] QStringList namesIn(const QString &name) const { return everythingIn(at(name)); }

private:
    QTemporaryDir _folder;
};

class Beeps final : public PXAlert {
public:
    void beep(const QString &message) override { messages << message; }
    QStringList messages;
};

TEST_F(FileManager, AsksAboutFiles)
{
    using namespace PXFileManager;
    qputenv("XDG_DATA_HOME", "/somewhere");
    EXPECT_EQ(findSystemFolderType(PXApplicationSupportFolder, PXFolderDomain::User),
              u"/somewhere"_s);
    EXPECT_EQ(findSystemFolderType(PXApplicationSupportFolder, PXFolderDomain::Local),
              u"/usr/local/share"_s);
    EXPECT_FALSE(findSystemFolderType(PXMoviesFolder, PXFolderDomain::Local));

    write(u"text"_s, "Hello.\n");
    write(u"-b"_s, "%PDF-1.4\n");
    EXPECT_EQ(fileTypeForFileAtPath(at(u"text"_s)), u"ASCII text"_s);
    QDir::setCurrent(at({}));
    EXPECT_TRUE(fileTypeForFileAtPath(u"-b"_s).value_or(QString()).startsWith(u"PDF document"));

    write(u"folder/a"_s, QByteArray(1000, 'x'));
    write(u"folder/deep/er/.b"_s, QByteArray(234, 'x'));
    QFile::link(at({}), at(u"folder/deep/loop"_s));
    ASSERT_EQ(::mkfifo(at(u"folder/pipe"_s).toUtf8().constData(), 0600), 0);
    EXPECT_EQ(sizeOfFolderAtPath(at(u"folder"_s)), 1234U);
    EXPECT_EQ(sizeOfFolderAtPath(at(u"text"_s)), 7U);
    EXPECT_FALSE(sizeOfFolderAtPath(at(u"missing"_s)));
}

TEST_F(FileManager, DuplicatesAreNamedInTheirOrder)
{
    write(u"a.mov"_s, "movie");
    for (const QString &name : {u"a copy.mov"_s, u"a copy 1.mov"_s, u"a copy 2.mov"_s}) {
        EXPECT_EQ(PXFileManager::duplicateFileAtPath(at(u"a.mov"_s)).value_or(QString()), at(name));
        EXPECT_EQ(read(name), "movie");
    }
    write(u"v1.2/plain"_s, "");
    EXPECT_EQ(PXFileManager::pathForDuplicateOfFileAtPath(at(u"v1.2/plain"_s)),
              at(u"v1.2/plain copy"_s));
    EXPECT_EQ(PXFileManager::duplicateFileAtPath(at(u"missing"_s)).error().code, ENOENT);
}

TEST_F(FileManager, FoldersAreDuplicatedWithWhatCanBeCopied)
{
    write(u"movie/data"_s, "data");
    write(u"movie/deep/.hidden"_s, "hidden");
    QFile::link(u".."_s, at(u"movie/deep/loop"_s));
    ASSERT_EQ(::chmod(at(u"movie/data"_s).toUtf8().constData(), 0750), 0);
    ASSERT_EQ(PXFileManager::duplicateFileAtPath(at(u"movie"_s)).value_or(QString()),
              at(u"movie copy"_s));
    EXPECT_EQ(namesIn(u"movie copy/deep"_s), (QStringList{u".hidden"_s, u"loop"_s}));
    EXPECT_TRUE(QFileInfo(at(u"movie copy/deep/loop"_s)).isSymLink());
    struct stat status = {};
    ::stat(at(u"movie copy/data"_s).toUtf8().constData(), &status);
    EXPECT_EQ(status.st_mode & 0777U, 0750U);

    ASSERT_EQ(::mkfifo(at(u"movie/pipe"_s).toUtf8().constData(), 0600), 0);
    EXPECT_EQ(PXFileManager::duplicateFileAtPath(at(u"movie"_s)).error().code, EINVAL);
    QStringList told;
    const auto goesOn = [&](const PXError &error) {
        told << error.description;
        return true;
    };
    ASSERT_TRUE(PXFileManager::duplicateFileAtPath(at(u"movie"_s), goesOn));
    EXPECT_EQ(namesIn(u"movie copy 2"_s), (QStringList{u"data"_s, u"deep"_s}));
    EXPECT_TRUE(told.size() == 1 && told.first().contains(at(u"movie/pipe"_s)));
}

TEST_F(FileManager, MovesContents)
{
    using PXFileManager::moveContentsOfDirectoryAtPath;
    using PXFileManager::PXReplace;
    write(u"from/list"_s, "new");
    write(u"from/.hidden"_s, "");
    write(u"from/sounds/new"_s, "");
    QFile::link(u"nowhere"_s, at(u"from/dangling"_s));
    write(u"to/list"_s, "old");
    write(u"to/sounds/old"_s, "");
    Beeps beeps;
    EXPECT_TRUE(moveContentsOfDirectoryAtPath(at(u"from"_s), at(u"to"_s), PXReplace::No, &beeps));
    EXPECT_EQ(read(u"to/list"_s), "old");
    EXPECT_EQ(namesIn(u"from"_s), (QStringList{u".hidden"_s, u"list"_s, u"sounds"_s}));
    EXPECT_TRUE(moveContentsOfDirectoryAtPath(at(u"from"_s), at(u"to"_s), PXReplace::Yes, &beeps));
    EXPECT_EQ(read(u"to/list"_s), "new");
    EXPECT_EQ(namesIn(u"to/sounds"_s), QStringList(u"new"_s));
    EXPECT_EQ(namesIn(u"from"_s), QStringList(u".hidden"_s));
    EXPECT_TRUE(beeps.messages.isEmpty());

    write(u"from/a"_s, "");
    EXPECT_EQ(moveContentsOfDirectoryAtPath(at(u"from"_s), at(u"missing"_s), PXReplace::Yes, &beeps)
                  .error()
                  .code,
              ENOENT);
    EXPECT_EQ(beeps.messages,
              QStringList(u"moveContentsOfDirectoryAtPath:intoDirectoryAtPath:replace: could not "
                          "move from source to destination path"_s));
}

TEST_F(FileManager, RemovesFoldersButNotBehindLinks)
{
    write(u"kept/file"_s, "kept");
    write(u"gone/deep/.er/file"_s, "");
    QFile::link(at(u"kept"_s), at(u"gone/deep/link"_s));
    EXPECT_TRUE(PXFileManager::removeDirectoryAtPath(at(u"gone"_s)));
    EXPECT_FALSE(QFileInfo::exists(at(u"gone"_s)));
    EXPECT_EQ(read(u"kept/file"_s), "kept");

    QFile::link(at(u"kept"_s), at(u"link"_s));
    const struct {
        QString name;
        int code;
    } cases[] = {{u"link"_s, ENOTDIR}, {u"kept/file"_s, ENOTDIR}, {u"missing"_s, ENOENT}};
    for (const auto &c : cases)
        EXPECT_EQ(PXFileManager::removeDirectoryAtPath(at(c.name)).error().code, c.code);
    // A link before the last step is an ordinary one.
    QDir(at(u"kept"_s)).mkdir(u"inner"_s);
    EXPECT_TRUE(PXFileManager::removeDirectoryAtPath(at(u"link/inner"_s)));
    EXPECT_EQ(read(u"kept/file"_s), "kept");
}

} // namespace
