#pragma once

#include "foundation/PXError.h"

#include <QByteArray>
#include <QString>
#include <QVariant>

/// Property lists, the format of settings and of each recording's "Info.plist".
///
/// A value is a bool, a whole number of 64 bits with sign (qlonglong once read), a number with
/// fraction (double), a QString, a QByteArray, a QDateTime (UTC, from 1933 to 2069, to the
/// microsecond that a double holds), a QVariantList or a QVariantMap of these. Strings have no
/// character 0. Reading is safe on any bytes: size, nesting and number of values are bounded
/// before anything is parsed. Errors are one line that names the file. Any thread.
namespace PXPropertyList {

enum class Format {
    Binary,
    XML, ///< Cannot hold control characters; what has any is refused.
};

/// The value as it would be after being written and read. Fails for text with a character 0 and
/// for dates out of range; a type that no list has is misuse and throws.
PXExpected<QVariant> normalized(const QVariant &value);

/// `name` stands for the bytes in errors. Binary or XML is told from the bytes.
PXExpected<QVariant> fromData(const QByteArray &bytes, const QString &name);
/// Fails also for a value that `fromData` would refuse: nested too deeply, or too big.
PXExpected<QByteArray> toData(const QVariant &value, Format format, const QString &name);

/// A list whose outermost value is a dictionary. `kPXPOSIXErrorDomain` when the file cannot be
/// read (ENOENT when there is none, EINVAL for a pipe or a device), `kPXCocoaErrorDomain` when it
/// is no such list.
PXExpected<QVariantMap> read(const QString &filePath);

/// Replaces the file in one step, synced to the disk: it is the old one or the new one, whatever
/// happens in between. Its folder must exist.
PXExpected<void> write(const QVariantMap &dictionary, const QString &filePath, Format format);

} // namespace PXPropertyList
