#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

/// What a property list may hold at most. A settings file has some hundred values and four levels;
/// these leave room for the biggest that anybody brings along, and none for one made to hurt.
inline constexpr qsizetype kPXPropertyListMostBytes = 16 << 20;
inline constexpr int kPXPropertyListMostLevels = 64;
inline constexpr int kPXPropertyListMostValues = 200'000;
/// Strings and data together, each counted as often as it is referred to.
inline constexpr quint64 kPXPropertyListMostContent = 64 << 20;

/// Why the bytes of a property list, binary or XML, must not be given to the parser; none when
/// they may. The parser recurses into what it reads and copies a value for every reference to it,
/// so a few hundred bytes can cost it the stack or the memory. Reads each value once a reference
/// and never past the end; the bounds above limit the work. Any thread.
std::optional<QString> PXReasonNotToParsePropertyList(const QByteArray &bytes);

/// Whether the bytes claim to be a binary list.
bool PXIsBinaryPropertyList(const QByteArray &bytes);
