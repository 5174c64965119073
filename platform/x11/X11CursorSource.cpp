#include "platform/x11/X11CursorSource.h"

#include "foundation/PXClock.h"

#include <xcb/xcbext.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

/// Warps by programs make no motion that is reported, so a place is believed no longer than this.
constexpr std::uint64_t kLongestBelief = 200'000'000;

std::shared_ptr<const PXCursorImage> imageOf(const xcb_xfixes_get_cursor_image_reply_t &reply)
{
    const std::uint32_t *pixels = xcb_xfixes_get_cursor_image_cursor_image(&reply);
    const std::size_t count = std::size_t{reply.width} * reply.height;
    const bool isVisible = std::any_of(pixels, pixels + count,
                                       [](std::uint32_t pixel) { return (pixel >> 24) != 0; });
    if (!isVisible)
        return nullptr;
    auto image = std::make_shared<PXCursorImage>();
    image->width = reply.width;
    image->height = reply.height;
    image->pixels.resize(count * sizeof *pixels);
    std::memcpy(image->pixels.data(), pixels, image->pixels.size());
    return image;
}

} // namespace

PXExpected<std::unique_ptr<X11CursorSource>>
X11CursorSource::onConnections(std::unique_ptr<X11Connection> questions,
                               std::unique_ptr<X11Connection> events)
{
    if (auto version = questions->reply<xcb_xfixes_query_version_reply>(
            "xcb_xfixes_query_version", xcb_xfixes_query_version(questions->get(), 5, 0));
        !version)
        return PXFail(std::move(version).error());
    const auto firstEvent = questions->firstEventOf(xcb_xfixes_id);
    if (!firstEvent)
        return PXFail(firstEvent.error());
    const auto cursorNotify = static_cast<std::uint8_t>(*firstEvent + XCB_XFIXES_CURSOR_NOTIFY);
    std::unique_ptr<X11CursorSource> result(
        new X11CursorSource(std::move(questions), cursorNotify));
    auto watch = X11PointerWatch::onConnection(std::move(events));
    if (!watch)
        return PXFail(std::move(watch).error());
    result->_watch = *std::move(watch);
    return result;
}

X11CursorSource::X11CursorSource(std::unique_ptr<X11Connection> connection,
                                 std::uint8_t cursorNotify)
    : _connection(std::move(connection)), _cursorNotify(cursorNotify)
{
}

X11CursorSource::~X11CursorSource()
{
    _forgetQuestion();
}

PXExpected<std::optional<PXCursor>> X11CursorSource::cursor()
{
    // What the server sent before the answer about the place has arrived with it, so that
    // `_pictureChanged` is as fresh as the place is.
    if (auto asked = _askPlace(); !asked)
        return PXFail(std::move(asked).error());
    if (_pictureChanged)
        if (auto asked = _askPicture(); !asked)
            return PXFail(std::move(asked).error());
    if (!_picture.image)
        return std::optional<PXCursor>();
    const PXPixelRect rect = {_place.x - _picture.hotSpot.x, _place.y - _picture.hotSpot.y,
                              _picture.image->width, _picture.image->height};
    return PXCursor{_picture.image, rect, {_place.x, _place.y, 1, 1}, _picture.serial};
}

PXExpected<PXPixelRect> X11CursorSource::pointerPixel()
{
    if (auto asked = _askPlace(); !asked)
        return PXFail(std::move(asked).error());
    return PXPixelRect{_place.x, _place.y, 1, 1};
}

bool X11CursorSource::mayHaveMoved()
{
    bool moved = false;
    _askedAhead = false;
    if (_question != 0) {
        void *answer = nullptr;
        xcb_generic_error_t *error = nullptr;
        if (xcb_poll_for_reply(_connection->get(), _question, &answer, &error) == 0)
            return false;
        const X11Reply<xcb_generic_error_t> failure(error);
        const X11Reply<xcb_query_pointer_reply_t> pointer(
            static_cast<xcb_query_pointer_reply_t *>(answer));
        _question = 0;
        _readEvents();
        // A picture that nobody asked for may change as it likes.
        moved = (_pictureChanged && _picture.serial != 0)
            || (pointer && Place{pointer->root_x, pointer->root_y} != _place);
        if (moved)
            _isKnownSinceArmed = false;
    }
    // Whoever asks for the cursor then gets to know that the display has gone.
    if (_connection->isLost())
        return true;
    _question = xcb_query_pointer(_connection->get(), _connection->root()).sequence;
    xcb_flush(_connection->get());
    return moved;
}

void X11CursorSource::askAhead()
{
    // An older answer would differ from what is told now, and be taken for a movement.
    _forgetQuestion();
    if (_isPlaceKnown())
        return;
    _askedAhead = true;
    _question = xcb_query_pointer(_connection->get(), _connection->root()).sequence;
    xcb_flush(_connection->get());
}

void X11CursorSource::callOnceWhenMoved(std::function<void()> moved)
{
    if (!moved) {
        _isArmed = false;
        return _watch->callOnce({});
    }
    if (!_isArmed.exchange(true))
        _isKnownSinceArmed = false;
    _watch->callOnce([this, moved = std::move(moved)] {
        _isArmed = false;
        moved();
    });
}

bool X11CursorSource::_isPlaceKnown() const
{
    return _isArmed && _isKnownSinceArmed && _watch->seesEveryMotion() && !_connection->isLost()
        && PXCurrentHostTime() - _askedAt < kLongestBelief;
}

PXExpected<void> X11CursorSource::_askPlace()
{
    if (!_askedAhead)
        askAhead();
    if (!std::exchange(_askedAhead, false))
        return {};
    // Armed on another connection, which the server may read after this question: a motion just
    // between the two is then found when the belief ends.
    const bool isArmed = _isArmed;
    auto pointer = _connection->reply<xcb_query_pointer_reply>(
        "xcb_query_pointer", xcb_query_pointer_cookie_t{std::exchange(_question, 0)});
    if (!pointer)
        return PXFail(std::move(pointer).error());
    _place = {(*pointer)->root_x, (*pointer)->root_y};
    _askedAt = PXCurrentHostTime();
    _isKnownSinceArmed = isArmed;
    _readEvents();
    return {};
}

PXExpected<void> X11CursorSource::_askPicture()
{
    // Not before somebody wants pictures: nobody would read the events. Sent before the question,
    // so that no change is missed.
    if (!std::exchange(_isToldOfPictures, true))
        xcb_xfixes_select_cursor_input(_connection->get(), _connection->root(),
                                       XCB_XFIXES_CURSOR_NOTIFY_MASK_DISPLAY_CURSOR);
    auto image = _connection->reply<xcb_xfixes_get_cursor_image_reply>(
        "xcb_xfixes_get_cursor_image", xcb_xfixes_get_cursor_image(_connection->get()));
    if (!image)
        return PXFail(std::move(image).error());
    _picture = {imageOf(**image), {(*image)->xhot, (*image)->yhot}, (*image)->cursor_serial};
    _place = {(*image)->x, (*image)->y};
    _pictureChanged = false;
    return {};
}

void X11CursorSource::_readEvents()
{
    while (const X11Event event{xcb_poll_for_queued_event(_connection->get())})
        if ((event->response_type & 0x7F) == _cursorNotify)
            _pictureChanged = true;
}

void X11CursorSource::_forgetQuestion()
{
    if (_question != 0)
        xcb_discard_reply(_connection->get(), _question);
    _question = 0;
    _askedAhead = false;
}
