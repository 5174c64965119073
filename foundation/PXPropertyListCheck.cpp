#include "foundation/PXPropertyListCheck.h"

#include <QDateTime>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

using namespace Qt::StringLiterals;

namespace {

using Reason = std::optional<QString>;

constexpr quint64 kHeaderSize = 8;
constexpr quint64 kTrailerSize = 32;

// The parser's dates are seconds since 2001 in 32 bits; beyond them it answers with nonsense.
const QString kDateReason = u"it has a date outside 1933 to 2069"_s;
// The parser ends the program over a key with one.
const QString kZeroReason = u"it has text with a character 0"_s;
const QString kTooManyReason = u"it has too many values"_s;
const QString kTooDeepReason = u"it is nested too deeply"_s;

/// Follows a binary list from its root as the parser would.
class BinaryWalk final {
public:
    explicit BinaryWalk(const QByteArray &bytes) : _bytes(bytes) { }

    Reason check()
    {
        const auto size = static_cast<quint64>(_bytes.size());
        if (size < kHeaderSize + kTrailerSize + 2)
            return u"it is too short"_s;
        const quint64 trailer = size - kTrailerSize;
        _offsetSize = _number(trailer + 6, 1);
        _referenceSize = _number(trailer + 7, 1);
        _count = _number(trailer + 8, 8);
        const quint64 root = _number(trailer + 16, 8);
        _table = _number(trailer + 24, 8);
        if (_offsetSize < 1 || _offsetSize > 8 || _referenceSize < 1 || _referenceSize > 8
            || _table <= kHeaderSize || _table >= trailer || _count < 1
            || _count > (trailer - _table) / _offsetSize)
            return u"its table of values is damaged"_s;
        return _visit(root, 1);
    }

private:
    /// Big-endian; the caller has seen that the bytes are there.
    [[nodiscard]] quint64 _number(quint64 position, quint64 size) const
    {
        quint64 number = 0;
        for (quint64 i = 0; i < size; ++i)
            number = number << 8 | _byte(position + i);
        return number;
    }
    [[nodiscard]] quint8 _byte(quint64 position) const
    {
        return static_cast<quint8>(_bytes.at(static_cast<qsizetype>(position)));
    }
    /// Values lie between the header and the table.
    [[nodiscard]] bool _isThere(quint64 position, quint64 size) const
    {
        return position <= _table && size <= _table - position;
    }

    Reason _visit(quint64 index, int level)
    {
        if (level > kPXPropertyListMostLevels)
            return kTooDeepReason;
        if (++_values > kPXPropertyListMostValues)
            return kTooManyReason;
        if (index >= _count)
            return u"it refers to a value that it does not have"_s;
        const quint64 start = _number(_table + index * _offsetSize, _offsetSize);
        if (start < kHeaderSize || !_isThere(start, 1))
            return u"a value lies outside it"_s;
        const int kind = _byte(start) >> 4;
        const quint64 low = _byte(start) & 0x0F;
        switch (kind) {
        case 0x0:
            return low == 8 || low == 9 ? Reason() : u"it has a value that is not true or false"_s;
        case 0x1: // More than 8 bytes: above what a signed number holds.
            return low > 3 ? u"it has a whole number of more than 64 bits"_s
                           : _content(start + 1, 1ULL << low);
        case 0x2:
            return low != 2 && low != 3 ? u"it has a number of an unknown size"_s
                                        : _content(start + 1, 1ULL << low);
        case 0x3:
            return _date(start, low);
        default:
            return _sized(kind, start + 1, low, level);
        }
    }

    Reason _date(quint64 start, quint64 low)
    {
        if (low != 3)
            return u"it has a date of an unknown size"_s;
        if (Reason reason = _content(start + 1, 8))
            return reason;
        const double seconds = std::bit_cast<double>(_number(start + 1, 8));
        const bool fits = std::fabs(seconds) < std::numeric_limits<qint32>::max();
        return fits ? Reason() : kDateReason;
    }

