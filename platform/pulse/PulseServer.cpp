#include "platform/pulse/PulseServer.h"

#include "platform/pulse/PulseError.h"

#include "foundation/BRLog.h"
#include "foundation/PXClock.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

/// Event sounds are streams with the role "event".
constexpr char kAlertRule[] = "sink-input-by-media-role:event";
/// Not all that happens to a server is an event.
constexpr std::uint64_t kBetweenLooks = 50'000'000;

/// What comes in answer to a question for a list.
template <typename Item> struct Listing {
    std::vector<Item> items;
    bool isRefused = false;
};

template <typename Item, typename Info>
void listItem(pa_context *, const Info *info, int end, void *userData) noexcept
{
    auto &listing = *static_cast<Listing<Item> *>(userData);
    if (end == 0)
        listing.items.emplace_back(*info);
    else
        listing.isRefused = end < 0;
}

} // namespace

PXExpected<PulseConnection *> PulseServer::_connect()
{
    if (!_connection || !_connection->isAlive()) {
        _connection.reset();
        auto opened = PulseConnection::open(_name);
        if (!opened)
            return PXFail(std::move(opened).error());
        _connection = *std::move(opened);
    }
    return _connection.get();
}

PXExpected<void> PulseServer::_ask(const char *call, const QString &whatFailed,
                                   const bool &isRefused,
                                   const std::function<pa_operation *(pa_context *)> &ask)
{
    const auto connection = _connect();
    if (!connection)
        return PXFail(connection.error());
    pa_context *context = (*connection)->context();
    const auto answer = (*connection)->waitFor(PulseOperation(ask(context)));
    if (answer == PulseConnection::Answer::Lost)
        return PXFail((*connection)->lostError());
    if (answer == PulseConnection::Answer::Given && !isRefused)
        return {};
    BRLog(BRLogError, "%s() failed with error %i", call, pa_context_errno(context));
    return PXFail(PulseError::refused(whatFailed, pa_context_errno(context)));
}

PXExpected<void> PulseServer::_order(
    const char *call, const QString &whatFailed,
    const std::function<pa_operation *(pa_context *, pa_context_success_cb_t, void *)> &order)
{
    bool isRefused = false;
    return _ask(call, whatFailed, isRefused, [&](pa_context *context) {
        return order(
            context,
            [](pa_context *, int success, void *answer) noexcept {
                *static_cast<bool *>(answer) = success == 0;
            },
            &isRefused);
    });
}

template <typename Item, typename Info, typename Call>
PXExpected<std::vector<Item>> PulseServer::_list(const char *call, const QString &whatFailed,
                                                 Call function)
{
    Listing<Item> listing;
    auto listed = _ask(call, whatFailed, listing.isRefused, [&](pa_context *context) {
        return function(context, &listItem<Item, Info>, &listing);
    });
    if (!listed)
        return PXFail(std::move(listed).error());
    return std::move(listing.items);
}

PXExpected<std::vector<PulseSink>> PulseServer::sinks()
{
    return _list<PulseSink, pa_sink_info>("pa_context_get_sink_info_list",
                                          u"Could not list the sound outputs"_s,
                                          pa_context_get_sink_info_list);
}

PXExpected<std::vector<PulseSource>> PulseServer::sources()
{
    return _list<PulseSource, pa_source_info>("pa_context_get_source_info_list",
                                              u"Could not list the sound inputs"_s,
                                              pa_context_get_source_info_list);
}

PXExpected<std::vector<PulseRecording>> PulseServer::recordings()
{
    return _list<PulseRecording, pa_source_output_info>("pa_context_get_source_output_info_list",
                                                        u"Could not list who records sound"_s,
                                                        pa_context_get_source_output_info_list);
}

PXExpected<std::vector<PulsePlayback>> PulseServer::playbacks()
{
    return _list<PulsePlayback, pa_sink_input_info>("pa_context_get_sink_input_info_list",
                                                    u"Could not list who plays sound"_s,
                                                    pa_context_get_sink_input_info_list);
}

PXExpected<std::vector<PulseClient>> PulseServer::clients()
{
    return _list<PulseClient, pa_client_info>("pa_context_get_client_info_list",
                                              u"Could not list the sound server's clients"_s,
                                              pa_context_get_client_info_list);
}

PXExpected<std::vector<PulseModule>> PulseServer::modules()
{
    return _list<PulseModule, pa_module_info>("pa_context_get_module_info_list",
                                              u"Could not list the sound server's modules"_s,
                                              pa_context_get_module_info_list);
}

PXExpected<PulseServer::Defaults> PulseServer::defaults()
{
    struct Answer {
        Defaults defaults;
        bool isRefused = false;
    } answer;
    const auto take = [](pa_context *, const pa_server_info *info, void *userData) noexcept {
        auto &result = *static_cast<Answer *>(userData);
        result.isRefused = !info;
        if (info)
            result.defaults = {info->default_sink_name, info->default_source_name};
    };
    auto asked
        = _ask("pa_context_get_server_info", u"Could not ask for the default sound devices"_s,
               answer.isRefused, [&](pa_context *context) {
                   return pa_context_get_server_info(context, take, &answer);
               });
    if (!asked)
        return PXFail(std::move(asked).error());
    return std::move(answer.defaults);
}

