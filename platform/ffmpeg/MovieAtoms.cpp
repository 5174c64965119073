#include "platform/ffmpeg/MovieAtoms.h"

#include "foundation/PXFileManager.h"

#include <QFile>
#include <QtEndian>

#include <optional>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 kHeader = 8; // Size and type.
constexpr qint64 kLongHeader = 16; // The size follows, in 64 bits.

struct Atom {
    QByteArray type;
    qint64 header = 0; ///< Bytes in front of what is in it.
    qint64 size = 0; ///< With its header.
};

/// What begins at `position`; none where nothing can begin there.
std::optional<Atom> atomAt(QFile &file, qint64 position, qint64 end)
{
    if (end - position < kHeader || !file.seek(position))
        return std::nullopt;
    const QByteArray bytes = file.read(kLongHeader);
    if (bytes.size() < kHeader)
        return std::nullopt;
    Atom atom{bytes.mid(4, 4), kHeader, qFromBigEndian<quint32>(bytes.constData())};
    if (atom.size == 0) { // Up to the end.
        atom.size = end - position;
    } else if (atom.size == 1) {
        if (bytes.size() < kLongHeader)
            return std::nullopt;
        atom.header = kLongHeader;
        atom.size = qFromBigEndian<qint64>(bytes.constData() + kHeader);
    }
    if (atom.size < atom.header)
        return std::nullopt;
    return atom;
}

/// The time scale of the movie whose index has its atoms between the two places; else 0.
int timeScaleIn(QFile &file, qint64 position, qint64 end)
{
    while (const auto atom = atomAt(file, position, end)) {
        if (atom->type == "mvhd" && file.seek(position + atom->header)) {
            // Version and flags, two dates of 32 or 64 bits, the time scale.
            const QByteArray bytes = file.read(24);
            const qsizetype offset = bytes.startsWith('\1') ? 20 : 12;
            if (bytes.size() < offset + 4)
                return 0;
            return qFromBigEndian<qint32>(bytes.constData() + offset);
        }
        if (atom->size > end - position)
            return 0;
        position += atom->size;
    }
    return 0;
}

PXError corrupt(const QString &description)
{
    return {kPXCocoaErrorDomain, kPXFileReadCorruptFileError, description, {}, {}};
}

} // namespace

PXExpected<MovieAtoms> MovieAtoms::of(const QString &path)
{
    const auto descriptor = PXFileManager::openRegularFile(path);
    if (!descriptor)
        return PXFail(descriptor.error());
    QFile file;
    file.open(*descriptor, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle);

    MovieAtoms movie;
    bool isWhole = true;
    bool hasData = false;
    const qint64 end = file.size();
    for (qint64 position = 0; position < end;) {
        const auto atom = atomAt(file, position, end);
        if (!atom)
            break;
        isWhole = atom->size <= end - position;
        if (atom->type == "moov" && isWhole) {
            movie.timeScale = timeScaleIn(file, position + atom->header, position + atom->size);
            movie.isIndexInFront = !hasData;
        }
        movie.isInFragments = movie.isInFragments || atom->type == "moof";
        hasData = hasData || atom->type == "mdat";
        if (!isWhole)
            break;
        position += atom->size;
        // A fragment's index without its data would lead nowhere.
        if (atom->type != "moof")
            movie.wholeBytes = position;
    }
    if (movie.timeScale <= 0)
        return PXFail(corrupt(u"%1 is not a movie"_s.arg(path)));
    // Of a movie in fragments only the last is lost then.
    if (!isWhole && !movie.isInFragments)
        return PXFail(corrupt(u"The end of the movie %1 is missing"_s.arg(path)));
    return movie;
}