    /// Data, strings and containers: a length of up to 14 stands in the marker itself.
    Reason _sized(int kind, quint64 position, quint64 length, int level)
    {
        if (length == 0x0F) {
            if (!_isThere(position, 1) || _byte(position) < 0x10 || _byte(position) > 0x13)
                return u"a length in it is damaged"_s;
            const quint64 size = 1ULL << (_byte(position) & 0x0F);
            if (!_isThere(position + 1, size))
                return u"a length lies outside it"_s;
            length = _number(position + 1, size);
            position += 1 + size;
        }
        if (length > static_cast<quint64>(_bytes.size()))
            return u"a length in it is greater than itself"_s;
        switch (kind) {
        case 0x4:
            return _content(position, length);
        case 0x5:
            return _text(position, length, 1);
        case 0x6:
            return _text(position, length, 2);
        case 0xA:
            return _container(position, length, 0, level);
        case 0xD:
            return _container(position, length, length, level);
        default:
            return u"it has a value of a kind that settings do not have"_s;
        }
    }

    Reason _content(quint64 position, quint64 size)
    {
        if (!_isThere(position, size))
            return u"a value reaches beyond its end"_s;
        _contentSize += size;
        return _contentSize > kPXPropertyListMostContent ? u"its values are too long"_s : Reason();
    }

    Reason _text(quint64 position, quint64 length, quint64 unitSize)
    {
        if (Reason reason = _content(position, length * unitSize))
            return reason;
        for (quint64 i = 0; i < length; ++i) {
            if (_number(position + i * unitSize, unitSize) == 0)
                return kZeroReason;
        }
        return std::nullopt;
    }

    /// First the `keys` (of a dictionary), then as many values; an array has values only.
    Reason _container(quint64 position, quint64 length, quint64 keys, int level)
    {
        if (!_isThere(position, (length + keys) * _referenceSize))
            return u"a container reaches beyond its end"_s;
        for (quint64 i = 0; i < length + keys; ++i) {
            const quint64 index = _number(position + i * _referenceSize, _referenceSize);
            if (Reason reason = _visit(index, level + 1))
                return reason;
            const quint8 marker = _byte(_number(_table + index * _offsetSize, _offsetSize));
            if (i < keys && marker >> 4 != 0x5 && marker >> 4 != 0x6)
                return u"it has a key that is not a string"_s;
        }
        return std::nullopt;
    }

    const QByteArray &_bytes;
    quint64 _offsetSize = 0;
    quint64 _referenceSize = 0;
    quint64 _count = 0;
    quint64 _table = 0;
    int _values = 0;
    quint64 _contentSize = 0;
};

/// Counts the tags of an XML list. Where two readings of a tag are thinkable it refuses, so that
/// the parser cannot see a nesting that was not counted.
class XMLWalk final {
public:
    explicit XMLWalk(const QByteArray &bytes) : _bytes(bytes) { }

    Reason check()
    {
        // The parser moves the rest of a text for each entity in it.
        constexpr quint64 kMostMoves = 1ULL << 35;
        const auto entities = static_cast<quint64>(_bytes.count('&'));
        if (entities * static_cast<quint64>(_bytes.size()) > kMostMoves)
            return u"it has too many entities"_s;
        if (_bytes.contains('\0') || _hasBadCharacterNumber())
            return kZeroReason;
        qsizetype position = _bytes.indexOf('<');
        if (position < 0)
            return u"it is no property list"_s;
        while (position >= 0) {
            if (Reason reason = _tag(position))
                return reason;
            position = _bytes.indexOf('<', _end);
        }
        return _level == 0 ? Reason() : u"it ends too early"_s;
    }

private:
    /// "&#65;" and "&#x41;": whether one of them is no character.
    [[nodiscard]] bool _hasBadCharacterNumber() const
    {
        for (qsizetype start = _bytes.indexOf("&#"); start >= 0;
             start = _bytes.indexOf("&#", start + 2)) {
            const qsizetype end = _bytes.indexOf(';', start);
            const bool isHex = QByteArrayView(_bytes).sliced(start).startsWith("&#x");
            const qsizetype first = start + (isHex ? 3 : 2);
            const uint character = end < first ? 0
                                               : QByteArrayView(_bytes)
                                                     .sliced(first, end - first)
                                                     .toUInt(nullptr, isHex ? 16 : 10);
            if (character == 0 || character > QChar::LastValidCodePoint)
                return true;
        }
        return false;
    }

