#pragma once

#include "platform/pulse/PulseConnection.h"
#include "platform/pulse/PulseDevices.h"

#include <functional>
#include <memory>
#include <optional>
#include <vector>

/// Questions to the sound server, in our words. Connects with the first one, and again with the
/// first after the server was restarted. Each waits for its answer; what fails is logged.
/// One thread.
class PulseServer final {
public:
    /// As `PulseContext` has it.
    explicit PulseServer(const QString &name) : _name(name) { }

    [[nodiscard]] const QString &name() const { return _name; }
    /// The next question connects anew.
    void disconnect() { _connection.reset(); }

    [[nodiscard]] PXExpected<std::vector<PulseSink>> sinks();
    [[nodiscard]] PXExpected<std::vector<PulseSource>> sources();
    [[nodiscard]] PXExpected<std::vector<PulseRecording>> recordings();
    [[nodiscard]] PXExpected<std::vector<PulsePlayback>> playbacks();
    [[nodiscard]] PXExpected<std::vector<PulseClient>> clients();
    [[nodiscard]] PXExpected<std::vector<PulseModule>> modules();

    /// Empty where there is none. The server may name something that does not exist.
    struct Defaults {
        QByteArray sink;
        QByteArray source;
    };
    [[nodiscard]] PXExpected<Defaults> defaults();
    /// PipeWire obeys some time later, here and with `setAlertSink`.
    [[nodiscard]] PXExpected<void> setDefaultSink(const QByteArray &sink);

    /// The sink that the user's rule for alert sounds names. None where there is no such rule, or
    /// where the server keeps no rules.
    [[nodiscard]] PXExpected<std::optional<QByteArray>> alertSink();
    [[nodiscard]] PXExpected<void> setAlertSink(const QByteArray &sink);

    /// Linear: 1.0 is unchanged. Not silenced any more.
    [[nodiscard]] PXExpected<void> setVolumeOf(const PulseSink &sink, double volume);
    [[nodiscard]] PXExpected<void> setVolumeOf(const PulsePlayback &playback, double volume);

    /// Answers the module's number.
    [[nodiscard]] PXExpected<std::uint32_t> loadModule(const char *name,
                                                       const QByteArray &arguments);
    [[nodiscard]] PXExpected<void> unloadModule(std::uint32_t index);

    /// Asks `isTrue` now, after each change that the server tells of, and now and then; false when
    /// it has not become true for as long as one waits for an answer.
    [[nodiscard]] PXExpected<bool> waitUntil(const std::function<PXExpected<bool>()> &isTrue);

private:
    /// The live connection; a new one where there is none.
    PXExpected<PulseConnection *> _connect();
    /// Waits for the answer to what `ask` asks. `isRefused` is what its callback heard.
    PXExpected<void> _ask(const char *call, const QString &whatFailed, const bool &isRefused,
                          const std::function<pa_operation *(pa_context *)> &ask);
    /// For calls whose answer is success or not.
    PXExpected<void> _order(
        const char *call, const QString &whatFailed,
        const std::function<pa_operation *(pa_context *, pa_context_success_cb_t, void *)> &order);
    template <typename SetVolume, typename SetMute>
    PXExpected<void> _setVolume(std::uint32_t index, int channels, double volume,
                                SetVolume setVolume, SetMute setMute);
    template <typename Item, typename Info, typename Call>
    PXExpected<std::vector<Item>> _list(const char *call, const QString &whatFailed, Call function);

    const QString _name;
    std::unique_ptr<PulseConnection> _connection;
};
