#include "foundation/PXPropertyList.h"

#include "foundation/BRLog.h"
#include "foundation/PXClock.h"
#include "foundation/PXFileManager.h"
#include "foundation/PXHandle.h"
#include "foundation/PXPropertyListCheck.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QTimeZone>

#include <plist/plist.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

constexpr double kMillisecondsPerSecond = 1000;
constexpr double kMicrosecondsPerSecond = 1e6;

void freePlist(void *plist)
{
    plist_free(plist);
}
using PlistHandle = PXHandle<void, freePlist>;
using CText = PXHandle<char, std::free>;

/// libplist reads numbers with atof(), which takes "29.97" for 29 where the user's locale has a
/// decimal comma. Puts the calling thread, and no other, into the C locale for a scope.
class PlainNumbers final {
public:
    PlainNumbers()
        : _plain(newlocale(LC_NUMERIC_MASK, "C", nullptr)), _before(uselocale(_plain)) { }
    ~PlainNumbers()
    {
        uselocale(_before);
        if (_plain != nullptr)
            freelocale(_plain);
    }
    PlainNumbers(const PlainNumbers &) = delete;
    PlainNumbers &operator=(const PlainNumbers &) = delete;

private:
    locale_t _plain;
    locale_t _before;
};

PXError badList(const QString &name, const QString &reason)
{
    return {kPXCocoaErrorDomain,
            kPXFileReadCorruptFileError,
            u"Could not read the property list %1: %2"_s.arg(name, reason),
            {},
            {}};
}

PXError badValue(const QString &reason)
{
    return {kPXCocoaErrorDomain, kPXFileReadCorruptFileError, reason, {}, {}};
}

double secondsOf(const QDateTime &date)
{
    return static_cast<double>(date.toMSecsSinceEpoch()) / kMillisecondsPerSecond
        - kPXUnixTimeOfReferenceDate;
}

// from libplist's nodes to values

QVariant valueOf(plist_t node);

QVariant dateOf(plist_t node)
{
    std::int32_t seconds = 0;
    std::int32_t microseconds = 0;
    plist_get_date_val(node, &seconds, &microseconds);
    // Both parts are cut toward zero, the second one without its sign.
    const double fraction = microseconds / kMicrosecondsPerSecond;
    const double time = seconds < 0 ? seconds - fraction : seconds + fraction;
    const auto milliseconds = static_cast<qint64>(
        std::llround((time + kPXUnixTimeOfReferenceDate) * kMillisecondsPerSecond));
    return QDateTime::fromMSecsSinceEpoch(milliseconds, Qt::UTC);
}

QVariant arrayOf(plist_t node)
{
    QVariantList list;
    plist_array_iter state = nullptr;
    plist_array_new_iter(node, &state);
    const CText owner(static_cast<char *>(state));
    plist_t item = nullptr;
    for (plist_array_next_item(node, state, &item); item != nullptr;
         plist_array_next_item(node, state, &item))
        list.append(valueOf(item));
    return list;
}

QVariant dictionaryOf(plist_t node)
{
    QVariantMap map;
    plist_dict_iter state = nullptr;
    plist_dict_new_iter(node, &state);
    const CText owner(static_cast<char *>(state));
    while (true) {
        char *key = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(node, state, &key, &item);
        const CText keyOwner(key);
        if (item == nullptr)
            return map;
        map.insert(QString::fromUtf8(key), valueOf(item));
    }
}

QVariant valueOf(plist_t node)
{
    std::uint64_t number = 0;
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        std::uint8_t flag = 0;
        plist_get_bool_val(node, &flag);
        return flag != 0;
    }
    case PLIST_UINT:
        plist_get_uint_val(node, &number);
        return static_cast<qlonglong>(number);
    case PLIST_REAL: {
        double real = 0;
        plist_get_real_val(node, &real);
        return real;
    }
    case PLIST_STRING: {
        const char *text = plist_get_string_ptr(node, &number);
        return QString::fromUtf8(text, static_cast<qsizetype>(number));
    }
    case PLIST_DATA: {
        const char *bytes = plist_get_data_ptr(node, &number);
        return QByteArray(bytes, static_cast<qsizetype>(number));
    }
    case PLIST_DATE:
        return dateOf(node);
    case PLIST_ARRAY:
        return arrayOf(node);
    case PLIST_DICT:
        return dictionaryOf(node);
    default:
        return {};
    }
}

