#include "platform/x11/X11Connection.h"

#include "foundation/BRLog.h"

#include <sys/socket.h>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

const xcb_screen_t *screenOfNumber(xcb_connection_t *connection, int number)
{
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (; screens.rem > 0 && number > 0; --number)
        xcb_screen_next(&screens);
    return screens.rem > 0 ? screens.data : nullptr;
}

} // namespace

PXExpected<std::unique_ptr<X11Connection>>
X11Connection::open(const QString &displayName, std::shared_ptr<std::atomic<bool>> lossIsLogged)
{
    std::unique_ptr<X11Connection> result(new X11Connection);
    result->_lossIsLogged = std::move(lossIsLogged);
    result->_displayName = displayName.isEmpty() ? qEnvironmentVariable("DISPLAY") : displayName;
    const QByteArray name = result->_displayName.toLocal8Bit();
    result->_connection.reset(xcb_connect(name.constData(), &result->_screenNumber));
    if (!result->isLost())
        result->_screen = screenOfNumber(result->get(), result->_screenNumber);
    if (!result->_screen)
        return PXFail({kPXDisplayErrorDomain,
                       PXDisplayCannotOpen,
                       u"cannot open display \"%1\""_s.arg(result->_displayName),
                       u"Set DISPLAY, or log in to an X11 session."_s,
                       {}});
    return result;
}

bool X11Connection::isLocal() const
{
    sockaddr_storage address = {};
    socklen_t size = sizeof address;
    return getsockname(xcb_get_file_descriptor(get()), reinterpret_cast<sockaddr *>(&address),
                       &size)
        == 0
        && address.ss_family == AF_UNIX;
}

bool X11Connection::hasExtension(xcb_extension_t &extension) const
{
    const auto *data = xcb_get_extension_data(get(), &extension);
    return data && data->present;
}

PXExpected<std::uint8_t> X11Connection::firstEventOf(xcb_extension_t &extension)
{
    // xcb forgets what it knew once the connection is lost.
    const auto *data = xcb_get_extension_data(get(), &extension);
    if (!data)
        return PXFail(lostError());
    return data->first_event;
}

bool X11Connection::isServersOwn(std::uint32_t id) const
{
    // An id is the client's number above the bits that every client may choose; the server's
    // own number is 0.
    return (id & ~xcb_get_setup(get())->resource_id_mask) == 0;
}

void X11Connection::sync()
{
    replyIfThere<xcb_get_input_focus_reply>(xcb_get_input_focus(get()));
}

PXExpected<void> X11Connection::check(const char *request,
                                      std::span<const xcb_void_cookie_t> cookies)
{
    X11Reply<xcb_generic_error_t> error;
    for (const xcb_void_cookie_t cookie : cookies) {
        X11Reply<xcb_generic_error_t> next(xcb_request_check(get(), cookie));
        if (!error)
            error = std::move(next);
    }
    _wakeReader();
    if (error || isLost())
        return PXFail(failure(request, error.get()));
    return {};
}

void X11Connection::setReader(const X11FileDescriptor *wake)
{
    _readingThread = std::this_thread::get_id();
    _reader = wake;
}

void X11Connection::_wakeReader() const
{
    const X11FileDescriptor *reader = _reader;
    if (reader && _readingThread.load() != std::this_thread::get_id())
        reader->signal();
}

PXError X11Connection::failure(const char *request, const xcb_generic_error_t *error)
{
    if (!error)
        return lostError();
    BRLog(BRLogError, "%s() failed with error %i", request, error->error_code);
    return {kPXDisplayErrorDomain,
            PXDisplayRequestRefused,
            u"The display refused a request (%1)"_s.arg(QLatin1StringView(request)),
            {},
            {{u"trueErrorCode"_s, error->error_code}}};
}

PXError X11Connection::lostError()
{
    const int status = xcb_connection_has_error(get());
    if (!_lossIsLogged->exchange(true))
        BRLog(BRLogError,
              u"Lost the connection to display \"%1\" (%2)"_s.arg(_displayName).arg(status));
    return {kPXDisplayErrorDomain,
            PXDisplayLost,
            u"The display \"%1\" has gone"_s.arg(_displayName),
            {},
            {{u"trueErrorCode"_s, status}}};
}
