#include "app/cli/BRDefaultsCommand.h"

#include "app/cli/BRExitStatus.h"
#include "app/cli/BRTerminal.h"
#include "app/cli/BRUsageError.h"
#include "foundation/PXDefaults.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

QVariant valueFromJSON(const QJsonValue &json);

/// Data, which JSON lacks, stands as {"data": BASE64}, a date as {"date": ISO 8601}.
QJsonValue jsonFromValue(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::QByteArray:
        return QJsonObject{{u"data"_s, QString::fromLatin1(value.toByteArray().toBase64())}};
    case QMetaType::QDateTime:
        return QJsonObject{{u"date"_s, value.toDateTime().toString(Qt::ISODateWithMs)}};
    case QMetaType::QVariantList: {
        QJsonArray array;
        for (const QVariant &element : value.toList())
            array.append(jsonFromValue(element));
        return array;
    }
    case QMetaType::QVariantMap: {
        QJsonObject object;
        const QVariantMap map = value.toMap();
        for (auto it = map.begin(); it != map.end(); ++it)
            object.insert(it.key(), jsonFromValue(it.value()));
        return object;
    }
    default:
        return QJsonValue::fromVariant(value);
    }
}

/// A property list has no null, a date must be one, and data be written as data are.
bool isStorable(const QJsonValue &json)
{
    if (json.isArray()) {
        const QJsonArray array = json.toArray();
        return std::all_of(array.begin(), array.end(),
                           [](const auto element) { return isStorable(QJsonValue(element)); });
    }
    if (json.isObject()) {
        const QJsonObject object = json.toObject();
        if (object.size() == 1 && object.contains(u"date"_s))
            return valueFromJSON(json).toDateTime().isValid();
        if (object.size() == 1 && object.contains(u"data"_s)) {
            const QJsonValue data = object.value(u"data"_s);
            return data.isString()
                && QByteArray::fromBase64Encoding(data.toString().toLatin1(),
                                                  QByteArray::AbortOnBase64DecodingErrors);
        }
        return std::all_of(object.begin(), object.end(),
                           [](const auto element) { return isStorable(QJsonValue(element)); });
    }
    return !json.isNull() && !json.isUndefined();
}

QVariant valueFromJSON(const QJsonValue &json)
{
    if (json.isArray()) {
        QVariantList list;
        for (const auto element : json.toArray())
            list.append(valueFromJSON(QJsonValue(element)));
        return list;
    }
    if (json.isObject()) {
        const QJsonObject object = json.toObject();
        if (object.size() == 1 && object.contains(u"data"_s))
            return QByteArray::fromBase64(object.value(u"data"_s).toString().toLatin1());
        if (object.size() == 1 && object.contains(u"date"_s))
            return QDateTime::fromString(object.value(u"date"_s).toString(), Qt::ISODateWithMs);
        QVariantMap map;
        for (auto it = object.begin(); it != object.end(); ++it)
            map.insert(it.key(), valueFromJSON(it.value()));
        return map;
    }
    return json.toVariant();
}

QString textOfJSON(const QJsonValue &value)
{
    if (value.isObject())
        return QString::fromUtf8(QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact));
    // A document holds no lone value: write it into an array and take off the brackets.
    const QString text
        = QString::fromUtf8(QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact));
    return text.mid(1, text.size() - 2);
}

QString textOfValue(const QVariant &value)
{
    const QJsonValue json = jsonFromValue(value);
    return json.isString() ? json.toString() : textOfJSON(json);
}

/// `text` as a value of the type that the factory value has; for a key of our own making, the
/// type that the text looks like. Invalid when it does not read.
QVariant valueFromText(const QString &text, const QVariant &factoryValue)
{
    bool isNumber = false;
    const qlonglong wholeNumber = text.toLongLong(&isNumber);
    bool isReal = false;
    const double real = text.toDouble(&isReal);
    isReal = isReal && std::isfinite(real);
    const QString lower = text.toLower();
    const bool isTrue = lower == u"true" || lower == u"yes";
    const bool isFalse = lower == u"false" || lower == u"no";
    switch (factoryValue.typeId()) {
    case QMetaType::Bool:
        if (isTrue || isFalse)
            return isTrue;
        return isNumber ? QVariant(wholeNumber != 0) : QVariant();
    case QMetaType::LongLong:
        // A whole number by nature may be set to one with a fraction: 29.97 frames per second.
        if (isNumber)
            return wholeNumber;
        return isReal ? QVariant(real) : QVariant();
    case QMetaType::Double:
        return isReal ? QVariant(real) : QVariant();
    case QMetaType::QString:
        return text;
    case QMetaType::UnknownType:
        if (isTrue || isFalse)
            return isTrue;
        if (isNumber)
            return wholeNumber;
        return isReal ? QVariant(real) : QVariant(text);
    default:
        return {};
    }
}

int finish(const PXExpected<void> &done)
{
    if (done)
        return BRExitDone;
    BRTerminal::printError(done.error());
    return BRExitStatusOfError(done.error(), BRAccess::Writing);
}

} // namespace

int BRRunDefaultsRead(const std::optional<QString> &key, bool asJSON)
{
    const PXDefaults &defaults = PXDefaults::standardUserDefaults();
    if (key) {
        const QVariant value = defaults.value(*key);
        if (!value.isValid()) {
            BRTerminal::printError(u"There is no setting \"%1\""_s.arg(*key));
            return BRExitNotFound;
        }
        BRTerminal::print(asJSON ? textOfJSON(jsonFromValue(value)) : textOfValue(value));
        return BRExitDone;
    }
    const QVariantMap all = defaults.dictionaryRepresentation();
    if (asJSON) {
        BRTerminal::print(textOfJSON(jsonFromValue(all)));
        return BRExitDone;
    }
    for (auto it = all.begin(); it != all.end(); ++it)
        BRTerminal::print(u"%1 = %2"_s.arg(it.key(), textOfValue(it.value())));
    return BRExitDone;
}

int BRRunDefaultsWrite(const QString &key, const QString &text, bool asJSON)
{
    PXDefaults &defaults = PXDefaults::standardUserDefaults();
    QVariant value;
    if (asJSON) {
        const QJsonDocument document = QJsonDocument::fromJson(u"[%1]"_s.arg(text).toUtf8());
        if (document.array().size() == 1 && isStorable(document.array().first()))
            value = valueFromJSON(document.array().first());
    } else {
        value = valueFromText(text, defaults.registeredValue(key));
    }
    if (!value.isValid())
        return BRFailUsage({u"\"%1\" is no value for \"%2\""_s.arg(text, key), {}});
    return finish(defaults.setValue(key, value));
}

int BRRunDefaultsDelete(const QString &key)
{
    return finish(PXDefaults::standardUserDefaults().removeValue(key));
}
