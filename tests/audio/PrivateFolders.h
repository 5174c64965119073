#pragma once

#include <QString>
#include <QTemporaryDir>

#include <vector>

/// Folders of this machine as nobody else sees them, which this process and those that it starts
/// from now on have in place of the real ones until the object goes.
class PrivateFolders final {
public:
    /// Whether that can be had here: root may, save in some containers. Do nothing without it.
    static bool areAllowed();

    PrivateFolders(const std::vector<QString> &copied, const std::vector<QString> &empty);
    ~PrivateFolders();
    PrivateFolders(const PrivateFolders &) = delete;
    PrivateFolders &operator=(const PrivateFolders &) = delete;

private:
    void _mount(const QString &path, const QString &inItsPlace);

    QTemporaryDir _folder;
    std::vector<QByteArray> _mounted;
};
