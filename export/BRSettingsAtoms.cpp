#include "export/BRSettingsAtoms.h"

#include <algorithm>
#include <cerrno>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kAtomHeader = 8;

} // namespace

PXError BRSettingsAtoms::noAtoms()
{
    return PXPOSIXError(EINVAL, u"Could not read the stored compression settings"_s);
}

PXExpected<BRSettingsAtoms> BRSettingsAtoms::fromContainer(const QByteArray &container)
{
    BRSettingsAtoms read;
    for (qsizetype position = 0; position < container.size();) {
        const qsizetype left = container.size() - position;
        if (left < kAtomHeader)
            return PXFail(noAtoms());
        const auto size = qFromBigEndian<std::uint32_t>(container.constData() + position);
        const auto type = qFromBigEndian<std::uint32_t>(container.constData() + position + 4);
        if (size < kAtomHeader || size > left)
            return PXFail(noAtoms());
        read._atoms.emplace_back(type, container.mid(position + kAtomHeader, size - kAtomHeader));
        position += size;
    }
    return read;
}

QByteArray BRSettingsAtoms::container() const
{
    QByteArray bytes;
    for (const auto &[type, payload] : _atoms)
        bytes += packed(static_cast<std::uint32_t>(kAtomHeader + payload.size()), type) + payload;
    return bytes;
}

void BRSettingsAtoms::putBytes(std::uint32_t type, const QByteArray &fields)
{
    // The last one, which is the one that is read.
    auto found = std::find_if(_atoms.rbegin(), _atoms.rend(),
                              [&](const auto &atom) { return atom.first == type; });
    if (found == _atoms.rend()) {
        _atoms.emplace_back(type, QByteArray());
        found = _atoms.rbegin();
    }
    found->second.replace(0, fields.size(), fields);
}
