#include "platform/canberra/CanberraSoundPlayer.h"

#include "foundation/BRLog.h"
#include "foundation/PXResources.h"
#include "foundation/PXThread.h"

#include <QFile>

#include <canberra.h>

using namespace Qt::StringLiterals;

namespace {

constexpr std::uint32_t kSoundID = 0; // Sounds are only ever stopped all together.

using Properties = PXHandle<ca_proplist, ca_proplist_destroy>;

} // namespace

CanberraSoundPlayer::CanberraSoundPlayer()
    : _loggedStatus(CA_SUCCESS), _thread([this](const std::stop_token &stop) { _work(stop); })
{
}

CanberraSoundPlayer::~CanberraSoundPlayer() = default;

void CanberraSoundPlayer::prepare()
{
    _orders.enqueue({});
}

void CanberraSoundPlayer::play(const QString &name)
{
    _orders.enqueue({name, _outputDevice});
}

void CanberraSoundPlayer::setOutputDevice(const QString &uid)
{
    _outputDevice = uid;
}

void CanberraSoundPlayer::_work(const std::stop_token &stop)
{
    PXSetThreadName("tolvane-sounds");
    while (const std::optional<Order> order = _orders.dequeue(stop)) {
        if (stop.stop_requested())
            return;
        const bool wasConnected = _context != nullptr;
        int status = _carryOut(*order);
        if (status != CA_SUCCESS && wasConnected) {
            // The server may have gone since, and another come.
            _context.reset();
            status = _carryOut(*order);
        }
        if (status != CA_SUCCESS) {
            _context.reset();
            _log(order->name, status);
        }
    }
}

int CanberraSoundPlayer::_carryOut(const Order &order)
{
    const auto path = PXResources::pathForResource(u"sounds/"_s + order.name, u"wav"_s);
    if (!order.name.isEmpty() && !path)
        return CA_ERROR_NOTFOUND;
    if (const int status = _open(); status != CA_SUCCESS || order.name.isEmpty())
        return status;
    return _playFile(*path, order.outputDevice);
}

int CanberraSoundPlayer::_open()
{
    if (_context)
        return CA_SUCCESS;
    ca_context *context = nullptr;
    if (const int status = ca_context_create(&context); status != CA_SUCCESS)
        return status;
    _context.reset(context);
    // No other: devices are named as this server names them.
    if (const int status = ca_context_set_driver(context, "pulse"); status != CA_SUCCESS)
        return status;
    ca_context_change_props(context, CA_PROP_APPLICATION_NAME, "Tolvane", CA_PROP_APPLICATION_ID,
                            "com.pexarworks.tolvane", nullptr);
    return ca_context_open(context);
}

int CanberraSoundPlayer::_playFile(const QString &path, const QString &outputDevice)
{
    const QByteArray device = outputDevice.toUtf8();
    int status
        = ca_context_change_device(_context.get(), device.isEmpty() ? nullptr : device.constData());
    ca_proplist *list = nullptr;
    if (status == CA_SUCCESS)
        status = ca_proplist_create(&list);
    if (status != CA_SUCCESS)
        return status;
    const Properties properties(list);
    // By its file and not by an event's name: that would be looked for in themes, and be kept by
    // the server when a later release has another sound.
    ca_proplist_sets(list, CA_PROP_MEDIA_FILENAME, QFile::encodeName(path).constData());
    ca_proplist_sets(list, CA_PROP_MEDIA_NAME, "Tolvane");
    status = ca_context_play_full(_context.get(), kSoundID, list, nullptr, nullptr);
    if (status == CA_SUCCESS)
        _loggedStatus = CA_SUCCESS;
    return status;
}

void CanberraSoundPlayer::_log(const QString &name, int status)
{
    if (_loggedStatus == status)
        return;
    _loggedStatus = status;
    const QString what = name.isEmpty() ? u"Sounds"_s : u"The sound \"%1\""_s.arg(name);
    BRLog(BRLogWarning,
          u"%1 cannot be played: %2"_s.arg(what, QLatin1StringView(ca_strerror(status))));
}
