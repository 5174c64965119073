#include "platform/pulse/PulseSoundPlatform.h"

#include "platform/pulse/PulseAudioPreviewOutput.h"
#include "platform/pulse/PulseDeviceWatch.h"
#include "platform/pulse/PulseError.h"
#include "platform/pulse/PulseServer.h"
#include "platform/pulse/PulseSoundInput.h"
#include "platform/pulse/PulseVirtualOutput.h"

#include "foundation/BRLog.h"
#include "foundation/PXFileManager.h"
#include "foundation/PXMainThread.h"

#include <QCryptographicHash>

#include <unistd.h>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

const QByteArray kVirtualSource = QByteArray(kPulseVirtualSinkName) + ".monitor";

PXError noDevice(const QString &kind, const QString &uid)
{
    return PulseError::noDevice(kind, uid);
}

PXError noDevice(const QString &kind, PXAudioDeviceID device)
{
    return PulseError::noDevice(kind, u"#%1"_s.arg(device));
}

/// The one whose `property` is `wanted`, or the error that names it.
template <typename Device, typename Property, typename Value>
PXExpected<Device> only(const PXExpected<std::vector<Device>> &devices, Property property,
                        const Value &wanted, const QString &kind)
{
    if (!devices)
        return PXFail(devices.error());
    const auto found = std::find_if(devices->begin(), devices->end(), [&](const Device &device) {
        return (device.*property)() == wanted;
    });
    if (found == devices->end())
        return PXFail(noDevice(kind, wanted));
    return *found;
}

template <typename Device>
PXExpected<PXAudioDeviceID> numberOf(const PXExpected<std::vector<Device>> &devices,
                                     const QByteArray &name)
{
    if (!devices)
        return PXFail(devices.error());
    const auto found = std::find_if(devices->begin(), devices->end(),
                                    [&](const Device &device) { return device.name == name; });
    return found == devices->end() ? kPXNoAudioDevice : found->deviceID();
}

PXExpected<void> resultOf(bool isDone, const QString &whatFailed)
{
    return isDone ? PXExpected<void>() : PXFail(PulseError::refused(whatFailed, PA_ERR_TIMEOUT));
}

} // namespace

PulseSoundPlatform::PulseSoundPlatform(const QString &serverName)
    : _server(std::make_unique<PulseServer>(serverName)),
      _loopbacks(std::make_unique<PulseLoopbacks>(*_server))
{
}

PulseSoundPlatform::~PulseSoundPlatform() = default;

PXExpected<std::vector<PXAudioDevice>> PulseSoundPlatform::inputDevices()
{
    const auto sources = _server->sources();
    if (!sources)
        return PXFail(sources.error());
    std::vector<PXAudioDevice> result;
    for (const PulseSource &source : *sources)
        result.push_back({source.deviceID(), source.uid(), source.description,
                          source.monitoredSink == PA_INVALID_INDEX ? kPXNoAudioDevice
                                                                   : source.monitoredSink + 1});
    return result;
}

PXExpected<std::vector<PXAudioDevice>> PulseSoundPlatform::outputDevices()
{
    const auto sinks = _server->sinks();
    if (!sinks)
        return PXFail(sinks.error());
    std::vector<PXAudioDevice> result;
    for (const PulseSink &sink : *sinks)
        result.push_back({sink.deviceID(), sink.uid(), sink.description});
    return result;
}

PXObservation PulseSoundPlatform::addDevicesObserver(std::function<void()> function)
{
    if (!_watch)
        _watch = std::make_unique<PulseDeviceWatch>(_server->name(),
                                                    [this] { _tellThatDevicesDidChange(); });
    return _observers.add(std::move(function));
}

void PulseSoundPlatform::_tellThatDevicesDidChange()
{
    if (_newsAreOnTheWay.exchange(true))
        return;
    PXMainThread::post(&_context, [this] {
        _newsAreOnTheWay = false;
        // The watch may have heard of it before the connection that they will ask over.
        _server->disconnect();
        _observers.tell();
    });
}

PXExpected<PulseServer::Defaults> PulseSoundPlatform::_defaultsOfNow()
{
    // PipeWire keeps a view of its own for each client, and now and then forgets to renew it: an
    // old connection would name the former default for ever.
    _server->disconnect();
    return _server->defaults();
}

PXExpected<PXAudioDeviceID> PulseSoundPlatform::defaultInputDevice()
{
    const auto defaults = _defaultsOfNow();
    return defaults ? numberOf(_server->sources(), defaults->source) : PXFail(defaults.error());
}

PXExpected<PXAudioDeviceID> PulseSoundPlatform::defaultOutputDevice()
{
    const auto defaults = _defaultsOfNow();
    return defaults ? numberOf(_server->sinks(), defaults->sink) : PXFail(defaults.error());
}

PXExpected<void> PulseSoundPlatform::setDefaultOutputDevice(PXAudioDeviceID device)
{
    const auto sink = only(_server->sinks(), &PulseSink::deviceID, device, u"output"_s);
    if (!sink)
        return PXFail(sink.error());
    const auto set = [&] {
        return _server->setDefaultSink(sink->name).and_then([&] {
            return _server->waitUntil([&] {
                return _server->defaults().map(
                    [&](const auto &now) { return now.sink == sink->name; });
            });
        });
    };
    auto isSet = set();
    if (isSet && !*isSet) {
        // PipeWire may have been busy with another choice, or have told us of none since.
        _server->disconnect();
        isSet = set();
    }
    return isSet.and_then([&](bool isSetNow) {
        return resultOf(isSetNow,
                        u"\"%1\" did not become the default output"_s.arg(sink->description));
    });
}

