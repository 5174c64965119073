#pragma once

#include <QStringList>
#include <QTranslator>

#include <memory>
#include <vector>

/// The texts of windows, which the code knows by key only: `qtTrId("BRCancelButtonCaption")`.
/// English, which is complete, and over it the user's language, so that what a translation lacks
/// is English; and Qt's own texts in that language, where they are installed. They hold until this
/// is destroyed. To be made after the application and before the first window.
class PXTranslations final {
public:
    /// Of `languages`, BCP 47 names, the first counts for which `folder` has a file like
    /// "tolvane_de.qm"; English if there is none.
    explicit PXTranslations(const QStringList &languages = languagesOfUser(),
                            const QString &folder = QStringLiteral(":/translations"));

    /// As LANGUAGE, LC_ALL, LC_MESSAGES and LANG say.
    static QStringList languagesOfUser();

    /// The one that counts, in the way of its file: "de", "pt_BR".
    [[nodiscard]] const QString &language() const { return _language; }

private:
    bool _install(const QString &name, const QString &folder);

    QString _language = QStringLiteral("en");
    std::vector<std::unique_ptr<QTranslator>> _translators;
};
