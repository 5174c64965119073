#pragma once

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Ids.h"

#include "foundation/PXGeometry.h"

#include <cstdint>
#include <memory>
#include <optional>

/// The display's vertical blanks, asked for one at a time (Present extension). Times are host
/// times: the extension counts microseconds of the same clock.
class X11VerticalBlank final {
public:
    /// A blank so little before the wished time counts: the times tremble, and a call every
    /// second refresh must not become one every third.
    static constexpr std::uint64_t earlyBy(std::uint64_t period) { return period / 8; }

    /// Nothing where the extension is missing or refuses. The blanks are those of the display
    /// that shows `place` now, also when the main display becomes another later.
    static std::unique_ptr<X11VerticalBlank> onConnection(std::unique_ptr<X11Connection> connection,
                                                          const PXPixelRect &place);

    [[nodiscard]] int fileDescriptor() const;
    [[nodiscard]] bool isLost() const { return _connection->isLost(); }

    /// Asks for the first blank at or after `notBefore`, one that is close before it included.
    /// Answers about when it is due.
    std::uint64_t request(std::uint64_t notBefore, std::uint64_t period);
    /// The time of the latest blank that was reported since the last call. Never waits.
    std::optional<std::uint64_t> takeLatest();
    /// Whether the request made last is still unanswered.
    [[nodiscard]] bool isUnderWay() const { return _isUnderWay; }

private:
    explicit X11VerticalBlank(std::unique_ptr<X11Connection> connection)
        : _connection(std::move(connection))
    {
    }

    std::unique_ptr<X11Connection> _connection;
    X11Window _window;
    std::uint32_t _serial = 0;
    bool _isUnderWay = false;
    std::uint64_t _latestTime = 0; ///< 0: none yet.
    std::uint64_t _latestCount = 0;
};
