#include "app/PXTranslations.h"

#include <QCoreApplication>
#include <QFile>
#include <QLibraryInfo>
#include <QLocale>

#include <algorithm>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

/// "pt-BR" is served by "tolvane_pt_BR.qm", else by "tolvane_pt.qm".
QString fileLanguage(QString language, const QString &folder)
{
    language.replace(u'-', u'_');
    while (!language.isEmpty() && !QFile::exists(folder + u"/tolvane_"_s + language + u".qm"_s))
        language.truncate(std::max<qsizetype>(language.lastIndexOf(u'_'), 0));
    return language;
}

} // namespace

QStringList PXTranslations::languagesOfUser()
{
    return QLocale::system().uiLanguages();
}

PXTranslations::PXTranslations(const QStringList &languages, const QString &folder)
{
    if (!_install(u"tolvane_en"_s, folder))
        throw std::logic_error("there are no English texts");
    for (const QString &language : languages) {
        const QString found = fileLanguage(language, folder);
        if (found.isEmpty())
            continue;
        if (found != _language)
            _install(u"tolvane_"_s + found, folder);
        _language = found;
        break;
    }
    _install(u"qtbase_"_s + _language, QLibraryInfo::path(QLibraryInfo::TranslationsPath));
}

bool PXTranslations::_install(const QString &name, const QString &folder)
{
    auto translator = std::make_unique<QTranslator>();
    if (!translator->load(name, folder, u" "_s)
        || !QCoreApplication::installTranslator(translator.get()))
        return false;
    _translators.push_back(std::move(translator));
    return true;
}
