#pragma once

#include "foundation/PXAllocation.h"
#include "foundation/PXError.h"

#include <QString>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>

/// Typed values in a file, in a byte order that is chosen at opening and may change at any time.
/// Reads past the end give zeros and set `isEndOfFile`, nothing else: compare `position` and
/// `length` before reading what matters. Failed writes show in `writeErrorNumber` and `flush`.
/// Every read and write on a stream that is not open throws std::logic_error. No lock: one thread
/// at a time. Destroying it closes the file.
class PXBinaryStream final {
public:
    enum OpenFlag : unsigned {
        Read = 2,
        Write = 4, ///< With or without Read: the file is created, or emptied if it exists.
        LittleEndian = 8, ///< Wins over BigEndian; the default of the two.
        BigEndian = 16,
    };

    explicit PXBinaryStream(QString filePath) : mFilePath(std::move(filePath)) { }
    ~PXBinaryStream() { close(); }
    PXBinaryStream(const PXBinaryStream &) = delete;
    PXBinaryStream &operator=(const PXBinaryStream &) = delete;

    /// Closes what is open and opens anew. The error is of domain `NSPOSIXErrorDomain` with
    /// `errno` as its code, and "NSLocalizedDescriptionKey" and "NSLocalizedFailureReasonErrorKey"
    /// in its user info; the stream is closed then. A folder is refused (EISDIR), and
    /// for reading alone everything else that is no regular file (EINVAL).
    PXExpected<void> open(unsigned flags);
    void close();
    /// Hands what is buffered to the system; fails with the first write error since `open` or
    /// `truncate`. Nothing when not open.
    PXExpected<void> flush();

    [[nodiscard]] const QString &filePath() const { return mFilePath; }
    [[nodiscard]] std::FILE *file() const { return mFile; }
    [[nodiscard]] bool isOpen() const { return mFile != nullptr; }

    /// Gives the file an I/O buffer of `size` bytes; directly after `open`. Blocks larger than
    /// that go straight through.
    void setFileBufferSize(std::size_t size);

    /// True once a read met the end, and when no file is open.
    [[nodiscard]] bool isEndOfFile() const;
    /// The file's error indicator, -1 when no file is open.
    [[nodiscard]] int lastErrorCode() const;
    /// `errno` of the first write that failed since `open` or `truncate`, else 0.
    [[nodiscard]] int writeErrorNumber() const { return _writeErrorNumber; }

    /// 64-bit throughout; 0 and nothing when not open.
    [[nodiscard]] std::uint64_t position() const;
    void setPosition(std::uint64_t position);
    /// Leaves the position where it is. Costs two seeks: not for inner loops.
    [[nodiscard]] std::uint64_t length() const;
    /// Throws buffered writes away, cuts the file to `length`, goes there and forgets the write
    /// error: what a full disk left half-written is gone.
    PXExpected<void> truncate(std::uint64_t length);

    [[nodiscard]] bool isLittleEndian() const { return mLittleEndian; }
    void setLittleEndian(bool isLittleEndian) { mLittleEndian = isLittleEndian; }

    bool readBool() { return readUInt8() != 0; }
    std::uint8_t readByte() { return readUInt8(); }
    std::int8_t readInt8() { return static_cast<std::int8_t>(readUInt8()); }
    std::uint8_t readUInt8() { return _read<std::uint8_t>(); }
    std::int16_t readShort() { return readInt16(); }
    std::int16_t readInt16() { return static_cast<std::int16_t>(readUInt16()); }
    std::uint16_t readUInt16() { return _read<std::uint16_t>(); }
    std::int32_t readLong() { return readInt32(); }
    std::int32_t readInt32() { return static_cast<std::int32_t>(readUInt32()); }
    std::uint32_t readUInt32() { return _read<std::uint32_t>(); }
    std::int64_t readInt64() { return static_cast<std::int64_t>(readUInt64()); }
    std::uint64_t readUInt64() { return _read<std::uint64_t>(); }
    float readFloat();
    double readDouble();
    /// Returns how many bytes there were; the rest of `data` is left as it was.
    std::size_t readData(std::span<std::byte> data);

    void writeBool(bool value) { writeUInt8(value ? 1 : 0); }
    void writeByte(std::uint8_t value) { writeUInt8(value); }
    void writeInt8(std::int8_t value) { writeUInt8(static_cast<std::uint8_t>(value)); }
    void writeUInt8(std::uint8_t value) { _write(value); }
    void writeShort(std::int16_t value) { writeInt16(value); }
    void writeInt16(std::int16_t value) { writeUInt16(static_cast<std::uint16_t>(value)); }
    void writeUInt16(std::uint16_t value) { _write(value); }
    void writeLong(std::int32_t value) { writeInt32(value); }
    void writeInt32(std::int32_t value) { writeUInt32(static_cast<std::uint32_t>(value)); }
    void writeUInt32(std::uint32_t value) { _write(value); }
    void writeInt64(std::int64_t value) { writeUInt64(static_cast<std::uint64_t>(value)); }
    void writeUInt64(std::uint64_t value) { _write(value); }
    void writeFloat(float value);
    void writeDouble(double value);
    void writeData(std::span<const std::byte> data);

private:
    template <typename T> T _read();
    template <typename T> void _write(T value);
    void _requireFile() const;

    QString mFilePath;
    std::FILE *mFile = nullptr;
    PXBuffer mFileBuffer; ///< Empty unless `setFileBufferSize` was called; must outlive mFile.
    bool mLittleEndian = false;
    int _writeErrorNumber = 0;
};