PXExpected<void> PulseServer::setDefaultSink(const QByteArray &sink)
{
    return _order("pa_context_set_default_sink", u"Could not change the default sound output"_s,
                  [&](pa_context *context, pa_context_success_cb_t callback, void *answer) {
                      return pa_context_set_default_sink(context, sink.constData(), callback,
                                                         answer);
                  });
}

PXExpected<std::optional<QByteArray>> PulseServer::alertSink()
{
    const auto connection = _connect();
    if (!connection)
        return PXFail(connection.error());
    std::optional<QByteArray> sink;
    const auto take = [](pa_context *, const pa_ext_stream_restore_info *info, int end,
                         void *userData) noexcept {
        if (end == 0 && info->device && qstrcmp(info->name, kAlertRule) == 0)
            *static_cast<std::optional<QByteArray> *>(userData) = info->device;
    };
    // A server without such rules refuses, which is an answer as well.
    const auto answer = (*connection)
                            ->waitFor(PulseOperation(
                                pa_ext_stream_restore_read((*connection)->context(), take, &sink)));
    if (answer == PulseConnection::Answer::Lost)
        return PXFail((*connection)->lostError());
    return sink;
}

PXExpected<void> PulseServer::setAlertSink(const QByteArray &sink)
{
    pa_ext_stream_restore_info rule = {};
    rule.name = kAlertRule;
    rule.device = sink.constData();
    // Without channels the rule says nothing about the volume.
    pa_channel_map_init(&rule.channel_map);
    pa_cvolume_init(&rule.volume);
    return _order("pa_ext_stream_restore_write",
                  u"The sound server does not remember where alert sounds go"_s,
                  [&](pa_context *context, pa_context_success_cb_t callback, void *answer) {
                      return pa_ext_stream_restore_write(context, PA_UPDATE_REPLACE, &rule, 1, 1,
                                                         callback, answer);
                  });
}

PXExpected<void> PulseServer::setVolumeOf(const PulseSink &sink, double volume)
{
    return _setVolume(sink.index, sink.channels, volume, pa_context_set_sink_volume_by_index,
                      pa_context_set_sink_mute_by_index);
}

PXExpected<void> PulseServer::setVolumeOf(const PulsePlayback &playback, double volume)
{
    return _setVolume(playback.index, playback.channels, volume, pa_context_set_sink_input_volume,
                      pa_context_set_sink_input_mute);
}

template <typename SetVolume, typename SetMute>
PXExpected<void> PulseServer::_setVolume(std::uint32_t index, int channels, double volume,
                                         SetVolume setVolume, SetMute setMute)
{
    pa_cvolume volumes;
    pa_cvolume_set(&volumes, static_cast<unsigned>(channels), pa_sw_volume_from_linear(volume));
    const QString whatFailed = u"Could not set the volume of a sound output"_s;
    return _order("pa_context_set_..._volume", whatFailed,
                  [&](pa_context *context, pa_context_success_cb_t callback, void *answer) {
                      return setVolume(context, index, &volumes, callback, answer);
                  })
        .and_then([&] {
            return _order("pa_context_set_..._mute", whatFailed,
                          [&](pa_context *context, pa_context_success_cb_t callback, void *answer) {
                              return setMute(context, index, 0, callback, answer);
                          });
        });
}

PXExpected<std::uint32_t> PulseServer::loadModule(const char *name, const QByteArray &arguments)
{
    struct Answer {
        std::uint32_t index = PA_INVALID_INDEX;
        bool isRefused = false;
    } answer;
    const auto take = [](pa_context *, std::uint32_t index, void *userData) noexcept {
        *static_cast<Answer *>(userData) = {index, index == PA_INVALID_INDEX};
    };
    auto asked = _ask(
        "pa_context_load_module", u"Could not load \"%1\""_s.arg(QLatin1StringView(name)),
        answer.isRefused, [&](pa_context *context) {
            return pa_context_load_module(context, name, arguments.constData(), take, &answer);
        });
    if (!asked)
        return PXFail(std::move(asked).error());
    return answer.index;
}

PXExpected<void> PulseServer::unloadModule(std::uint32_t index)
{
    return _order("pa_context_unload_module", u"Could not unload module %1"_s.arg(index),
                  [&](pa_context *context, pa_context_success_cb_t callback, void *answer) {
                      return pa_context_unload_module(context, index, callback, answer);
                  });
}

PXExpected<bool> PulseServer::waitUntil(const std::function<PXExpected<bool>()> &isTrue)
{
    const auto connection = _connect();
    if (!connection)
        return PXFail(connection.error());
    (*connection)
        ->listenTo(PA_SUBSCRIPTION_MASK_SERVER | PA_SUBSCRIPTION_MASK_SINK
                   | PA_SUBSCRIPTION_MASK_SOURCE | PA_SUBSCRIPTION_MASK_SINK_INPUT);
    const std::uint64_t deadline = PXCurrentHostTime() + PulseConnection::kPatience;
    for (;;) {
        auto result = isTrue();
        // Asked over another connection: the server was restarted, what is waited for is gone.
        if (_connection.get() != *connection)
            return PXFail(PulseError::lost());
        if (!result || *result || PXCurrentHostTime() >= deadline) {
            _connection->listenTo(0);
            return result;
        }
        _connection->waitForEvent(std::min(deadline, PXCurrentHostTime() + kBetweenLooks));
    }
}
