#pragma once

#include "foundation/PXError.h"

#include <QString>
#include <QTemporaryFile>

#include <memory>

/// A file under a hidden name beside the one that it is to replace; removed again unless it does.
class ReplacementFile final {
public:
    /// Makes it, empty, for the file at `path`, which is there.
    [[nodiscard]] static PXExpected<std::unique_ptr<ReplacementFile>> of(const QString &path);

    [[nodiscard]] QString path() const { return _file.fileName(); }
    /// Has the disk store it and gives it the other's name and permissions in one step. On failure
    /// the other stays.
    [[nodiscard]] PXExpected<void> replace();

private:
    explicit ReplacementFile(QString replaced);

    QString _replaced; ///< Where links lead.
    QTemporaryFile _file;
};
