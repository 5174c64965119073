#pragma once

#include "platform/PXSound.h"

#include "foundation/PXError.h"

#include <QString>

#include <cstddef>
#include <cstdint>
#include <span>

/// How sound is stored.
struct PXSoundEncoding {
    std::uint32_t codec = 0; ///< Four-character code: 'aac ', 'alac', 'sowt', 'ima4', 'ulaw'.
    int sampleRate = 0; ///< 0 keeps the source's, or takes the nearest that the codec knows.
    int channels = 0; ///< 0 keeps the source's, or takes what the codec knows.
    std::int64_t bitRate = 0; ///< Bits a second; 0 lets `quality` decide. Only 'aac ' obeys either.
    int quality = 768; ///< 0 to 1024.
};

/// One way to encode sound.
struct PXSoundCodec {
    std::uint32_t code = 0; ///< 'aac ' and so on, as `PXSoundEncoding` has it.
    QString name; ///< For people, "AAC".
    QString encoderName; ///< The installed library's encoder that does it.
    bool isInstalled = false; ///< Whether the library has that encoder.
    bool isLossless = false;
    bool hasBitRate = false; ///< Whether bit rate and quality are obeyed.
};

enum class PXSoundFileKind {
    Ordinary, ///< Its index comes with `finish()`.
    /// Readable at any instant, save for the last second: after a kill, too.
    Fragmented,
};

/// Writes a .mov with one sound track. Samples may come from another thread than the one that made
/// it, one at a time. Destroying it closes the file and leaves it as it is.
class PXSoundWriter {
public:
    virtual ~PXSoundWriter() = default;

    /// What the samples become: rate, channels and their places as they are stored.
    [[nodiscard]] virtual PXSoundFormat storedFormat() const = 0;
    /// Whole frames in the format that the writer was made for, behind those before.
    [[nodiscard]] virtual PXExpected<void> write(std::span<const std::byte> samples) = 0;
    /// So many frames of silence, in little time and memory however many they are.
    [[nodiscard]] virtual PXExpected<void> writeSilence(std::int64_t frames) = 0;
    /// Encodes what is left and closes the file. Nothing may follow. What the encoder adds in
    /// front (its delay) is declared, so that the first sample plays at 0.
    [[nodiscard]] virtual PXExpected<void> finish() = 0;
    /// Bytes of the file that have been handed to the system. Any thread.
    [[nodiscard]] virtual std::uint64_t recordedBytes() const = 0;
};

/// Reads all the sound of a movie as interleaved samples: its sound tracks, each from the time at
/// which it starts, added up in the highest of their rates and the widest of their layouts. Where
/// the sum is beyond full scale it is turned down for a moment rather than clipped; one track alone
/// that is stored as integers comes as it is. One thread at a time.
class PXSoundExtraction {
public:
    virtual ~PXSoundExtraction() = default;

    /// At first 32-bit floats.
    [[nodiscard]] virtual PXSoundFormat format() const = 0;
    /// Of the samples as they are stored, the widest; 16 where the codec has no such size.
    [[nodiscard]] virtual int bitsPerSample() const = 0;
    /// Before the first samples: their type.
    virtual void setSampleType(PXSampleType type) = 0;
    /// Fills `samples`, which has room for whole frames, and answers how many frames: fewer than
    /// asked for only at the end, then 0. What cannot be decoded is silence.
    [[nodiscard]] virtual PXExpected<int> fill(std::span<std::byte> samples) = 0;
};

/// Stretches or squeezes sound a little, so that it keeps step with another clock. One thread.
class PXSoundStretcher {
public:
    virtual ~PXSoundStretcher() = default;

    /// From here on a second of input becomes 1 + `ratio` seconds; |ratio| is at most 0.01.
    virtual void setStretch(double ratio) = 0;
    /// What comes out for these samples, 32-bit floats: a few more or less than went in, and the
    /// first ones some samples later. Valid until the next call.
    [[nodiscard]] virtual PXExpected<std::span<const float>> process(std::span<const float> samples)
        = 0;
    /// Input frames that `process` still holds back.
    [[nodiscard]] virtual double delay() const = 0;
};
