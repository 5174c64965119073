#pragma once

#include <QLocale>
#include <QString>

/// Sizes of files as a user reads them: "1.5 MB", powers of 1000, in the words of a locale.
class FSByteFormatter final {
public:
    explicit FSByteFormatter(const QLocale &locale = QLocale()) : _locale(locale) { }

    /// Below 1000 the bytes themselves, else one digit after the point.
    [[nodiscard]] QString stringForObjectValue(quint64 bytes) const;

private:
    QLocale _locale;
};