PXExpected<PXAudioDeviceID> PulseSoundPlatform::defaultSystemOutputDevice()
{
    const auto rule = _server->alertSink();
    if (!rule)
        return PXFail(rule.error());
    // It may name one that is unplugged at present.
    const auto named = *rule ? numberOf(_server->sinks(), **rule)
                             : PXExpected<PXAudioDeviceID>(kPXNoAudioDevice);
    return !named || *named != kPXNoAudioDevice ? named : defaultOutputDevice();
}

PXExpected<void> PulseSoundPlatform::setDefaultSystemOutputDevice(PXAudioDeviceID device)
{
    const auto sink = only(_server->sinks(), &PulseSink::deviceID, device, u"output"_s);
    if (!sink)
        return PXFail(sink.error());
    return _server->setAlertSink(sink->name)
        .and_then([&] {
            return _server->waitUntil([&] {
                return _server->alertSink().map([&](const auto &now) { return now == sink->name; });
            });
        })
        .and_then([&](bool isSet) {
            return resultOf(isSet, u"Alert sounds do not go to \"%1\""_s.arg(sink->description));
        });
}

PXExpected<std::unique_ptr<PXSoundInput>>
PulseSoundPlatform::openInput(const QString &uid, const std::optional<PXSoundFormat> &format)
{
    return only(_server->sources(), &PulseSource::uid, uid, u"input"_s)
        .map([&](const PulseSource &source) -> std::unique_ptr<PXSoundInput> {
            return std::make_unique<PulseSoundInput>(_server->name(), source,
                                                     format ? PulseSoundFormat::of(*format)
                                                            : PulseSoundFormat::of(source));
        });
}

PXExpected<std::unique_ptr<PXAudioPreviewOutput>>
PulseSoundPlatform::makeAudioPreviewOutput(const QString &inputUID, const QString &outputUID,
                                           double volume)
{
    const auto source = only(_server->sources(), &PulseSource::uid, inputUID, u"input"_s);
    if (!source)
        return PXFail(source.error());
    const auto sink = only(_server->sinks(), &PulseSink::uid, outputUID, u"output"_s);
    if (!sink)
        return PXFail(sink.error());
    // Two that begin at the same time would both find none, and the user would hear all twice.
    const auto lock = PXFileLock::take(_lockPath(u"playing"_s), PXFileLock::Mode::Exclusive,
                                       PXFileLock::IfHeld::Wait);
    if (!lock)
        BRLog(BRLogWarning, PXErrorLine(lock.error()));
    return _loopbacks->retain(*source, *sink, volume)
        .map([&]() -> std::unique_ptr<PXAudioPreviewOutput> {
            return std::make_unique<PulseAudioPreviewOutput>(*_loopbacks, *source, *sink);
        });
}

PXExpected<void> PulseSoundPlatform::loadVirtualOutput()
{
    return PulseVirtualOutput(*_server).load();
}

PXExpected<void> PulseSoundPlatform::unloadVirtualOutput()
{
    // Of PipeWire's loopbacks one would stay that reads nothing.
    return _loopbacks->unloadAll(kVirtualSource).and_then([this] {
        return PulseVirtualOutput(*_server).unload();
    });
}

PXExpected<std::unique_ptr<PXFileLock>>
PulseSoundPlatform::lockVirtualOutput(PXFileLock::Mode mode, PXFileLock::IfHeld ifHeld)
{
    auto lock = PXFileLock::take(_lockPath(u"driver"_s), mode, ifHeld);
    if (!lock)
        BRLog(BRLogWarning, PXErrorLine(lock.error()));
    return lock;
}

QString PulseSoundPlatform::_lockPath(const QString &purpose) const
{
    const QByteArray server
        = _server->name().isEmpty() ? qgetenv("PULSE_SERVER") : _server->name().toUtf8();
    const QByteArray hash = QCryptographicHash::hash(server, QCryptographicHash::Sha256).toHex();
    return u"%1/tolvane-%2-%3-%4.lock"_s.arg(PXFileManager::runtimeFolder().value_or(u"/tmp"_s),
                                             purpose, QString::number(::geteuid()),
                                             QString::fromLatin1(hash.first(12)));
}

PXExpected<bool> PulseSoundPlatform::_isVirtualOutputRecorded(PulseLoopbacks::Ours ours)
{
    return PulseVirtualOutput(*_server).source().and_then([&](const auto &source) {
        return source ? _loopbacks->isRecorded(*source, ours) : PXExpected<bool>(false);
    });
}

PXExpected<bool> PulseSoundPlatform::isVirtualOutputUsedByOthers()
{
    return _isVirtualOutputRecorded(PulseLoopbacks::Ours::DoNotCount);
}

PXExpected<void> PulseSoundPlatform::removeOrphans()
{
    return _isVirtualOutputRecorded(PulseLoopbacks::Ours::Count).and_then([this](bool isRecorded) {
        return isRecorded ? PXExpected<void>() : _loopbacks->unloadAll(kVirtualSource);
    });
}