// from normal values to nodes

plist_t nodeOf(const QVariant &value);

plist_t dateNodeOf(const QDateTime &date)
{
    const double time = secondsOf(date);
    const double whole = std::floor(time);
    return plist_new_date(
        static_cast<std::int32_t>(whole),
        static_cast<std::int32_t>(std::lround((time - whole) * kMicrosecondsPerSecond)));
}

plist_t nodeOf(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
        return plist_new_bool(value.toBool() ? 1 : 0);
    case QMetaType::LongLong:
        // Debian 12's library has no constructor for negative numbers, but keeps their bits.
        return plist_new_uint(static_cast<std::uint64_t>(value.toLongLong()));
    case QMetaType::Double:
        return plist_new_real(value.toDouble());
    case QMetaType::QString:
        return plist_new_string(value.toString().toUtf8().constData());
    case QMetaType::QByteArray: {
        const QByteArray bytes = value.toByteArray();
        return plist_new_data(bytes.constData(), static_cast<std::uint64_t>(bytes.size()));
    }
    case QMetaType::QDateTime:
        return dateNodeOf(value.toDateTime());
    case QMetaType::QVariantList: {
        plist_t array = plist_new_array();
        for (const QVariant &item : value.toList())
            plist_array_append_item(array, nodeOf(item));
        return array;
    }
    default: {
        plist_t dictionary = plist_new_dict();
        const QVariantMap map = value.toMap();
        for (auto item = map.begin(); item != map.end(); ++item)
            plist_dict_set_item(dictionary, item.key().toUtf8().constData(), nodeOf(item.value()));
        return dictionary;
    }
    }
}

// what can be written

PXExpected<QVariant> normalizedText(const QString &text)
{
    if (text.contains(QChar(u'\0')))
        return PXFail(badValue(u"Text with a character 0 cannot be stored"_s));
    return text;
}

PXExpected<QVariant> normalizedDate(const QDateTime &date)
{
    if (!date.isValid() || std::fabs(secondsOf(date)) >= std::numeric_limits<std::int32_t>::max())
        return PXFail(badValue(u"The date %1 cannot be stored"_s.arg(date.toString(Qt::ISODate))));
    return date.toUTC();
}

PXExpected<QVariant> normalizedList(const QVariantList &list)
{
    QVariantList result;
    for (const QVariant &item : list) {
        auto value = PXPropertyList::normalized(item);
        if (!value)
            return value;
        result.append(*std::move(value));
    }
    return result;
}

PXExpected<QVariant> normalizedMap(const QVariantMap &map)
{
    QVariantMap result;
    for (auto item = map.begin(); item != map.end(); ++item) {
        auto value = PXPropertyList::normalized(item.value());
        if (auto key = normalizedText(item.key()); !key)
            return key;
        if (!value)
            return value;
        result.insert(item.key(), *std::move(value));
    }
    return result;
}

bool hasControlCharacter(const QString &text)
{
    return std::any_of(text.begin(), text.end(), [](QChar c) {
        return (c < u' ' && c != u'\t' && c != u'\n') || c == QChar(0xFFFE) || c == QChar(0xFFFF);
    });
}

bool fitsIntoXML(const QVariant &value)
{
    if (value.typeId() == QMetaType::QString)
        return !hasControlCharacter(value.toString());
    if (value.typeId() == QMetaType::QVariantList) {
        const QVariantList list = value.toList();
        return std::all_of(list.begin(), list.end(), fitsIntoXML);
    }
    if (value.typeId() != QMetaType::QVariantMap)
        return true;
    const QVariantMap map = value.toMap();
    return std::all_of(map.keyBegin(), map.keyEnd(),
                       [](const QString &key) { return !hasControlCharacter(key); })
        && std::all_of(map.begin(), map.end(), fitsIntoXML);
}

PXError fileError(int errorNumber, const QString &whatFailed, const QString &filePath)
{
    // Qt finds some refusals out by itself, without a system call that leaves a number behind.
    if (errorNumber == 0) {
        const bool hasFolder = QFileInfo(QFileInfo(filePath).path()).isDir();
        errorNumber = QFileInfo(filePath).isDir() ? EISDIR : hasFolder ? EACCES : ENOENT;
    }
    PXError error = PXPOSIXError(errorNumber, whatFailed + u' ' + filePath);
    BRLog(BRLogError, error.description);
    return error;
}

} // namespace

