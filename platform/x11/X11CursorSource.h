#pragma once

#include "platform/PXCursorSource.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11PointerWatch.h"

#include <xcb/xfixes.h>

#include <atomic>
#include <memory>

/// Asks for the pointer's place, unless the server was told to report its motion, has reported none
/// since the last answer, and that is younger than a fifth of a second; for the picture (XFixes)
/// only when the server has said that it changed. A cursor that another program hides by
/// XFixesHideCursor is still told: the server does not say.
class X11CursorSource final : public PXCursorSource {
public:
    static PXExpected<std::unique_ptr<X11CursorSource>>
    onConnections(std::unique_ptr<X11Connection> questions, std::unique_ptr<X11Connection> events);
    ~X11CursorSource() override;

    void askAhead() override;
    PXExpected<std::optional<PXCursor>> cursor() override;
    PXExpected<PXPixelRect> pointerPixel() override;
    void callOnceWhenMoved(std::function<void()> moved) override;
    bool mayHaveMoved() override;

private:
    struct Place {
        int x = 0;
        int y = 0;

        friend bool operator==(const Place &, const Place &) = default;
    };
    struct Picture {
        std::shared_ptr<const PXCursorImage> image; ///< None: nothing to be seen.
        Place hotSpot;
        std::uint64_t serial = 0;
    };

    X11CursorSource(std::unique_ptr<X11Connection> connection, std::uint8_t cursorNotify);
    PXExpected<void> _askPlace();
    [[nodiscard]] bool _isPlaceKnown() const;
    PXExpected<void> _askPicture();
    void _readEvents();
    void _forgetQuestion();

    std::unique_ptr<X11Connection> _connection;
    const std::uint8_t _cursorNotify; ///< The event's number.
    Place _place; ///< As told last.
    Picture _picture; ///< As told last.
    bool _pictureChanged = true;
    bool _isToldOfPictures = false; ///< The server tells when the picture changes.
    unsigned _question = 0; ///< The sequence number of a request that is under way; 0: none.
    std::uint64_t _askedAt = 0; ///< When the last answer about the place came; host time.
    bool _isKnownSinceArmed = false; ///< An answer came after `callOnceWhenMoved()`.
    std::atomic<bool> _isArmed = false; ///< A motion from now on is told, and takes this back.
    bool _askedAhead = false; ///< It is `askAhead()`'s, not that of `mayHaveMoved()`.
    std::unique_ptr<X11PointerWatch> _watch;
};
