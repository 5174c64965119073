#pragma once

#include <QString>

#include <cstdint>

/// Where the benchmark's captures and movies lie. They take minutes to make and gigabytes to keep,
/// so that they stay there for the next time. What cannot be made ends the program.
class Captures final {
public:
    explicit Captures(const QString &folder);

    /// Desk work of so many frames, anywhere; 30 are a second.
    static void record(const QString &path, std::uint32_t frames);

    /// A capture of desk work so long, its key frames as the recorder sets them: about 80 MB a
    /// minute.
    [[nodiscard]] QString capture(int minutes) const;
    /// It as a .mov of H.264, with what we export by default.
    [[nodiscard]] QString movie(int minutes) const;

private:
    QString _folder;
};