namespace PXPropertyList {

PXExpected<QVariant> normalized(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
    case QMetaType::LongLong:
    case QMetaType::Double:
    case QMetaType::QByteArray:
        return value;
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::Short:
    case QMetaType::UShort:
        return value.toLongLong();
    case QMetaType::Float:
        return value.toDouble();
    case QMetaType::QString:
        return normalizedText(value.toString());
    case QMetaType::QDateTime:
        return normalizedDate(value.toDateTime());
    case QMetaType::QStringList:
    case QMetaType::QVariantList:
        return normalizedList(value.toList());
    case QMetaType::QVariantMap:
        return normalizedMap(value.toMap());
    default:
        throw std::logic_error(std::string("a property list cannot hold a ")
                               + (value.isValid() ? value.typeName() : "value that is none"));
    }
}

PXExpected<QVariant> fromData(const QByteArray &bytes, const QString &name)
{
    if (const auto reason = PXReasonNotToParsePropertyList(bytes))
        return PXFail(badList(name, *reason));
    const PlainNumbers plainNumbers;
    plist_t root = nullptr;
    const auto size = static_cast<std::uint32_t>(bytes.size());
    if (PXIsBinaryPropertyList(bytes))
        plist_from_bin(bytes.constData(), size, &root);
    else
        plist_from_xml(bytes.constData(), size, &root);
    const PlistHandle owner(root);
    if (root == nullptr)
        return PXFail(badList(name, u"it is damaged"_s));
    return valueOf(root);
}

PXExpected<QByteArray> toData(const QVariant &value, Format format, const QString &name)
{
    auto normal = normalized(value);
    if (normal && format == Format::XML && !fitsIntoXML(*normal))
        normal = PXFail(badValue(u"Control characters cannot be stored as XML"_s));
    if (!normal) {
        normal.error().description += u" in "_s + name;
        return PXFail(std::move(normal).error());
    }
    const PlainNumbers plainNumbers;
    const PlistHandle root(nodeOf(*normal));
    char *bytes = nullptr;
    std::uint32_t size = 0;
    if (format == Format::Binary)
        plist_to_bin(root.get(), &bytes, &size);
    else
        plist_to_xml(root.get(), &bytes, &size);
    const CText owner(bytes);
    if (bytes == nullptr)
        return PXFail(badValue(u"Could not make the property list "_s + name));
    QByteArray list(bytes, size);
    // What would not be read again must not take the place of a file that is.
    if (const auto reason = PXReasonNotToParsePropertyList(list))
        return PXFail(badValue(u"Could not store the property list %1: %2"_s.arg(name, *reason)));
    return list;
}

PXExpected<QVariantMap> read(const QString &filePath)
{
    const auto descriptor = PXFileManager::openRegularFile(filePath);
    if (!descriptor) {
        // That there is no file is for the caller to judge, and not worth a log line.
        if (descriptor.error().code != ENOENT)
            BRLog(BRLogError, descriptor.error().description);
        return PXFail(descriptor.error());
    }
    QFile file;
    errno = 0;
    if (!file.open(*descriptor, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        ::close(*descriptor);
        return PXFail(fileError(errno, u"Could not read"_s, filePath));
    }
    // One byte more than may be there tells that it is too big; a file of gigabytes does not
    // fill the memory.
    const QByteArray bytes = file.read(kPXPropertyListMostBytes + 1);
    if (file.error() != QFileDevice::NoError)
        return PXFail(fileError(errno, u"Could not read"_s, filePath));
    auto value = fromData(bytes, filePath);
    if (!value)
        return PXFail(std::move(value).error());
    if (value->typeId() != QMetaType::QVariantMap)
        return PXFail(badList(filePath, u"its outermost value is not a dictionary"_s));
    return value->toMap();
}

PXExpected<void> write(const QVariantMap &dictionary, const QString &filePath, Format format)
{
    const auto bytes = toData(dictionary, format, filePath);
    if (!bytes)
        return PXFail(bytes.error());
    QSaveFile file(filePath);
    errno = 0;
    // commit() alone takes a disk that fills in the middle of the buffer for a success.
    if (!file.open(QIODevice::WriteOnly) || file.write(*bytes) != bytes->size() || !file.flush()
        || !file.commit())
        return PXFail(fileError(errno, u"Could not write"_s, filePath));
    return {};
}

} // namespace PXPropertyList