    Reason _tag(qsizetype start)
    {
        const QByteArrayView rest = QByteArrayView(_bytes).sliced(start);
        if (rest.startsWith("<!--"))
            return _skip(start, 4, "-->");
        if (rest.startsWith("<![CDATA["))
            return _skip(start, 9, "]]>");
        if (rest.startsWith("<?"))
            return _skip(start, 2, "?>");
        if (rest.startsWith("<!"))
            return _declaration(start);
        _end = _bytes.indexOf('>', start);
        if (_end < 0)
            return u"it ends within a tag"_s;
        QByteArrayView name = rest.sliced(1, _end - start - 1);
        ++_end;
        if (name.startsWith('/'))
            return --_level < 0 ? u"it closes what it did not open"_s : Reason();
        const bool isEmpty = name.endsWith('/');
        if (isEmpty)
            name.chop(1);
        return _element(name.trimmed(), isEmpty);
    }

    Reason _element(QByteArrayView name, bool isEmpty)
    {
        if (name.startsWith("plist")) {
            // The one element with an attribute, and so the one that could hide a '>' in it.
            if (_level > 0 || name.count('"') + name.count('\'') > 2)
                return u"its outermost element is damaged"_s;
        } else if (!std::all_of(name.begin(), name.end(),
                                [](char c) { return c >= 'a' && c <= 'z'; })) {
            return u"it has an unknown element"_s;
        }
        if (++_values > kPXPropertyListMostValues)
            return kTooManyReason;
        if (isEmpty)
            return std::nullopt;
        if (++_level > kPXPropertyListMostLevels)
            return kTooDeepReason;
        const qsizetype textEnd = _bytes.indexOf('<', _end);
        const QByteArray text = textEnd < 0 ? QByteArray() : _bytes.sliced(_end, textEnd - _end);
        if (name == "date")
            return _date(text);
        bool isNumber = true;
        if (name == "integer")
            (void)text.toLongLong(&isNumber, 0);
        return isNumber ? Reason() : u"it has a whole number that does not read"_s;
    }

    static Reason _date(const QByteArray &text)
    {
        const QDateTime date
            = QDateTime::fromString(QString::fromLatin1(text.trimmed()), Qt::ISODate);
        if (!date.isValid())
            return u"it has a date that does not read"_s;
        const int year = date.date().year();
        return year > 1933 && year < 2069 ? Reason() : kDateReason;
    }

    Reason _declaration(qsizetype start)
    {
        _end = _bytes.indexOf('>', start);
        if (_end < 0 || _level > 0 || _bytes.sliced(start, _end - start).contains('['))
            return u"its document type is damaged"_s;
        ++_end;
        return std::nullopt;
    }

    Reason _skip(qsizetype start, qsizetype openerSize, const char *closer)
    {
        // From the opener's second character, so that "<!-->" is not taken for an open comment.
        const qsizetype found = _bytes.indexOf(closer, start + 1);
        if (found < start + openerSize)
            return u"it has a comment that does not end"_s;
        _end = found + static_cast<qsizetype>(std::char_traits<char>::length(closer));
        return std::nullopt;
    }

    const QByteArray &_bytes;
    qsizetype _end = 0; ///< Behind the tag that was read last.
    int _level = 0;
    int _values = 0;
};

} // namespace

bool PXIsBinaryPropertyList(const QByteArray &bytes)
{
    return bytes.startsWith("bplist");
}

std::optional<QString> PXReasonNotToParsePropertyList(const QByteArray &bytes)
{
    if (bytes.isEmpty())
        return u"it is empty"_s;
    if (bytes.size() > kPXPropertyListMostBytes)
        return u"it is too big"_s;
    return PXIsBinaryPropertyList(bytes) ? BinaryWalk(bytes).check() : XMLWalk(bytes).check();
}
