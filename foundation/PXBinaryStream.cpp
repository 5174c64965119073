#include "foundation/PXBinaryStream.h"

#include "foundation/PXFileManager.h"

#include <QFile>

#include <stdio_ext.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <stdexcept>

using namespace Qt::StringLiterals;

static_assert(std::endian::native == std::endian::little,
              "values are reversed for big-endian only");
static_assert(sizeof(off_t) == 8, "positions are 64-bit");

namespace {

PXError openError(int errorNumber, const QString &path)
{
    const QString description = u"Could not open file "_s + path;
    PXError error = PXPOSIXError(errorNumber, description);
    const QString systemText = error.description.mid(description.size() + 2);
    error.userInfo.insert(u"NSLocalizedDescriptionKey"_s, description);
    error.userInfo.insert(u"NSLocalizedFailureReasonErrorKey"_s,
                          u"PXBinaryStream: failed to open %1. Error (%2) %3"_s.arg(
                              path, QString::number(errorNumber), systemText));
    return error;
}

const char *modeForFlags(unsigned flags)
{
    const bool reads = (flags & PXBinaryStream::Read) != 0;
    const bool writes = (flags & PXBinaryStream::Write) != 0;
    if (reads && writes)
        return "w+e";
    if (writes)
        return "we";
    return reads ? "re" : nullptr;
}

std::FILE *openForReading(const QString &path)
{
    const auto file = PXFileManager::openRegularFile(path);
    if (!file) {
        errno = file.error().code;
        return nullptr;
    }
    std::FILE *stream = fdopen(*file, "r");
    if (stream == nullptr)
        ::close(*file);
    return stream;
}

} // namespace

PXExpected<void> PXBinaryStream::open(unsigned flags)
{
    close();
    mLittleEndian = (flags & LittleEndian) != 0 || (flags & BigEndian) == 0;
    const char *mode = modeForFlags(flags);
    if (mode == nullptr)
        return PXFail(openError(EINVAL, mFilePath));
    mFile = (flags & Write) == 0 ? openForReading(mFilePath)
                                 : std::fopen(QFile::encodeName(mFilePath).constData(), mode);
    if (mFile == nullptr)
        return PXFail(openError(errno, mFilePath));
    return {};
}

void PXBinaryStream::close()
{
    if (mFile != nullptr)
        static_cast<void>(std::fclose(mFile)); // flush() is what reports
    mFile = nullptr;
    mFileBuffer.reset();
    _writeErrorNumber = 0;
}

PXExpected<void> PXBinaryStream::flush()
{
    if (mFile == nullptr)
        return {};
    if (std::fflush(mFile) != 0 && _writeErrorNumber == 0)
        _writeErrorNumber = errno;
    if (_writeErrorNumber != 0)
        return PXFail(PXPOSIXError(_writeErrorNumber, u"Could not write file "_s + mFilePath));
    return {};
}

void PXBinaryStream::setFileBufferSize(std::size_t size)
{
    _requireFile();
    PXBuffer buffer(static_cast<std::byte *>(std::malloc(size)));
    if (!buffer || std::setvbuf(mFile, reinterpret_cast<char *>(buffer.get()), _IOFBF, size) != 0)
        return; // The library's own buffer serves as well.
    mFileBuffer = std::move(buffer);
}

bool PXBinaryStream::isEndOfFile() const
{
    return mFile == nullptr || std::feof(mFile) != 0;
}

int PXBinaryStream::lastErrorCode() const
{
    return mFile != nullptr ? std::ferror(mFile) : -1;
}

std::uint64_t PXBinaryStream::position() const
{
    const off_t position = mFile != nullptr ? ftello(mFile) : 0;
    return position < 0 ? 0 : static_cast<std::uint64_t>(position);
}

void PXBinaryStream::setPosition(std::uint64_t position)
{
    // Seeking hands over what is buffered, so it can be the write that fails.
    if (mFile != nullptr && fseeko(mFile, static_cast<off_t>(position), SEEK_SET) != 0
        && _writeErrorNumber == 0)
        _writeErrorNumber = errno;
}

std::uint64_t PXBinaryStream::length() const
{
    if (mFile == nullptr)
        return 0;
    const off_t here = ftello(mFile);
    fseeko(mFile, 0, SEEK_END);
    const off_t end = ftello(mFile);
    fseeko(mFile, here, SEEK_SET);
    return end < 0 ? 0 : static_cast<std::uint64_t>(end);
}

PXExpected<void> PXBinaryStream::truncate(std::uint64_t length)
{
    _requireFile();
    __fpurge(mFile);
    std::clearerr(mFile);
    _writeErrorNumber = 0;
    if (ftruncate(fileno(mFile), static_cast<off_t>(length)) != 0)
        return PXFail(PXPOSIXError(errno, u"Could not cut file "_s + mFilePath));
    setPosition(length);
    return {};
}

void PXBinaryStream::_requireFile() const
{
    if (mFile == nullptr)
        throw std::logic_error("PXBinaryStream has no FILE");
}

// The unlocked calls: a stream belongs to one thread at a time, and the lock would cost as much
// as the small values themselves.
template <typename T> T PXBinaryStream::_read()
{
    _requireFile();
    std::array<std::byte, sizeof(T)> bytes = {};
    fread_unlocked(bytes.data(), 1, bytes.size(), mFile);
    if (!mLittleEndian)
        std::reverse(bytes.begin(), bytes.end());
    return std::bit_cast<T>(bytes);
}

template <typename T> void PXBinaryStream::_write(T value)
{
    auto bytes = std::bit_cast<std::array<std::byte, sizeof(T)>>(value);
    if (!mLittleEndian)
        std::reverse(bytes.begin(), bytes.end());
    writeData(bytes);
}

float PXBinaryStream::readFloat()
{
    return _read<float>();
}

double PXBinaryStream::readDouble()
{
    return _read<double>();
}

void PXBinaryStream::writeFloat(float value)
{
    _write(value);
}

void PXBinaryStream::writeDouble(double value)
{
    _write(value);
}

std::size_t PXBinaryStream::readData(std::span<std::byte> data)
{
    _requireFile();
    return data.empty() ? 0 : fread_unlocked(data.data(), 1, data.size(), mFile);
}

void PXBinaryStream::writeData(std::span<const std::byte> data)
{
    _requireFile();
    if (data.empty())
        return;
    if (fwrite_unlocked(data.data(), 1, data.size(), mFile) != data.size()
        && _writeErrorNumber == 0)
        _writeErrorNumber = errno;
}

template std::uint8_t PXBinaryStream::_read();
template std::uint16_t PXBinaryStream::_read();
template std::uint32_t PXBinaryStream::_read();
template std::uint64_t PXBinaryStream::_read();
template void PXBinaryStream::_write(std::uint8_t);
template void PXBinaryStream::_write(std::uint16_t);
template void PXBinaryStream::_write(std::uint32_t);
template void PXBinaryStream::_write(std::uint64_t);
