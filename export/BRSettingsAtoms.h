#pragma once

#include "foundation/PXError.h"

#include <QByteArray>
#include <QtEndian>

#include <cstdint>
#include <utility>
#include <vector>

/// The stored form of compression settings: atoms one after the other, each its whole size (32
/// bits), four characters and fields, all big-endian. Atoms that nobody asks for, and bytes behind
/// the fields that somebody knows, are kept when the settings are stored again.
class BRSettingsAtoms final {
public:
    /// Fails (EINVAL) for bytes that are no list of atoms.
    [[nodiscard]] static PXExpected<BRSettingsAtoms> fromContainer(const QByteArray &container);
    [[nodiscard]] QByteArray container() const;

    /// Reads `fields` of every atom of that type, so that the last one counts. Fails (EINVAL)
    /// where one of them is too short.
    template <typename... Fields>
    [[nodiscard]] PXExpected<void> read(std::uint32_t type, Fields &...fields) const
    {
        for (const auto &[atomType, payload] : _atoms) {
            if (atomType != type)
                continue;
            if (payload.size() < qsizetype{(sizeof(Fields) + ...)})
                return PXFail(noAtoms());
            qsizetype position = 0;
            ((fields = qFromBigEndian<Fields>(payload.constData() + position),
              position += qsizetype{sizeof(Fields)}),
             ...);
        }
        return {};
    }

    /// Puts `fields` at the beginning of the last atom of that type; makes one where there is none.
    template <typename... Fields> void put(std::uint32_t type, Fields... fields)
    {
        putBytes(type, packed(fields...));
    }

private:
    template <typename... Fields> static QByteArray packed(Fields... fields)
    {
        QByteArray bytes;
        const auto append = [&](auto field) {
            char buffer[sizeof field];
            qToBigEndian(field, buffer);
            bytes.append(buffer, sizeof buffer);
        };
        (append(fields), ...);
        return bytes;
    }
    void putBytes(std::uint32_t type, const QByteArray &fields);
    static PXError noAtoms();

    /// Types and what follows the type, in their order.
    std::vector<std::pair<std::uint32_t, QByteArray>> _atoms;
};
