#include "app/PXTranslations.h"
#include "tests/support/Files.h"

#include <gtest/gtest.h>

#include <QDirIterator>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QXmlStreamReader>

#include <map>
#include <set>

using namespace Qt::StringLiterals;

namespace {

using Texts = std::map<std::string, QString>;

const QString kSources = QStringLiteral(TOLVANE_SOURCE_FOLDER);

/// The finished texts of a file.
Texts textsIn(const QString &path)
{
    Texts texts;
    QXmlStreamReader xml(contentsOf(path));
    std::string key;
    while (!xml.atEnd()) {
        xml.readNext();
        if (xml.isStartElement() && xml.name() == u"message"_s)
            key = xml.attributes().value(u"id"_s).toString().toStdString();
        if (!xml.isStartElement() || xml.name() != u"translation"_s)
            continue;
        const bool isFinished = !xml.attributes().hasAttribute(u"type"_s);
        const QString text = xml.readElementText();
        if (isFinished && !text.trimmed().isEmpty() && !texts.emplace(key, text).second)
            ADD_FAILURE() << key << " twice";
    }
    EXPECT_FALSE(xml.hasError()) << path.toStdString() << ": " << xml.errorString().toStdString();
    return texts;
}

/// All keys of texts in the program's sources: their literals are all that begins with BR, save
/// names of notifications.
std::set<std::string> keysInSources()
{
    static const QRegularExpression literal(u"\"(BR[A-Z]\\w+)\""_s);
    std::set<std::string> keys;
    for (const char *folder :
         {"app", "audio", "capture", "export", "input", "overlays", "rawmovie", "widgets"}) {
        QDirIterator files(kSources + u'/' + QLatin1StringView(folder), {u"*.cpp"_s, u"*.h"_s},
                           QDir::Files, QDirIterator::Subdirectories);
        while (files.hasNext()) {
            auto matches = literal.globalMatch(QString::fromUtf8(contentsOf(files.next())));
            while (matches.hasNext())
                keys.insert(matches.next().captured(1).toStdString());
        }
    }
    std::erase_if(keys, [](const std::string &key) { return key.ends_with("Notification"); });
    return keys;
}

std::multiset<std::string> placesIn(const QString &text)
{
    static const QRegularExpression place(u"%L?\\d"_s);
    std::multiset<std::string> places;
    for (auto matches = place.globalMatch(text); matches.hasNext();)
        places.insert(matches.next().captured().toStdString());
    return places;
}

TEST(PXTranslations, EveryKeyHasATextInEveryCompleteLanguage)
{
    const QDir folder(kSources + u"/translations"_s);
    const Texts english = textsIn(folder.filePath(u"tolvane_en.ts"_s));
    const std::set<std::string> keys = keysInSources();
    ASSERT_FALSE(keys.empty());
    for (const std::string &key : keys)
        EXPECT_TRUE(english.contains(key)) << key;
    std::set<QString> complete = {u"tolvane_en.ts"_s, u"tolvane_de.ts"_s, u"tolvane_fr.ts"_s};
    for (const QString &file : folder.entryList({u"*.ts"_s})) {
        SCOPED_TRACE(file.toStdString());
        const Texts texts = textsIn(folder.filePath(file));
        const bool isComplete = complete.erase(file) == 1;
        EXPECT_TRUE(!isComplete || texts.size() == english.size());
        for (const auto &[key, text] : texts) {
            if (english.contains(key))
                EXPECT_EQ(placesIn(text), placesIn(english.at(key))) << key;
            else
                ADD_FAILURE() << key << " is unknown";
        }
    }
    EXPECT_TRUE(complete.empty());
}

TEST(PXTranslations, TheFirstLanguageThatIsThereCounts)
{
    const struct {
        const char *name;
        QStringList languages;
        QString language;
        QString cancel;
    } rows[] = {
        {"english", {u"en-GB"_s}, u"en"_s, u"Cancel"_s},
        {"german", {u"de-AT"_s, u"de"_s}, u"de"_s, u"Abbrechen"_s},
        {"french", {u"fr"_s}, u"fr"_s, u"Annuler"_s},
        {"withScript", {u"fr-Latn-CA"_s}, u"fr"_s, u"Annuler"_s},
        {"theSecond", {u"ja-JP"_s, u"ja"_s, u"de-DE"_s, u"en"_s}, u"de"_s, u"Abbrechen"_s},
        {"englishBefore", {u"en-US"_s, u"de"_s}, u"en"_s, u"Cancel"_s},
        {"unknown", {u"ja"_s}, u"en"_s, u"Cancel"_s},
        {"noLanguage", {u"C"_s}, u"en"_s, u"Cancel"_s},
        {"none", {}, u"en"_s, u"Cancel"_s},
    };
    for (const auto &row : rows) {
        const PXTranslations translations(row.languages);
        EXPECT_EQ(translations.language(), row.language) << row.name;
        EXPECT_EQ(qtTrId("BRCancelButtonCaption"), row.cancel) << row.name;
    }
    EXPECT_EQ(qtTrId("BRCancelButtonCaption"), u"BRCancelButtonCaption"_s) << "after the last";
}

TEST(PXTranslations, WhatATranslationLacksIsEnglish)
{
    const QTemporaryDir folder;
    ASSERT_TRUE(
        QFile::copy(u":/translations/tolvane_en.qm"_s, folder.filePath(u"tolvane_en.qm"_s)));
    const QString source = folder.filePath(u"tolvane_it.ts"_s);
    writeFile(source,
              "<?xml version=\"1.0\"?><!DOCTYPE TS><TS version=\"2.1\" language=\"it\"><context>"
              "<name></name>"
              "<message id=\"BRCancelButtonCaption\"><source></source>"
              "<translation>Annulla</translation></message>"
              "<message id=\"BRRecordButtonCaption\"><source></source>"
              "<translation type=\"unfinished\"></translation></message>"
              "</context></TS>");
    ASSERT_EQ(
        QProcess::execute(QStringLiteral(TOLVANE_LRELEASE), {u"-idbased"_s, u"-silent"_s, source}),
        0);
    const PXTranslations translations({u"it"_s}, folder.path());
    EXPECT_EQ(qtTrId("BRCancelButtonCaption"), u"Annulla"_s);
    EXPECT_EQ(qtTrId("BRRecordButtonCaption"), u"Record"_s) << "unfinished";
    EXPECT_EQ(qtTrId("BRSelectButtonCaption"), u"Select"_s) << "not there";
}

} // namespace
