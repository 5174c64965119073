#include "foundation/PXDefaults.h"

#include "foundation/BRLog.h"
#include "foundation/PXFileLock.h"
#include "foundation/PXFileManager.h"
#include "foundation/PXGeometry.h"
#include "foundation/PXPropertyList.h"

#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QStandardPaths>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

/// Its file stays: it lies beside the settings and is taken again and again.
PXExpected<std::unique_ptr<PXFileLock>> lockFor(const QString &filePath)
{
    auto lock = PXFileLock::take(filePath + u".lock"_s, PXFileLock::Mode::Exclusive,
                                 PXFileLock::IfHeld::Wait);
    if (!lock)
        BRLog(BRLogError, lock.error().description);
    return lock;
}

/// Whether both make the same property list. To QVariant true is 1, and what is not a number is
/// not even itself.
bool isSame(const QVariant &a, const QVariant &b)
{
    if (a.typeId() != b.typeId())
        return false;
    switch (a.typeId()) {
    case QMetaType::Double:
        return a == b || (std::isnan(a.toDouble()) && std::isnan(b.toDouble()));
    case QMetaType::QVariantList: {
        const QVariantList listA = a.toList();
        const QVariantList listB = b.toList();
        return std::equal(listA.begin(), listA.end(), listB.begin(), listB.end(), isSame);
    }
    case QMetaType::QVariantMap: {
        const QVariantMap mapA = a.toMap();
        const QVariantMap mapB = b.toMap();
        return mapA.keys() == mapB.keys()
            && std::equal(mapA.begin(), mapA.end(), mapB.begin(), mapB.end(), isSame);
    }
    default:
        return a == b;
    }
}

/// As it would be after being stored; none, with a log line, where it cannot be.
std::optional<QVariant> normalOrLogged(const QString &key, const QVariant &value)
{
    const auto normal = PXPropertyList::normalized(value);
    if (normal)
        return *normal;
    BRLog(BRLogWarning, u"The value of \"%1\": %2"_s.arg(key, normal.error().description));
    return std::nullopt;
}

void apply(const QVariantMap &changes, QVariantMap &values)
{
    for (auto change = changes.begin(); change != changes.end(); ++change) {
        if (change.value().isValid())
            values.insert(change.key(), change.value());
        else
            values.remove(change.key());
    }
}

QStringList differingKeys(const QVariantMap &before, const QVariantMap &after)
{
    QStringList keys;
    for (auto item = before.begin(); item != before.end(); ++item) {
        if (!isSame(item.value(), after.value(item.key())))
            keys.append(item.key());
    }
    for (auto item = after.begin(); item != after.end(); ++item) {
        if (!before.contains(item.key()))
            keys.append(item.key());
    }
    return keys;
}

/// Nobody has set anything yet.
PXExpected<QVariantMap> emptyIfMissing(PXExpected<QVariantMap> values)
{
    if (!values && values.error().code == ENOENT)
        return QVariantMap();
    return values;
}

double numberOf(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
    case QMetaType::LongLong:
    case QMetaType::Double:
        return value.toDouble();
    case QMetaType::QString: {
        // Like the old number reader: as many characters as make a number. The C locale's point.
        const QByteArray text = value.toString().trimmed().toLatin1();
        const char *begin = text.constData();
        const char *end = begin + text.size();
        if (begin != end && *begin == '+' && !text.startsWith("+-"))
            ++begin;
        double number = 0;
        const auto [after, error] = std::from_chars(begin, end, number);
        // Infinite or 0, which from_chars() does not tell.
        if (error == std::errc::result_out_of_range)
            return QLocale::c().toDouble(QString::fromLatin1(begin, after - begin));
        // "inf" and "nan" are words here.
        return error == std::errc() && std::isfinite(number) ? number : 0;
    }
    default:
        return 0;
    }
}

} // namespace

PXDefaults &PXDefaults::standardUserDefaults()
{
    static PXDefaults defaults(
        QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
        + u"/Tolvane/com.pexarworks.tolvane.plist"_s);
    return defaults;
}

