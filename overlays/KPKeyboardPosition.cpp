#include "overlays/KPKeyboardPosition.h"

#include <array>
#include <cmath>

namespace {

float place(KPAnchor anchor, float start, float room, float size)
{
    constexpr auto kMargin = static_cast<float>(KPKeyboardPosition::kMargin);
    float result = 0;
    switch (anchor) {
    case KPAnchor::Start:
        result = start + kMargin;
        break;
    case KPAnchor::Middle:
        result = start + room * 0.5F - std::floor(size * 0.5F);
        break;
    case KPAnchor::End:
        result = start + room - kMargin - size;
        break;
    }
    // Half a pixel would blur everything, and make the window a pixel wider.
    return std::floor(result);
}

} // namespace

int KPAnchoredOffset(KPAnchor anchor, int room, int size)
{
    switch (anchor) {
    case KPAnchor::Start:
        return 0;
    case KPAnchor::Middle:
        return room / 2 - size / 2;
    case KPAnchor::End:
        return room - size;
    }
    return 0;
}

std::optional<KPKeyboardPosition> KPKeyboardPosition::positionWithCode(int code)
{
    using enum KPAnchor;
    static constexpr std::array<KPKeyboardPosition, 9> positions = {{{Middle, Middle},
                                                                     {Middle, End},
                                                                     {End, Middle},
                                                                     {Middle, Start},
                                                                     {Start, Middle},
                                                                     {Start, End},
                                                                     {End, End},
                                                                     {End, Start},
                                                                     {Start, Start}}};
    if (code < 0 || code >= static_cast<int>(positions.size()))
        return std::nullopt;
    return positions[static_cast<std::size_t>(code)];
}

PXPoint KPKeyboardPosition::originOf(const PXSize &size, const PXRect &selection) const
{
    return {place(x, selection.x, selection.width, size.width),
            place(y, selection.y, selection.height, size.height)};
}
