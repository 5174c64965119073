#pragma once

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QString>
#include <QTemporaryDir>

#include <map>
#include <string>

/// The folders of a machine that root works in, under a temporary one. Needs root: the tests are
/// about whose a file is.
class ScratchMachine : public testing::Test {
protected:
    static constexpr uid_t kUser = 1000;
    static constexpr uid_t kVictim = 1001;

    void SetUp() override;

    [[nodiscard]] QString root() const { return _folder.path(); }
    /// Where the path lies here.
    [[nodiscard]] QString at(const QString &path) const { return root() + path; }
    /// The driver's place.
    [[nodiscard]] QString driver() const;
    /// The driver in the source tree.
    static QString resource();

    /// Files and folders with their parents. A file holds `contents`.
    void makeFolder(const QString &path, uid_t owner = 0) const;
    void makeFile(const QString &path, uid_t owner = 0, const QByteArray &contents = "mine") const;
    void makeLink(const QString &target, const QString &path) const;
    /// A copy of the driver, for damage.
    void copyDriver(const QString &path) const;

    [[nodiscard]] bool exists(const QString &path) const;
    [[nodiscard]] QByteArray contentsOf(const QString &path) const;
    /// Everything there is: kind, owner, mode, and contents or target, by path.
    [[nodiscard]] std::map<std::string, std::string> snapshot() const;

private:
    QTemporaryDir _folder;
};