PXDefaults::PXDefaults(QString filePath) : _filePath(std::move(filePath))
{
    if (const auto read = synchronize(); !read)
        BRLog(BRLogWarning, u"The settings do not count. "_s + PXErrorLine(read.error()));
}

void PXDefaults::registerDefaults(const QVariantMap &values)
{
    QVariantMap normal;
    for (auto item = values.begin(); item != values.end(); ++item) {
        if (const auto value = normalOrLogged(item.key(), item.value()))
            normal.insert(item.key(), *value);
    }
    const PXLock lock(_lock);
    _registered.insert(normal);
}

QVariant PXDefaults::value(const QString &key) const
{
    const PXLock lock(_lock);
    for (const QVariantMap *layer : {&_arguments, &_persistent}) {
        if (const auto found = layer->constFind(key); found != layer->constEnd())
            return found.value();
    }
    return _registered.value(key);
}

QVariant PXDefaults::registeredValue(const QString &key) const
{
    const PXLock lock(_lock);
    return _registered.value(key);
}

void PXDefaults::setArgumentValue(const QString &key, const QVariant &value)
{
    const auto normal = normalOrLogged(key, value);
    const PXLock lock(_lock);
    if (normal)
        _arguments.insert(key, *normal);
}

QVariant PXDefaults::persistentValue(const QString &key) const
{
    const PXLock lock(_lock);
    return _persistent.value(key);
}

QVariantMap PXDefaults::dictionaryRepresentation() const
{
    const PXLock lock(_lock);
    QVariantMap all = _registered;
    all.insert(_persistent);
    all.insert(_arguments);
    return all;
}

int PXDefaults::intValue(const QString &key) const
{
    return PXClampToInt(numberOf(value(key)));
}

float PXDefaults::floatValue(const QString &key) const
{
    return static_cast<float>(numberOf(value(key)));
}

double PXDefaults::secondsValue(const QString &key) const
{
    constexpr float kLongest = 3600;
    const float seconds = floatValue(key);
    return seconds > 0 ? static_cast<double>(std::min(seconds, kLongest)) : 0; // NaN is not.
}

bool PXDefaults::boolValue(const QString &key) const
{
    const QVariant stored = value(key);
    if (stored.typeId() != QMetaType::QString)
        return numberOf(stored) != 0;
    const QString text = stored.toString().trimmed();
    return !text.isEmpty() && u"YyTt123456789"_s.contains(text.front());
}

QString PXDefaults::stringValue(const QString &key) const
{
    const QVariant stored = value(key);
    switch (stored.typeId()) {
    case QMetaType::Bool:
        return stored.toBool() ? u"1"_s : u"0"_s;
    case QMetaType::QString:
    case QMetaType::LongLong:
    case QMetaType::Double:
        return stored.toString();
    default:
        return {};
    }
}

QByteArray PXDefaults::dataValue(const QString &key) const
{
    const QVariant stored = value(key);
    return stored.typeId() == QMetaType::QByteArray ? stored.toByteArray() : QByteArray();
}

std::optional<PXColor> PXDefaults::colorValue(const QString &key) const
{
    if (const auto color = PXColor::fromArchivedData(dataValue(key)))
        return color;
    QVariant factory;
    bool isTold = false;
    {
        const PXLock lock(_lock);
        factory = _registered.value(key);
        if (!_persistent.contains(key))
            return PXColor::fromArchivedData(factory.toByteArray());
        const QVariant bad = _persistent.value(key);
        isTold = std::exchange(_toldColors[key], bad) == bad;
    }
    if (!isTold)
        BRLog(BRLogWarning, u"The colour \"%1\" in the settings does not read"_s.arg(key));
    return PXColor::fromArchivedData(factory.toByteArray());
}

PXExpected<void> PXDefaults::setValue(const QString &key, const QVariant &value, PXSaving saving)
{
    auto normal = PXPropertyList::normalized(QVariantMap{{key, value}});
    if (!normal) {
        normal.error().description += u" under \"%1\""_s.arg(key);
        return PXFail(std::move(normal).error());
    }
    const QVariant stored = normal->toMap().value(key);
    QVariantMap whole;
    {
        const PXLock lock(_lock);
        whole = _persistent;
    }
    whole.insert(key, stored);
    // Before it is remembered: what cannot be stored would block every later write.
    auto bytes = PXPropertyList::toData(whole, PXPropertyList::Format::Binary, _filePath);
    if (!bytes) {
        bytes.error().description += u" under \"%1\""_s.arg(key);
        return PXFail(std::move(bytes).error());
    }
    _change(key, stored);
    return saving == PXSaving::Now ? synchronize() : PXExpected<void>();
}

PXExpected<void> PXDefaults::removeValue(const QString &key)
{
    _change(key, {});
    return synchronize();
}

void PXDefaults::_change(const QString &key, const QVariant &value)
{
    const QVariant before = this->value(key);
    {
        const PXLock lock(_lock);
        _unsaved.insert(key, value);
        apply({{key, value}}, _persistent);
    }
    if (!isSame(before, this->value(key)))
        _observers.tell(key);
}

PXExpected<void> PXDefaults::synchronize()
{
    QVariantMap before;
    QVariantMap after;
    {
        const PXLock fileLock(_fileLock);
        QVariantMap changes;
        {
            const PXLock lock(_lock);
            changes = _unsaved;
        }
        auto fromFile = changes.isEmpty() ? _readFile() : _mergeIntoFile(changes);
        if (!fromFile)
            return PXFail(std::move(fromFile).error());
        const PXLock lock(_lock);
        for (auto change = changes.begin(); change != changes.end(); ++change) {
            // Set once more while the file was written: that value is still to be saved.
            if (isSame(_unsaved.value(change.key()), change.value()))
                _unsaved.remove(change.key());
        }
        before = std::exchange(_persistent, *std::move(fromFile));
        apply(_unsaved, _persistent);
        after = _persistent;
    }
    for (const QString &key : differingKeys(before, after))
        _observers.tell(key);
    return {};
}

PXExpected<QVariantMap> PXDefaults::_readFile()
{
    auto values = PXPropertyList::read(_filePath);
    if (values || values.error().domain == kPXPOSIXErrorDomain)
        return emptyIfMissing(std::move(values));
    const auto lock = lockFor(_filePath);
    return lock ? _readFileOrPutItAside() : PXFail(lock.error());
}

PXExpected<QVariantMap> PXDefaults::_readFileOrPutItAside()
{
    auto values = PXPropertyList::read(_filePath);
    if (values || values.error().domain == kPXPOSIXErrorDomain)
        return emptyIfMissing(std::move(values));
    const QFileInfo file(_filePath);
    const QString kept = PXFileManager::uniquePathForFileWithDesiredPath(
        u"%1/%2 damaged.%3"_s.arg(file.path(), file.completeBaseName(), file.suffix()));
    if (::rename(QFile::encodeName(_filePath).constData(), QFile::encodeName(kept).constData())
        != 0) {
        PXError error
            = PXPOSIXError(errno, values.error().description + u"; could not rename it"_s);
        BRLog(BRLogError, error.description);
        return PXFail(std::move(error));
    }
    BRLog(BRLogWarning, u"%1; it is kept as %2"_s.arg(values.error().description, kept));
    return QVariantMap();
}

PXExpected<QVariantMap> PXDefaults::_mergeIntoFile(const QVariantMap &changes)
{
    if (auto made = PXFileManager::createAllDirectoriesForPath(QFileInfo(_filePath).path()); !made)
        return PXFail(std::move(made).error());
    const auto lock = lockFor(_filePath);
    if (!lock)
        return PXFail(lock.error());
    auto values = _readFileOrPutItAside();
    if (!values)
        return values;
    const QVariantMap before = *values;
    apply(changes, *values);
    if (differingKeys(before, *values).isEmpty())
        return values;
    if (auto written = PXPropertyList::write(*values, _filePath, PXPropertyList::Format::Binary);
        !written)
        return PXFail(std::move(written).error());
    return values;
}

PXObservation PXDefaults::addObserver(Function function)
{
    return _observers.add(std::move(function));
}
